#pragma once
// Formatting with {fmt}: fmt::format("{} saved {:>20}", document, url). Declares nothing where {fmt} is not installed; a
// program that uses it includes this beside Tessarin.h, which leaves it out, and links {fmt} itself.
#if __has_include(<fmt/format.h>)
#include "Tessarin/platform/runtime/NSObject.h"
#include "Tessarin/platform/runtime/Text.h"
#include <fmt/format.h>
#include <concepts>
#include <string>
#include <string_view>

namespace Tessarin {

template <class T>
concept Described = requires(T const& thing) {
    { thing.description() } -> std::same_as<std::string>;
};

/// Formats what is written as a text with the width and fill of texts; inside of containers without quotation marks.
class TextFormatter {
public:
    constexpr auto parse(fmt::format_parse_context& context) { return formatter_.parse(context); }

protected:
    template <class Context> auto formatText(std::string_view text, Context& context) const {
        return formatter_.format(text, context);
    }

private:
    fmt::formatter<std::string_view> formatter_;
};

} // namespace Tessarin

/// What has a description is formatted by it, with the width and fill of texts.
template <Tessarin::Described T> struct fmt::formatter<T> : Tessarin::TextFormatter {
    template <class Context> auto format(T const& thing, Context& context) const {
        return formatText(thing.description(), context);
    }
};

/// A reference to a described thing is formatted as the thing; null as "nil".
template <Tessarin::Described T> struct fmt::formatter<std::shared_ptr<T>> : Tessarin::TextFormatter {
    template <class Context> auto format(std::shared_ptr<T> const& thing, Context& context) const {
        return formatText(thing ? thing->description() : "nil", context);
    }
};

template <> struct fmt::formatter<Tessarin::Text> : fmt::formatter<std::string_view> {
    template <class Context> auto format(Tessarin::Text const& text, Context& context) const {
        return fmt::formatter<std::string_view>::format(text.view(), context);
    }
};
#endif
