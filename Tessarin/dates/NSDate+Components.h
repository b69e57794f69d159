#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/dates/DateDayOfWeek.h"
#include "Tessarin/dates/DateMonth.h"
#include "Tessarin/dates/DateSymbolLength.h"
#include <cstdint>
#include <string>

namespace Tessarin {

class NSDate;

/// The parts of a date in the user's calendar and time zone. Dates some millions of years away have none: these are 0 there,
/// and the first of their kind.
///
///     if (date.month() == DateMonth::December && date.day() > 20) wish(date.dayOfWeekString());
class TESSARIN_API NSDateComponentsAccess {
    friend class NSDate; // only NSDate can carry this room
    constexpr NSDateComponentsAccess() noexcept = default;

public:
    /// Of the Gregorian calendar, 0 is 1 BC.
    std::int64_t year() const;
    /// January where the calendar gives a number beyond 12, as that of the Hebrew year does.
    DateMonth month() const;
    std::int64_t day() const;
    std::int64_t hour() const;
    std::int64_t minute() const;
    std::int64_t second() const;
    DateDayOfWeek dayOfWeek() const;
    /// In the user's language: "Sunday", "Sun", "S".
    std::string dayOfWeekString(DateSymbolLength length = DateSymbolLength::Normal) const;

protected:
    ~NSDateComponentsAccess() = default;
};

} // namespace Tessarin
