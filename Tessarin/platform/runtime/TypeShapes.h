#pragma once
#include "Tessarin/platform/runtime/Text.h"
#include <concepts>
#include <cstring>
#include <optional>
#include <span> // with the concepts of ranges, without the views
#include <string>
#include <string_view>

// What kinds of types there are for those who look into values of any type: key access and descriptions.
namespace Tessarin::reflection {

template <class T> inline constexpr bool isCharacters = false;
template <std::size_t size> inline constexpr bool isCharacters<char[size]> = true;
template <class T>
concept TextLike = std::same_as<T, std::string> || std::same_as<T, std::string_view> || std::same_as<T, Text> ||
                   std::same_as<T, char const*> || std::same_as<T, char*> || isCharacters<T>;

/// The text of something text-like; absent for a null pointer. An array need not end in a zero.
template <TextLike T> std::optional<std::string_view> textLikeView(T const& text) {
    if constexpr (std::is_array_v<T>)
        return std::string_view{text, ::strnlen(text, sizeof text)};
    else if constexpr (std::is_pointer_v<T>)
        return text ? std::optional<std::string_view>(text) : std::nullopt;
    else
        return std::string_view{text};
}

/// Optionals and pointers of every kind: they stand for what they hold.
template <class T>
concept Holding =
    !TextLike<T> && ((std::is_pointer_v<T> && std::is_object_v<std::remove_pointer_t<T>>) || requires(T const& value) {
        static_cast<bool>(value);
        *value;
        value.operator->();
    });
template <class T> concept Iterable = !TextLike<T> && std::ranges::input_range<T const>;

} // namespace Tessarin::reflection
