#include "Tessarin/platform/foundation/time/OtherCalendarPrivate.h"

#include <cmath>
#include <unicode/calendar.h>
#include <unicode/locid.h>

namespace Tessarin::OtherCalendar {
namespace {

constexpr double reference = 978'307'200'000; // ICU's milliseconds of 2001-01-01
constexpr double dayLength = 86'400'000;

/// Null when ICU does not know it.
std::unique_ptr<icu::Calendar> makeCalendar(std::string const& identifier) {
    UErrorCode status = U_ZERO_ERROR;
    auto const locale = icu::Locale::createFromName(("en@calendar=" + identifier).c_str());
    std::unique_ptr<icu::Calendar> calendar{icu::Calendar::createInstance(icu::TimeZone::getGMT()->clone(), locale, status)};
    if (U_FAILURE(status) || identifier != calendar->getType()) return nullptr;
    return calendar;
}

icu::Calendar* ofThisThread(std::string const& identifier) {
    thread_local std::string known;
    thread_local std::unique_ptr<icu::Calendar> calendar;
    if (known != identifier) {
        calendar = makeCalendar(identifier);
        known = identifier;
    }
    return calendar.get();
}

// Farther away ICU counts for seconds, month by month, and what it finds may have overflowed.
constexpr std::int64_t mostYears = 100'000, mostMonths = mostYears * 13, mostDays = mostYears * 366;

bool isWithin(std::int64_t value, std::int64_t most) { return value >= -most && value <= most; }

std::optional<std::int64_t> dayAt(icu::Calendar& calendar, UErrorCode status) {
    auto const time = calendar.getTime(status);
    if (U_FAILURE(status)) return {};
    auto const day = static_cast<std::int64_t>(std::floor((time - reference) / dayLength));
    return isWithin(day, mostDays) ? std::optional(day) : std::nullopt;
}

} // namespace

bool isKnown(std::string const& identifier) { return ofThisThread(identifier) != nullptr; }

bool reaches(std::int64_t day) { return isWithin(day, mostDays); }

void takeApart(std::string const& identifier, std::int64_t day, NSDateComponents& components) {
    if (!reaches(day)) return;
    auto& calendar = *ofThisThread(identifier);
    UErrorCode status = U_ZERO_ERROR;
    calendar.setTime(static_cast<double>(day) * dayLength + reference, status);
    auto const era = calendar.get(UCAL_ERA, status), year = calendar.get(UCAL_YEAR, status);
    auto const month = calendar.get(UCAL_MONTH, status), date = calendar.get(UCAL_DATE, status);
    bool const isLeapMonth = calendar.get(UCAL_IS_LEAP_MONTH, status) == 1;
    if (U_FAILURE(status)) return;
    components.era = era;
    components.year = year;
    components.month = month + 1;
    components.day = date;
    if (isLeapMonth) components.isLeapMonth = true;
}

std::optional<std::int64_t> dayOf(std::string const& identifier, NSDateComponents const& components) {
    auto& calendar = *ofThisThread(identifier);
    calendar.clear();
    auto const set = [&](UCalendarDateFields field, std::optional<std::int64_t> value, std::int64_t most, int first) {
        if (value && isWithin(*value, most)) calendar.set(field, static_cast<std::int32_t>(*value) - first);
        return !value || isWithin(*value, most);
    };
    // Without an era, a calendar takes the present one.
    if (!set(UCAL_ERA, components.era, mostYears / 60, 0) || !set(UCAL_YEAR, components.year.value_or(1), mostYears, 0) ||
        !set(UCAL_MONTH, components.month.value_or(1), mostMonths, 1) || !set(UCAL_DATE, components.day.value_or(1), mostDays, 0))
        return {};
    if (components.isLeapMonth.value_or(false)) calendar.set(UCAL_IS_LEAP_MONTH, 1);
    return dayAt(calendar, U_ZERO_ERROR);
}

std::optional<std::int64_t> addMonths(std::string const& identifier, std::int64_t day, std::int64_t years, std::int64_t months) {
    if (!reaches(day) || !isWithin(years, mostYears) || !isWithin(months, mostMonths)) return {};
    auto& calendar = *ofThisThread(identifier);
    UErrorCode status = U_ZERO_ERROR;
    calendar.setTime(static_cast<double>(day) * dayLength + reference, status);
    calendar.add(UCAL_YEAR, static_cast<std::int32_t>(years), status);
    calendar.add(UCAL_MONTH, static_cast<std::int32_t>(months), status);
    return dayAt(calendar, status);
}

} // namespace Tessarin::OtherCalendar
