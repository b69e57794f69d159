#pragma once
#include "Tessarin/Export.h"
#include <cstdint>
#include <iosfwd>
#include <memory> // std::hash
#include <optional>
#include <string>

namespace Tessarin {

/// Modifier keys: a set, a value. `command` is the key that many keyboards print a logo on, and Linux calls super; `option` is
/// Alt; `capsLock` is the lock, not the key.
///
///     auto const keys = KeyboardModifiers::current().value_or(KeyboardModifiers::none);
///     if (keys.contains(KeyboardModifiers::shift | KeyboardModifiers::control)) extendSelection();
class TESSARIN_API KeyboardModifiers {
public:
    static const KeyboardModifiers none, shift, control, option, command, capsLock;

    /// The empty set.
    constexpr KeyboardModifiers() noexcept = default;

    /// The keys that are down now, as the registered source tells. Absent without a source, and when that cannot tell, for want
    /// of a display above all. Asks the toolkit, so it is called where the toolkit may be called: on the main thread.
    static std::optional<KeyboardModifiers> current();

    /// Who is asked: a toolkit's adapter, <Tessarin/integration/qt/QtKeyboard.h> or <Tessarin/integration/gtk/GtkKeyboard.h>.
    using Source = std::optional<KeyboardModifiers> (*)();
    /// Null for nobody. Gives the source that was registered before, so that it can be put back. Any thread.
    static Source setSource(Source source) noexcept;

    /// Whether all of those keys are in the set.
    constexpr bool contains(KeyboardModifiers keys) const noexcept { return (bits_ & keys.bits_) == keys.bits_; }
    constexpr bool isEmpty() const noexcept { return bits_ == 0; }
    /// A bit for each key, in the order of their declaration from 1 on.
    constexpr std::uint32_t rawValue() const noexcept { return bits_; }

    /// "[shift, control]", "[]".
    std::string description() const;

    friend constexpr KeyboardModifiers operator|(KeyboardModifiers a, KeyboardModifiers b) noexcept {
        return KeyboardModifiers{a.bits_ | b.bits_};
    }
    friend constexpr KeyboardModifiers operator&(KeyboardModifiers a, KeyboardModifiers b) noexcept {
        return KeyboardModifiers{a.bits_ & b.bits_};
    }
    /// Those of `a` that are not in `b`.
    friend constexpr KeyboardModifiers operator-(KeyboardModifiers a, KeyboardModifiers b) noexcept {
        return KeyboardModifiers{a.bits_ & ~b.bits_};
    }
    constexpr KeyboardModifiers& operator|=(KeyboardModifiers other) noexcept { return *this = *this | other; }
    friend constexpr bool operator==(KeyboardModifiers, KeyboardModifiers) noexcept = default;
    friend TESSARIN_API std::ostream& operator<<(std::ostream& out, KeyboardModifiers keys);

private:
    explicit constexpr KeyboardModifiers(std::uint32_t bits) noexcept : bits_(bits) {}

    std::uint32_t bits_ = 0;
};

inline constexpr KeyboardModifiers KeyboardModifiers::none{0};
inline constexpr KeyboardModifiers KeyboardModifiers::shift{1};
inline constexpr KeyboardModifiers KeyboardModifiers::control{2};
inline constexpr KeyboardModifiers KeyboardModifiers::option{4};
inline constexpr KeyboardModifiers KeyboardModifiers::command{8};
inline constexpr KeyboardModifiers KeyboardModifiers::capsLock{16};

} // namespace Tessarin

template <> struct std::hash<Tessarin::KeyboardModifiers> {
    std::size_t operator()(Tessarin::KeyboardModifiers keys) const noexcept { return keys.rawValue(); }
};
