#include "Tessarin/platform/foundation/time/NSCalendar.h"

#include "Tessarin/platform/foundation/time/CivilDate.h"
#include "Tessarin/platform/foundation/time/OtherCalendarPrivate.h"
#include "Tessarin/platform/foundation/time/TimeZoneTablePrivate.h"
#include "Tessarin/platform/foundation/time/UserEnvironmentPrivate.h"

#include <algorithm>

namespace Tessarin {
namespace {

[[maybe_unused]] auto const& registered = registerClass<NSCalendar>();

constexpr std::int64_t dayLength = 86'400;
constexpr std::int64_t farthest = 183'882'168'000'000; // seconds, as far as ICU's calendars reach
constexpr std::int64_t most = 2 * farthest;            // of any component: twice a day's seconds of it still fit

bool isWithin(std::int64_t value, std::int64_t bound) { return value > -bound && value < bound; }

/// The whole second that a date lies in.
std::optional<std::int64_t> instantOf(NSDate const& date) {
    auto const seconds = date.timeIntervalSinceReferenceDate();
    if (!(seconds > -farthest && seconds < farthest)) return {};
    auto const truncated = static_cast<std::int64_t>(seconds);
    return truncated - (static_cast<double>(truncated) > seconds);
}

struct WallTime {
    std::int64_t day;    // since 2001-01-01
    std::int64_t second; // of the day
};
WallTime split(std::int64_t wall) {
    auto const day = wall / dayLength - (wall % dayLength < 0);
    return {day, wall - day * dayLength};
}

/// Hours, minutes and seconds together; absent when one is absurd.
std::optional<std::int64_t> secondsOf(NSDateComponents const& components) {
    auto const hour = components.hour.value_or(0), minute = components.minute.value_or(0), second = components.second.value_or(0);
    if (!isWithin(hour, farthest / 3600) || !isWithin(minute, farthest / 60) || !isWithin(second, most)) return {};
    return hour * 3600 + minute * 60 + second;
}

std::int64_t gregorianDay(std::int64_t year, int month, int day) {
    return daysFromCivil({year, month, std::min(day, daysInMonth(year, month))});
}

} // namespace

Ref<NSCalendar> const& NSCalendar::currentCalendar() { return UserEnvironment::current().calendar; }

Ref<NSCalendar> NSCalendar::calendarWithIdentifier(std::string_view identifier, Ref<NSTimeZone> zone) {
    std::string const text{identifier};
    return zone && (text == "gregorian" || OtherCalendar::isKnown(text)) ? make<NSCalendar>(text, std::move(zone)) : nullptr;
}

void NSCalendar::init(std::string identifier, Ref<NSTimeZone> zone) {
    NSObject::init();
    identifier_ = std::move(identifier);
    zone_ = std::move(zone);
    clocks_ = &zone_->table();
    isGregorian_ = identifier_ == "gregorian";
}

NSDateComponents NSCalendar::components(NSCalendarUnit units, NSDate const& date) const {
    using enum NSCalendarUnit;
    NSDateComponents result;
    auto const instant = instantOf(date);
    if (!instant) return result;
    auto const [day, second] = split(*instant + clocks_->periodAt(*instant).offset);
    if (has(units, Hour | Minute | Second)) {
        if (has(units, Hour)) result.hour = second / 3600;
        if (has(units, Minute)) result.minute = second / 60 % 60;
        if (has(units, Second)) result.second = second % 60;
    }
    if (has(units, Weekday)) result.weekday = ((day + 1) % 7 + 7) % 7 + 1; // 2001-01-01 was a Monday
    if (!has(units, Era | Year | Month | Day)) return result;

    if (isGregorian_) {
        auto const civil = civilFromDays(day);
        if (has(units, Year)) result.year = civil.year;
        if (has(units, Month)) result.month = civil.month;
        if (has(units, Day)) result.day = civil.day;
        return result;
    }
    OtherCalendar::takeApart(identifier_, day, result);
    if (!has(units, Era | Year)) result.era.reset();
    if (!has(units, Year)) result.year.reset();
    if (!has(units, Month)) result.month.reset(), result.isLeapMonth.reset();
    if (!has(units, Day)) result.day.reset();
    return result;
}

/// Days are counted on from the first of a month that is within range, so that nothing overflows.
std::optional<std::int64_t> NSCalendar::dayOf(NSDateComponents const& components) const {
    if (!isGregorian_) return OtherCalendar::dayOf(identifier_, components);
    auto const year = components.year.value_or(1), month = components.month.value_or(1), day = components.day.value_or(1);
    constexpr std::int64_t years = farthest / dayLength / 365;
    if (!isWithin(year, years) || !isWithin(month, years * 12) || !isWithin(day, most / dayLength)) return {};
    if (day < 1 || day > 31) return daysFromCivil({year, static_cast<int>(month), 1}) + day - 1;
    return daysFromCivil({year, static_cast<int>(month), static_cast<int>(day)});
}

std::optional<NSDate> NSCalendar::dateFromComponents(NSDateComponents const& components, std::optional<NSDate> sibling) const {
    auto const day = dayOf(components);
    auto const seconds = secondsOf(components);
    if (!day || !seconds) return {};
    std::optional<std::int32_t> offset;
    if (auto const instant = sibling ? instantOf(*sibling) : std::nullopt) offset = clocks_->periodAt(*instant).offset;
    auto const made = clocks_->instantOf(*day * dayLength + *seconds, offset);
    if (!isWithin(made, farthest)) return {};
    return NSDate::dateWithTimeIntervalSinceReferenceDate(static_cast<double>(made));
}

std::optional<std::int64_t> NSCalendar::addMonths(std::int64_t day, std::int64_t years, std::int64_t months) const {
    if (!isWithin(years, farthest) || !isWithin(months, farthest)) return {};
    if (!isGregorian_) return OtherCalendar::addMonths(identifier_, day, years, months);
    auto const civil = civilFromDays(day);
    auto const inYear = years == 0 ? day : gregorianDay(civil.year + years, civil.month, civil.day);
    if (months == 0) return inYear;
    auto const from = years == 0 ? civil : civilFromDays(inYear);
    auto const month = from.year * 12 + from.month - 1 + months;
    auto const year = month / 12 - (month % 12 < 0);
    return gregorianDay(year, static_cast<int>(month - year * 12) + 1, from.day);
}

std::optional<NSDate> NSCalendar::dateByAddingComponents(NSDateComponents const& components, NSDate const& date) const {
    auto const instant = instantOf(date);
    auto const seconds = secondsOf(components);
    auto const days = components.day.value_or(0);
    if (!instant || !seconds || !isWithin(days, most / dayLength)) return {};
    auto moved = *instant;
    if (components.year || components.month || days != 0) {
        auto const offset = clocks_->periodAt(*instant).offset;
        auto const [day, second] = split(*instant + offset);
        std::optional<std::int64_t> newDay = day;
        if (components.year || components.month)
            newDay = addMonths(day, components.year.value_or(0), components.month.value_or(0));
        if (!newDay || !isWithin(*newDay, most / dayLength)) return {};
        auto const target = *newDay + days;
        moved = clocks_->instantOf(target * dayLength + second, offset);
        // Onto a day that the clocks skip as a whole one counts back to the day before: a loop over days would stand still.
        auto const reached = split(moved + clocks_->periodAt(moved).offset);
        if (days < 0 && reached.day > target && reached.second == second)
            moved = clocks_->instantOf((target - 1) * dayLength + second, offset);
    }
    moved += *seconds;
    if (!isWithin(moved, farthest)) return {};
    return date.dateByAddingTimeInterval(static_cast<double>(moved - *instant));
}

std::string NSCalendar::description() const { return identifier_ + " " + zone_->name(); }

} // namespace Tessarin
