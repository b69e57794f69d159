#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/NSData.h"
#include "Tessarin/platform/foundation/NSDate.h"
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin {

class NSUserDefaults;

namespace detail {
template <class T, class... Others> concept OneOf = (std::same_as<T, Others> || ...);
}

/// What a setting may be.
template <class T>
concept DefaultsValue = detail::OneOf<T, std::string, std::int64_t, float, double, bool, std::vector<std::string>, NSData, NSDate>;

/// What reading it gives: zero or empty when nothing is stored; data and dates are absent then, and when something else is stored.
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
