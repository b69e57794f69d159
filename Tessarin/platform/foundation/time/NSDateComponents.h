#pragma once
#include <cstdint>
#include <optional>

namespace Tessarin {

/// Parts of a date, combined by `|`. The values are those of files and other languages that name them by number.
enum class NSCalendarUnit : unsigned {
    Era = 2,
    Year = 4,
    Month = 8,
    Day = 16,
    Hour = 32,
    Minute = 64,
    Second = 128,
    Weekday = 512,
};
constexpr NSCalendarUnit operator|(NSCalendarUnit a, NSCalendarUnit b) {
    return static_cast<NSCalendarUnit>(static_cast<unsigned>(a) | static_cast<unsigned>(b));
}
constexpr bool has(NSCalendarUnit all, NSCalendarUnit one) {
    return (static_cast<unsigned>(all) & static_cast<unsigned>(one)) != 0;
}

/// A date taken apart, or an amount to add to one: what is absent was not asked for, or is not to be added.
///
///     calendar->dateByAddingComponents({.month = 1, .day = -1}, date)
struct NSDateComponents {
    std::optional<std::int64_t> era = {};     // in calendars that have several; counted by ICU
    std::optional<std::int64_t> year = {};    // of the Gregorian calendar: 0 is 1 BC
    std::optional<std::int64_t> month = {};   // from 1
    std::optional<std::int64_t> day = {};     // from 1
    std::optional<std::int64_t> hour = {};    // 0 to 23
    std::optional<std::int64_t> minute = {};
    std::optional<std::int64_t> second = {};
    std::optional<std::int64_t> weekday = {}; // 1 is Sunday; never looked at when a date is made
    std::optional<bool> isLeapMonth = {};     // said with the month where two of a year have its number: Chinese, Korean

    friend bool operator==(NSDateComponents const&, NSDateComponents const&) = default;
};

} // namespace Tessarin
