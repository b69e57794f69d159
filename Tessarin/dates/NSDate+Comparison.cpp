#include "Tessarin/platform/foundation/time/NSCalendar.h"

namespace Tessarin {
namespace {

NSDate daysFromNow(std::int64_t days) {
    auto const now = NSDate::now();
    return NSCalendar::currentCalendar()->dateByAddingComponents({.day = days}, now).value_or(now);
}

} // namespace

bool NSDateComparison::isSameDayAs(NSDate const& other) const {
    constexpr auto day = NSCalendarUnit::Year | NSCalendarUnit::Month | NSCalendarUnit::Day;
    auto const& calendar = NSCalendar::currentCalendar();
    auto const mine = calendar->components(day, static_cast<NSDate const&>(*this)), theirs = calendar->components(day, other);
    return mine.day == theirs.day && mine.month == theirs.month && mine.year == theirs.year;
}

bool NSDateComparison::isToday() const { return isSameDayAs(NSDate::now()); }
bool NSDateComparison::isTomorrow() const { return isSameDayAs(daysFromNow(1)); }
bool NSDateComparison::isYesterday() const { return isSameDayAs(daysFromNow(-1)); }

} // namespace Tessarin
