#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Tessarin {

struct TimeZoneClock {
    std::string abbreviation;
    std::int32_t offset = 0; // ahead of universal time; a rule's text counts the other way round
};

/// A zone as POSIX writes it, "CET-1CEST,M3.5.0,M10.5.0/3": the two offsets, and when the clocks change in every year.
struct TimeZoneRule {
    /// A moment of each year, on the clock that is valid before it.
    struct Moment {
        enum class Kind { Julian, Day, Weekday } kind = Kind::Weekday;
        int day = 0;   // Julian: 1 to 365, no leap days; Day: 0 to 365; Weekday: 0 to 6
        int week = 0;  // 1 to 5, which is the last
        int month = 0; // 1 to 12
        std::int32_t time = 7200;

        /// Wall time, seconds since 2001-01-01.
        std::int64_t inYear(std::int64_t year) const;
    };

    TimeZoneClock standard;
    std::optional<TimeZoneClock> daylight; // absent when the clocks never change
    Moment start, end;             // of daylight saving

    /// Absent for what is ill-formed. A daylight clock without moments changes as in the United States.
    static std::optional<TimeZoneRule> fromText(std::string_view text);
};

} // namespace Tessarin
