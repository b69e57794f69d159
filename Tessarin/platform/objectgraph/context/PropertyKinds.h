#pragma once
// Which values a property may be compared with, by its type.
#include "Tessarin/platform/objectgraph/context/PropertyQuestions.h"
#include "Tessarin/platform/runtime/Decimal.h"
#include "Tessarin/platform/runtime/Value.h"
#include <concepts>
#include <optional>
#include <string_view>
#include <type_traits>

namespace Tessarin {

class NSDate;

namespace query {

enum class Kind { None, Nil, Text, Truth, Number, Date, Object, Other, Anything };

template <class V> struct Plain {
    using Type = V;
};
template <class V> struct Plain<std::optional<V>> {
    using Type = V;
};
/// The type itself, without reference, const and optional.
template <class V> using PlainType = typename Plain<std::remove_cvref_t<V>>::Type;

template <class V> struct Pointee {
    using Type = void;
};
template <class V> struct Pointee<Ref<V>> {
    using Type = std::remove_const_t<V>;
};

template <class V> inline constexpr bool isCharacter = false;
template <> inline constexpr bool isCharacter<char> = true;
template <> inline constexpr bool isCharacter<wchar_t> = true;
template <> inline constexpr bool isCharacter<char8_t> = true;
template <> inline constexpr bool isCharacter<char16_t> = true;
template <> inline constexpr bool isCharacter<char32_t> = true;

template <class V> consteval Kind kindOfPlain() {
    if constexpr (std::same_as<V, std::nullptr_t> || std::same_as<V, std::nullopt_t>)
        return Kind::Nil;
    else if constexpr (std::same_as<V, Value>)
        return Kind::Anything;
    else if constexpr (std::convertible_to<V const&, std::string_view> || detail::TextByTraits<V>)
        return Kind::Text;
    else if constexpr (std::same_as<V, bool>)
        return Kind::Truth;
    else if constexpr ((std::is_arithmetic_v<V> && !isCharacter<V>) || std::same_as<V, Decimal>)
        return Kind::Number;
    else if constexpr (std::same_as<V, NSDate>)
        return Kind::Date;
    else if constexpr (!std::is_void_v<typename Pointee<V>::Type>)
        return Kind::Object;
    else if constexpr (ValueConvertible<V>)
        return Kind::Other;
    else
        return Kind::None;
}
template <class V> inline constexpr Kind kindOf = kindOfPlain<PlainType<V>>();

/// Whether one of the two is the other or derived from it; void is whatever it need be. Asks for complete classes only where
/// they differ.
template <class A, class B> consteval bool areRelated() {
    if constexpr (std::is_void_v<A> || std::is_void_v<B> || std::is_same_v<A, B>)
        return true;
    else
        return std::is_base_of_v<A, B> || std::is_base_of_v<B, A>;
}
/// Whether a U is a T.
template <class T, class U> consteval bool isA() {
    if constexpr (std::is_same_v<T, U>)
        return true;
    else
        return std::is_base_of_v<T, U>;
}
/// Of two related classes the one further down, of which both conditions can be asked.
template <class A, class B> consteval auto lowerOf() {
    if constexpr (std::is_void_v<A> || std::is_same_v<A, B>)
        return std::type_identity<B>();
    else if constexpr (std::is_void_v<B> || std::is_base_of_v<B, A>)
        return std::type_identity<A>();
    else
        return std::type_identity<B>();
}
template <class A, class B> using LowerOf = typename decltype(lowerOf<A, B>())::type;

template <class A, class B> consteval bool objectsFit() {
    using First = typename Pointee<PlainType<A>>::Type;
    using Second = typename Pointee<PlainType<B>>::Type;
    return areRelated<First, Second>();
}

/// Whether the two may be equal.
template <class A, class B> consteval bool mayEqual() {
    if constexpr (kindOf<A> == Kind::Anything || kindOf<B> == Kind::Anything || kindOf<B> == Kind::Nil)
        return true;
    else if constexpr (kindOf<A> != kindOf<B>)
        return false;
    else if constexpr (kindOf<A> == Kind::Object)
        return objectsFit<A, B>();
    else if constexpr (kindOf<A> == Kind::Other)
        return std::is_same_v<PlainType<A>, PlainType<B>>;
    else
        return kindOf<A> != Kind::None;
}
/// Whether one of the two may be less than the other.
template <class A, class B> consteval bool mayBeOrdered() {
    constexpr bool isOrdered =
        kindOf<A> == Kind::Text || kindOf<A> == Kind::Number || kindOf<A> == Kind::Date || kindOf<A> == Kind::Anything;
    return isOrdered && kindOf<B> != Kind::Nil && mayEqual<A, B>();
}

} // namespace query
} // namespace Tessarin
