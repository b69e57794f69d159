#pragma once
#include "Tessarin/descriptions/Describe.h"
#include "Tessarin/platform/runtime/Format.h"
#include <fmt/format.h>
#include <concepts>
#include <string_view>

namespace Tessarin {

/// What fmt, or the standard library through it, has a say in.
template <class T> consteval bool isForeign() {
    constexpr auto name = describing::spelledType<T>();
    return name.starts_with("std::") || name.starts_with("fmt::") || name == "tm";
}

/// Structures with fields, and enumerations that fmt does not take for numbers. Containers, pairs and optionals have formatters
/// of fmt's own.
template <class T>
concept FormattedByFields = !Described<T> && !describing::Streamable<T> && !reflection::Iterable<T> && !isForeign<T>() &&
                            (CustomReflectable<T> || (std::is_enum_v<T> && !std::is_convertible_v<T, long long>) ||
                             (reflection::Complete<T> && !reflection::TextLike<T> && reflection::NamedAggregate<T>));

} // namespace Tessarin

/// With this header, fmt formats what `describe` describes by its fields or by its case, with the width and fill of texts:
///
///     fmt::print("{} is at {:>30}\n", mode, Point{1, 2});
///
/// Beside it, what has a description is formatted by that (platform/runtime/Format.h). The program links fmt itself.
template <Tessarin::FormattedByFields T> struct fmt::formatter<T> : Tessarin::TextFormatter {
    template <class Context> auto format(T const& value, Context& context) const {
        return formatText(Tessarin::describe(value), context);
    }
};
