#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/defaults/DefaultsKey.h"
#include "Tessarin/platform/runtime/Ref.h"
#include "Tessarin/platform/runtime/Slot.h"
#include <optional>
#include <string_view>
#include <type_traits>

namespace Tessarin {

/// Settings by keys that carry their type. Any thread.
///
///     static DefaultsKey<std::string> const theme("theme");
///     (*NSUserDefaults::standardUserDefaults())[theme] = "dark"; // written a moment later
///     NSUserDefaults::setCurrentDefaultsGroup("org.example.suite");
///     NSUserDefaults::set("dark", theme);                        // in the suite, and on the disk at once
///
/// How a stored value of another type reads stands in NSUserDefaults.h.
class TESSARIN_API NSUserDefaultsKeys {
    friend class NSUserDefaults; // only NSUserDefaults can carry this room
    NSUserDefaultsKeys() = default;
    template <DefaultsValue T> using KeySlot = Slot<NSUserDefaults, DefaultsKey<T> const&, DefaultsReading<T>>;

public:
    /// Reads or sets. Assigning an absent data or date removes it.
    template <DefaultsValue T> KeySlot<T> operator[](DefaultsKey<T> const& key);
    template <DefaultsValue T> DefaultsReading<T> operator[](DefaultsKey<T> const& key) const { return slot(key); }
    template <DefaultsValue T> DefaultsReading<T> slot(DefaultsKey<T> const& key) const;
    template <DefaultsValue T> void setSlot(DefaultsKey<T> const& key, DefaultsReading<T> const& value);

    /// Whether anything is stored, of whatever type: a stored zero reads like none.
    bool hasValueForKey(std::string_view key) const;
    void removeValueForKey(std::string_view key);

    /// Makes the suite of that name what everything below uses. After a name that can be no suite it is the standard store
    /// again. Calls that are under way on other threads may still go to the one before.
    static void setCurrentDefaultsGroup(std::string_view name);
    /// The store of the group, null without one.
    static Ref<NSUserDefaults> s_sharedUserDefaults();
    /// The store of the group, else the standard one.
    static Ref<NSUserDefaults> defaults();

    template <DefaultsValue T> static DefaultsReading<T> get(DefaultsKey<T> const& key);
    /// Unlike the subscript this waits until the file is written, also when the value is as before; failure is silent, and
    /// the value then stays in memory. An absent value removes.
    template <DefaultsValue T> static void set(std::type_identity_t<std::optional<T>> value, DefaultsKey<T> const& forKey);

    /// The two that share their names with those of a store, for `defaults()`: `NSUserDefaults::type().hasValueForKey("theme")`.
    class TESSARIN_API Type {
    public:
        bool hasValueForKey(std::string_view key) const;
        /// Waits until the file is written.
        void removeValueForKey(std::string_view key) const;
    };
    static Type type() { return {}; }

protected:
    ~NSUserDefaultsKeys() = default;
};

} // namespace Tessarin
