#pragma once
#include "Tessarin/Export.h"
#include <string>
#include <string_view>

namespace Tessarin {

/// The name of a message, interned: two selectors of equal text are the same and compare by address. Any thread.
///
///     object->performSelector("reload:"_sel, sender);
class TESSARIN_API Selector {
public:
    explicit Selector(std::string_view name);

    std::string const& name() const noexcept { return *name_; }
    friend bool operator==(Selector, Selector) noexcept = default;

private:
    friend struct std::hash<Selector>;
    std::string const* name_; // interned for the life of the process
};

inline namespace literals {
inline Selector operator""_sel(char const* text, std::size_t size) { return Selector{std::string_view{text, size}}; }
} // namespace literals

} // namespace Tessarin

template <> struct std::hash<Tessarin::Selector> {
    std::size_t operator()(Tessarin::Selector selector) const noexcept { return std::hash<void const*>{}(selector.name_); }
};
