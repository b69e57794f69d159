#pragma once
#include "Tessarin/platform/runtime/Enumeration.h"
#include "Tessarin/platform/runtime/TypeNames.h"
#include "Tessarin/platform/runtime/TypeShapes.h"
#include "Tessarin/platform/runtime/Value.h"
#include <concepts>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <variant>

// Which way a type is described: one answer for the description in a line and the one in depth.
namespace Tessarin::describing {

template <class T>
concept OwnDescription = requires(T const& value) {
    { value.description() } -> std::convertible_to<std::string>;
};
template <class T> concept Streamable = requires(std::ostream& out, T const& value) { out << value; };
/// `std::string_view caseName(Mode mode)` beside an enumeration; empty for a value that has no name.
template <class T>
concept NamesItsCases = requires(T value) {
    { caseName(value) } -> std::convertible_to<std::string_view>;
};
template <class T>
concept MapLike = reflection::Iterable<T> && requires(std::ranges::range_reference_t<T const> entry) {
    typename T::mapped_type;
    entry.first;
    entry.second;
};
template <class T> concept SetLike = reflection::Iterable<T> && !MapLike<T> && requires { typename T::key_type; };
/// Ranges whose elements are such ranges again, without end, have none that could be shown.
template <class T> concept ListLike = reflection::Iterable<T> && !std::same_as<std::ranges::range_value_t<T const>, T>;
template <class T>
concept Bytes = std::ranges::contiguous_range<T const> && std::ranges::sized_range<T const> &&
                std::same_as<std::remove_cv_t<std::ranges::range_value_t<T const>>, std::byte>;

template <class T>
inline constexpr bool isWideCharacter =
    std::same_as<T, wchar_t> || std::same_as<T, char8_t> || std::same_as<T, char16_t> || std::same_as<T, char32_t>;
/// The text of something wide; of a null pointer the one without characters at null.
template <class C> std::basic_string_view<C> wideView(std::basic_string_view<C> text) { return text; }
template <class C> std::basic_string_view<C> wideView(std::basic_string<C> const& text) { return text; }
template <class C>
    requires isWideCharacter<C>
std::basic_string_view<C> wideView(C const* text) {
    return text ? std::basic_string_view<C>{text} : std::basic_string_view<C>{};
}
template <class T>
concept WideText = requires(T const& text) {
    wideView(text);
    requires isWideCharacter<typename decltype(wideView(text))::value_type>;
};
template <class T> inline constexpr bool isVariant = false;
template <class... T> inline constexpr bool isVariant<std::variant<T...>> = true;

/// The name of an enumeration's case as it says itself, else as the compiler spells it; empty for a value without a name.
template <class T> auto nameOfCase(T value) {
    if constexpr (NamesItsCases<T>)
        return caseName(value);
    else if constexpr (std::is_enum_v<T>)
        return nameOfEnumerator(value);
    else if constexpr (requires { std::string{value.name()}; })
        return std::string{value.name()};
    else
        return std::string_view{};
}

enum class Shape : unsigned char {
    Nothing,
    Number, // and single characters
    Text,
    WideText,
    Value,
    Described,
    Case,
    Address,
    Optional,
    Weak,
    Pointer,
    Variant,
    Bytes,
    Failure,
    Path,
    Streamed,
    Range,
    Tuple,
    Fields // or nothing that can be seen
};

template <class T> consteval Shape shapeOfComplete() {
    if (std::same_as<T, std::nullptr_t> || std::same_as<T, std::nullopt_t> || std::same_as<T, std::monostate>)
        return Shape::Nothing;
    if (std::is_arithmetic_v<T>) return Shape::Number;
    if (reflection::TextLike<T>) return Shape::Text;
    if (WideText<T>) return Shape::WideText;
    if (std::same_as<T, Value> || std::same_as<T, Dictionary>) return Shape::Value;
    if (OwnDescription<T>) return Shape::Described;
    if (std::is_enum_v<T> || std::derived_from<T, Enumeration<T>>) return Shape::Case;
    if (std::is_pointer_v<T>) return Shape::Address; // what a plain pointer leads to may be gone
    if (requires(T const& value) { value.lock(), value.expired(); }) return Shape::Weak;
    if (isVariant<T>) return Shape::Variant;
    if (Bytes<T>) return Shape::Bytes;
    if (!reflection::Iterable<T> && std::constructible_from<Value, T const&>) return Shape::Value;
    if (requires(T const& value) { std::string_view{value.what()}; }) return Shape::Failure;
    if (requires(T const& value) { std::string_view{value.native()}; }) return Shape::Path;
    if (Streamable<T>) return Shape::Streamed;
    if (ListLike<T>) return Shape::Range;
    if (requires { std::tuple_size<T>::value; }) return Shape::Tuple;
    return Shape::Fields;
}

template <class T, bool fieldsComeFirst> consteval Shape shapeOf() {
    if constexpr (fieldsComeFirst || !requires { sizeof(T); })
        return Shape::Fields;
    else if constexpr (reflection::Holding<T> && !OwnDescription<T> && !std::is_pointer_v<T>)
        return requires(T const& value) { value.has_value(); } ? Shape::Optional : Shape::Pointer;
    else
        return shapeOfComplete<T>();
}

} // namespace Tessarin::describing
