#pragma once
#include "Tessarin/keyaccess/Reflection.h"
#include "Tessarin/platform/foundation/values/Describing.h"
#include <concepts>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace Tessarin {

/// The base of types that describe themselves by their fields: see DefaultReflectable.h.
template <class Self, class Base = void> struct DefaultReflectable;

namespace descriptions {

/// A type that derives from `DefaultReflectable<itself>` and has no description of its own beside it.
template <class T>
concept DescribedByFields = reflection::Complete<T> && requires {
    requires std::derived_from<T, DefaultReflectable<T>>;
    requires std::same_as<decltype(&T::description), std::string (DefaultReflectable<T>::*)() const>;
};

struct Fields {
    /// What tells its children itself is described by them, unless it says how it reads as a whole.
    template <class T>
    static constexpr bool comesFirst =
        DescribedByFields<T> || (CustomReflectable<T> && !describing::OwnDescription<T> && !describing::Streamable<T>);
    template <class T> static void describe(DescriptionLine& line, T const& value);
};

/// "Point(x: 1, y: 2)".
template <class T> void appendFields(DescriptionLine& line, T const& value) {
    if (!line.isOpen()) return line.appendMention(describing::typeName<T>);
    line.append(describing::typeName<T>);
    line.append('(');
    DescriptionLine::Inside const inside(line);
    std::string_view separator;
    forEachChild(value, [&](std::optional<std::string_view> label, auto const& child) {
        line.append(separator);
        separator = ", ";
        if (label) {
            line.append(*label);
            line.append(": ");
        }
        describing::describeInto<Fields>(line, child);
    });
    line.append(')');
}

template <class T> void Fields::describe(DescriptionLine& line, T const& value) {
    if constexpr (CustomReflectable<T> || (Reflectable<T> && !reflection::Iterable<T>))
        appendFields(line, value);
    else
        line.append(describing::typeName<T>);
}

template <class T> std::string describedByFields(T const& value) {
    DescriptionLine line;
    DescriptionLine::Pointee const whole(line, std::addressof(value));
    line.reserve(120);
    appendFields(line, value);
    return line.take();
}

} // namespace descriptions

/// Any value in one line, for people who debug. A text stands as it is; everything inside of something else keeps to the line,
/// texts in quotation marks. Any thread, as far as `value` may be read there.
/// - Numbers: 1, 3.0, 0.1, true. Bytes: data(3 bytes). Nothing, in a pointer, an optional, a variant: nil.
/// - Containers [1, 2], sets {1, 2}, maps {"a": 1}, pairs and tuples (1, true).
/// - Optionals, variants, smart pointers and weak ones by what they hold or lead to; plain pointers by their address.
/// - Enumerations by `caseName(value)` beside them, else by the name of the enumerator from -16 to 128, else Mode(200).
/// - What has a description or writes itself to a stream: by that.
/// - What has fields for key access: Point(x: 1, y: 2). Any other type by its name.
/// "(…)" stands for what a pointer leads back to, for what lies more than 64 levels deep, and for what pointers lead to from
/// behind other pointers once the line is longer than 16 KiB.
template <class T> std::string describe(T const& value) {
    DescriptionLine line;
    DescriptionLine::Pointee const whole(line, std::addressof(value));
    if constexpr (std::is_class_v<T>) line.reserve(120);
    describing::describeInto<descriptions::Fields>(line, value);
    return line.take();
}

} // namespace Tessarin
