#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/descriptions/TypeNames.h"
#include "Tessarin/keyaccess/Reflection.h"
#include "Tessarin/platform/runtime/Enumeration.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/runtime/NumberText.h"
#include <concepts>
#include <ostream>
#include <string>
#include <tuple>

namespace Tessarin {

namespace descriptions {

template <class T> std::string described(T const& value);

/// What `write` writes.
TESSARIN_API std::string streamedText(FunctionRef<void(std::ostream&)> write);

template <class T>
concept Described = requires(T const& value) {
    { value.description() } -> std::convertible_to<std::string>;
};
template <class T>
concept Streamed = requires(std::ostream& out, T const& value) { out << value; };
template <class T>
concept Named = requires(T const& value) {
    { value.name() } -> std::convertible_to<std::string>;
};
template <class T>
concept Tuple = requires { std::tuple_size<T>::value; } && !std::ranges::range<T const>;
template <class T>
concept Map = reflection::Iterable<T> && requires { typename T::mapped_type; };

/// Inside of something else a text stands in quotes, so that one can see where it ends.
template <class T> std::string nested(T const& value) {
    if constexpr (reflection::TextLike<T>)
        return '"' + descriptions::described(value) + '"';
    else
        return descriptions::described(value);
}

/// "[1, 2]", "["a": 1]", and "[:]" for a map without entries.
template <class T> std::string textOfRange(T const& range) {
    std::string text;
    for (auto const& element : range) {
        text += text.empty() ? "" : ", ";
        if constexpr (Map<T>)
            text += nested(element.first) + ": " + nested(element.second);
        else
            text += nested<std::ranges::range_value_t<T const>>(element);
    }
    return text.empty() && Map<T> ? "[:]" : '[' + text + ']';
}

/// "Point(x: 1, y: 2)".
template <class T> std::string textOfFields(T const& value) {
    std::string text;
    forEachChild(value, [&](std::optional<std::string_view> label, auto const& child) {
        text += text.empty() ? "" : ", ";
        if (label) text += std::string{*label} + ": ";
        text += nested(child);
    });
    return std::string{typeName<T>} + '(' + text + ')';
}

template <class T> std::string textOfNumber(T value) {
    if constexpr (std::same_as<T, bool>)
        return value ? "true" : "false";
    else if constexpr (std::same_as<T, char>)
        return std::string(1, value);
    else if constexpr (std::same_as<T, double> || std::same_as<T, float>)
        return shortestText(value);
    else
        return std::to_string(value);
}

template <class T> std::string described(T const& value) {
    if constexpr (Described<T>) {
        return value.description();
    } else if constexpr (std::is_arithmetic_v<T>) {
        return textOfNumber(value);
    } else if constexpr (reflection::TextLike<T>) {
        return std::string{reflection::textLikeView(value).value_or("nil")};
    } else if constexpr (std::is_enum_v<T>) {
        auto const name = nameOfEnumerator(value);
        auto const number = static_cast<std::underlying_type_t<T>>(value);
        return name.empty() ? std::string{typeName<T>} + '(' + std::to_string(number) + ')' : std::string{name};
    } else if constexpr (std::derived_from<T, Enumeration<T>>) {
        if constexpr (Named<T>)
            return value.name();
        else
            return std::string{typeName<T>} + '(' + std::to_string(value.rawValue()) + ')';
    } else if constexpr (reflection::Holding<T> && !std::is_pointer_v<T>) { // what a plain pointer leads to may lead back
        return value ? descriptions::described(*value) : "nil";
    } else if constexpr (std::constructible_from<Value, T const&>) {
        return Value(value).description();
    } else if constexpr (Streamed<T>) {
        return streamedText([&](std::ostream& out) { out << value; });
    } else if constexpr (reflection::Iterable<T>) {
        return textOfRange(value);
    } else if constexpr (Tuple<T>) {
        std::string text;
        std::apply([&](auto const&... each) { ((text += (text.empty() ? "" : ", ") + nested(each)), ...); }, value);
        return '(' + text + ')';
    } else if constexpr (Reflectable<T>) {
        return textOfFields(value);
    } else {
        return std::string{typeName<T>};
    }
}

} // namespace descriptions

/// The text of any value, as people read it: its own description; numbers, 3.0 for a real one; texts as they are; the name of an
/// enumerator or a month; "nil" or what is held; what it writes to a stream; "[1, 2]", "["a": 1]", "(1, 2)", "Point(x: 1, y: 2)";
/// and else the name of its type.
template <class T> std::string textOfValue(T const& value) { return descriptions::described(value); }

} // namespace Tessarin
