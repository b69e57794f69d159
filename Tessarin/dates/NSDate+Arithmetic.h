#pragma once
#include "Tessarin/Export.h"
#include <cstdint>
#include <optional>

namespace Tessarin {

class NSDate;

/// What to add to a date, of either sign.
struct DateAmounts {
    std::optional<std::int64_t> seconds = {}, minutes = {}, hours = {}, days = {}, months = {}, years = {};
};

/// Which parts of a date to replace. What lies outside its range carries over: day 0 is the last of the month before.
struct DateParts {
    std::optional<std::int64_t> second = {}, minute = {}, hour = {}, day = {}, month = {}, year = {};
};

/// Arithmetic in the user's calendar and time zone. Days keep the time on the clock at the wall also where the clocks change; a
/// time that they skip moves forward by what they skip; of one that occurs twice, it is the one with the receiver's distance from
/// universal time; the 31st of a month that has none is its last day. What the calendar cannot reach leaves the date as it is.
/// A day has one midnight and one last second, whoever asks for them.
///
///     auto const due = date.dateByAdding({.days = 14}).lastSecond();
class TESSARIN_API NSDateArithmetic {
    friend class NSDate; // only NSDate can carry this room
    constexpr NSDateArithmetic() noexcept = default;

public:
    /// Years, then months, then days, then time that passes. Fractions of a second stay.
    NSDate dateByAdding(DateAmounts amounts) const;
    NSDate nextDay() const;
    /// Where a whole day is missing, the one before the gap.
    NSDate previousDay() const;

    /// All that make a date anew drop the fraction of a second, even when nothing else changes. To 00:00:00: the first that day.
    NSDate dateByChanging(DateParts parts) const;
    /// 00:00:00, or the first moment of a day that has none; the first one of a day that has two.
    NSDate midnight() const;
    NSDate noon() const;
    /// The second before the next day's midnight: 23:59:59, the later one where the last hour occurs twice.
    NSDate lastSecond() const;
    /// The same as `midnight`.
    NSDate dateOnly() const;
    /// The date itself: nothing is taken off.
    NSDate timeOnly() const;
    /// The day of `date` at this time of the day; this date when `date` is absent.
    NSDate dateBySettingDate(std::optional<NSDate> const& date) const;
    /// This day at the time of the day of `time`; this date when `time` is absent.
    NSDate dateBySettingTime(std::optional<NSDate> const& time) const;

protected:
    ~NSDateArithmetic() = default;
};

} // namespace Tessarin
