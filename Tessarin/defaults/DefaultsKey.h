#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/time/NSDate.h"
#include "Tessarin/platform/foundation/values/NSData.h"
#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace Tessarin {

class NSUserDefaults;

namespace detail {
template <class T, class... Others> concept OneOf = (std::same_as<T, Others> || ...);
/// Every value is a 64-bit signed one, too.
template <class T> concept Counted = std::integral<T> && !std::same_as<T, bool> && (sizeof(T) < 8 || std::is_signed_v<T>);

template <class T> struct NumberOf {
    using type = T;
};
template <class T>
    requires std::is_enum_v<T>
struct NumberOf<T> {
    using type = std::underlying_type_t<T>;
};
}

/// What is stored as an integer: one of any width that fits 64 bits with a sign, or an enumeration by its numbers.
template <class T> concept DefaultsInteger = detail::Counted<typename detail::NumberOf<T>::type>;
/// What a setting may be.
template <class T>
concept DefaultsValue =
    DefaultsInteger<T> || detail::OneOf<T, std::string, float, double, bool, std::vector<std::string>, NSData, NSDate>;

/// What reading it gives: zero or empty when nothing is stored; data and dates are absent then, and when something else is
/// stored. An integer that is too large for its type reads as the largest, one that is too small as the smallest.
template <DefaultsValue T> using DefaultsReading = std::conditional_t<detail::OneOf<T, NSData, NSDate>, std::optional<T>, T>;

/// The name of a setting together with its type, to be declared once, as a constant.
///
///     static DefaultsKey<std::int64_t> const volume("volume");
///     auto const isLoud = NSUserDefaults::get(volume) > 11;
template <DefaultsValue T> struct DefaultsKey {
    explicit DefaultsKey(std::string_view name) : key(name) {}

    std::string const key;
};

} // namespace Tessarin
