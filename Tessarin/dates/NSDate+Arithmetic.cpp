#include "Tessarin/dates/NSDate+Arithmetic.h"

#include "Tessarin/platform/foundation/time/NSCalendar.h"

namespace Tessarin {
namespace {

using enum NSCalendarUnit;
constexpr auto dayUnits = Year | Month | Day;
constexpr auto allUnits = dayUnits | Hour | Minute | Second;

NSDate const& whole(NSDateArithmetic const* date) { return *static_cast<NSDate const*>(date); }

/// By the calendar that took the date apart: the current one may be another by now.
NSDate rebuilt(NSCalendar const& calendar, NSDate const& date, NSDateComponents const& components) {
    return calendar.dateFromComponents(components, date).value_or(date);
}

} // namespace

NSDate NSDateArithmetic::dateByAdding(DateAmounts amounts) const {
    NSDateComponents const sum{.year = amounts.years,
                               .month = amounts.months,
                               .day = amounts.days,
                               .hour = amounts.hours,
                               .minute = amounts.minutes,
                               .second = amounts.seconds};
    return NSCalendar::currentCalendar()->dateByAddingComponents(sum, whole(this)).value_or(whole(this));
}

NSDate NSDateArithmetic::nextDay() const { return dateByAdding({.days = 1}); }
NSDate NSDateArithmetic::previousDay() const { return dateByAdding({.days = -1}); }

NSDate NSDateArithmetic::dateByChanging(DateParts parts) const {
    auto const& calendar = NSCalendar::currentCalendar();
    auto components = calendar->components(allUnits, whole(this));
    if (parts.second) components.second = parts.second;
    if (parts.minute) components.minute = parts.minute;
    if (parts.hour) components.hour = parts.hour;
    if (parts.day) components.day = parts.day;
    if (parts.month) components.month = parts.month;
    if (parts.year) components.year = parts.year;
    if (parts.month || parts.year) components.isLeapMonth.reset();
    if (!components.day) return whole(this); // a date out of reach has no parts
    bool const isMidnight = parts.second == 0 && parts.minute == 0 && parts.hour == 0; // a day has one, whoever asks
    return isMidnight ? calendar->dateFromComponents(components).value_or(whole(this))
                      : rebuilt(*calendar, whole(this), components);
}

NSDate NSDateArithmetic::midnight() const { return dateByChanging({.second = 0, .minute = 0, .hour = 0}); }
NSDate NSDateArithmetic::noon() const { return dateByChanging({.second = 0, .minute = 0, .hour = 12}); }
NSDate NSDateArithmetic::lastSecond() const {
    auto const& calendar = NSCalendar::currentCalendar();
    auto next = calendar->components(dayUnits, whole(this));
    if (!next.day) return whole(this);
    ++*next.day;
    auto const midnight = calendar->dateFromComponents(next);
    return midnight ? midnight->dateByAddingTimeInterval(-1) : whole(this);
}
NSDate NSDateArithmetic::dateOnly() const { return midnight(); }
NSDate NSDateArithmetic::timeOnly() const { return whole(this); }

NSDate NSDateArithmetic::dateBySettingDate(std::optional<NSDate> const& date) const {
    if (!date) return whole(this);
    auto const& calendar = NSCalendar::currentCalendar();
    auto components = calendar->components(allUnits, whole(this));
    auto const day = calendar->components(dayUnits, *date);
    if (!components.day || !day.day) return whole(this);
    components.era = day.era; // comes with the year where a calendar has several
    components.year = day.year;
    components.month = day.month;
    components.isLeapMonth = day.isLeapMonth;
    components.day = day.day;
    return rebuilt(*calendar, whole(this), components);
}

NSDate NSDateArithmetic::dateBySettingTime(std::optional<NSDate> const& time) const {
    if (!time) return whole(this);
    auto const& calendar = NSCalendar::currentCalendar();
    auto components = calendar->components(dayUnits, whole(this));
    auto const clock = calendar->components(Hour | Minute | Second, *time);
    if (!components.day || !clock.hour) return whole(this);
    components.hour = clock.hour;
    components.minute = clock.minute;
    components.second = clock.second;
    return rebuilt(*calendar, whole(this), components);
}

} // namespace Tessarin
