#pragma once
#include "Tessarin/keyaccess/Reflection.h"
#include <any>
#include <memory>

namespace Tessarin {

namespace reflection {

template <class T> inline constexpr bool isOptional = false;
template <class T> inline constexpr bool isOptional<std::optional<T>> = true;
template <class T> inline constexpr bool isRef = false;
template <class T> inline constexpr bool isRef<Ref<T>> = true;

/// What `Value::as` can read.
template <class T>
concept ReadFromValue = std::is_arithmetic_v<T> || std::same_as<T, std::string> || std::same_as<T, Text> ||
                        std::same_as<T, Decimal> || std::same_as<T, List> || std::same_as<T, Dictionary> || ValueConvertible<T> ||
                        (isRef<T> && requires(Value const& value) { value.objectAs<typename T::element_type>(); });

template <class To, class From> Ref<To> castRef(Ref<From> const& object) {
    if constexpr (std::is_convertible_v<From*, To*>)
        return object;
    else if constexpr (std::is_polymorphic_v<From> && std::is_polymorphic_v<To>)
        return std::dynamic_pointer_cast<To>(object);
    else
        return nullptr;
}

/// Null and the absent Value are nothing that could be had.
template <class T> std::optional<T> unlessAbsent(T value) {
    if constexpr (std::same_as<T, Value>) {
        if (value.isAbsent()) return {};
    } else if constexpr (isRef<T> || std::is_pointer_v<T>) {
        if (!value) return {};
    }
    return std::optional<T>(std::move(value));
}

} // namespace reflection

/// Any value as a T, absent when it is none: the same type, with these steps between types.
/// - The inside of an optional is had as itself; asking for an optional is answered by an empty one when nothing is inside.
/// - Texts of all kinds are had as std::string and Text. A null reference or pointer is nothing.
/// - A reference is had as one to a base, or to the class that the object has.
/// - Out of a Value comes what `Value::as` reads: a double from any number object, an integer never from a double and only where
///   it fits. A T that a Value can hold is had as Value. What a std::any holds is had as itself.
/// Numbers of different types are otherwise different: an int is no double and no long.
template <class T, class From> std::optional<T> convertedTo(From const& value) {
    if constexpr (std::same_as<T, From>) {
        return reflection::unlessAbsent<T>(value);
    } else if constexpr (reflection::isOptional<T>) {
        if constexpr (reflection::isOptional<From>)
            if (!value) return std::optional<T>(std::in_place);
        auto inside = convertedTo<typename T::value_type>(value);
        return inside ? std::optional<T>(std::in_place, std::move(inside)) : std::nullopt;
    } else if constexpr (reflection::isOptional<From>) {
        return value ? convertedTo<T>(*value) : std::nullopt;
    } else if constexpr (std::same_as<From, std::any>) {
        auto const* const inside = std::any_cast<T>(&value);
        return inside ? convertedTo<T>(*inside) : std::nullopt;
    } else if constexpr (std::same_as<From, Value>) {
        if constexpr (reflection::ReadFromValue<T>) return value.template as<T>();
        return {};
    } else if constexpr (reflection::TextLike<From>) {
        auto const text = reflection::textLikeView(value);
        if constexpr (std::same_as<T, std::string> || std::same_as<T, Text> || std::same_as<T, Value>)
            return text ? std::optional<T>(std::in_place, *text) : std::nullopt;
        return {};
    } else if constexpr (std::same_as<T, Value>) {
        if constexpr (std::constructible_from<Value, From const&>) return reflection::unlessAbsent(Value(value));
        return {};
    } else if constexpr (reflection::isRef<T> && reflection::isRef<From>) {
        return reflection::unlessAbsent(reflection::castRef<typename T::element_type>(value));
    } else {
        return {};
    }
}

namespace reflection {

/// Into a result that is absent so far: what is copied as it is, is copied once (benchmark "keyaccess").
template <class T, class From> void convertInto(std::optional<T>& result, From const& value) {
    if constexpr (std::same_as<T, From> && (std::is_arithmetic_v<T> || TextLike<T>)&&!std::is_pointer_v<T>)
        result.emplace(value);
    else
        result = convertedTo<T>(value);
}

} // namespace reflection

} // namespace Tessarin
