#include "Tessarin/dates/NSDate+Components.h"

#include "Tessarin/dates/SymbolLookupPrivate.h"
#include "Tessarin/platform/foundation/time/NSCalendar.h"

namespace Tessarin {
namespace {

NSDateComponents parts(NSDateComponentsAccess const* date, NSCalendarUnit unit) {
    return NSCalendar::currentCalendar()->components(unit, *static_cast<NSDate const*>(date));
}

} // namespace

std::int64_t NSDateComponentsAccess::year() const { return parts(this, NSCalendarUnit::Year).year.value_or(0); }
DateMonth NSDateComponentsAccess::month() const {
    return DateMonth::fromRawValue(parts(this, NSCalendarUnit::Month).month.value_or(0)).value_or(DateMonth::January);
}
std::int64_t NSDateComponentsAccess::day() const { return parts(this, NSCalendarUnit::Day).day.value_or(0); }
std::int64_t NSDateComponentsAccess::hour() const { return parts(this, NSCalendarUnit::Hour).hour.value_or(0); }
std::int64_t NSDateComponentsAccess::minute() const { return parts(this, NSCalendarUnit::Minute).minute.value_or(0); }
std::int64_t NSDateComponentsAccess::second() const { return parts(this, NSCalendarUnit::Second).second.value_or(0); }
DateDayOfWeek NSDateComponentsAccess::dayOfWeek() const {
    return DateDayOfWeek::fromRawValue(parts(this, NSCalendarUnit::Weekday).weekday.value_or(0) - 1)
        .value_or(DateDayOfWeek::Sunday);
}

std::string NSDateComponentsAccess::dayOfWeekString(DateSymbolLength length) const {
    auto const formatter = make<NSDateFormatter>();
    auto const at = dayOfWeek().rawValue();
    if (length == DateSymbolLength::VeryShort) return symbolAt(formatter->veryShortWeekdaySymbols(), at);
    return symbolAt(length == DateSymbolLength::Short ? formatter->shortWeekdaySymbols() : formatter->weekdaySymbols(), at);
}

} // namespace Tessarin
