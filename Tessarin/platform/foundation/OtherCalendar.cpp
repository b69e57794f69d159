#include "Tessarin/platform/foundation/OtherCalendarPrivate.h"

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

bool fits(std::int64_t value) { return value == static_cast<std::int32_t>(value); }

std::optional<std::int64_t> dayAt(icu::Calendar& calendar, UErrorCode status) {
    auto const time = calendar.getTime(status);
    if (U_FAILURE(status)) return {};
    return static_cast<std::int64_t>(std::floor((time - reference) / dayLength));
}

} // namespace

bool isKnown(std::string const& identifier) { return ofThisThread(identifier) != nullptr; }

void takeApart(std::string const& identifier, std::int64_t day, NSDateComponents& components) {
    auto& calendar = *ofThisThread(identifier);
    UErrorCode status = U_ZERO_ERROR;
    calendar.setTime(static_cast<double>(day) * dayLength + reference, status);
    auto const era = calendar.get(UCAL_ERA, status), year = calendar.get(UCAL_YEAR, status);
    auto const month = calendar.get(UCAL_MONTH, status), date = calendar.get(UCAL_DATE, status);
    if (U_FAILURE(status)) return;
    components.era = era;
    components.year = year;
    components.month = month + 1;
    components.day = date;
}

std::optional<std::int64_t> dayOf(std::string const& identifier, NSDateComponents const& components) {
    auto& calendar = *ofThisThread(identifier);
    calendar.clear();
    auto const set = [&](UCalendarDateFields field, std::optional<std::int64_t> value, int first) {
        if (value && fits(*value)) calendar.set(field, static_cast<std::int32_t>(*value) - first);
        return !value || fits(*value);
    };
    // Without an era, a calendar takes the present one.
    if (!set(UCAL_ERA, components.era, 0) || !set(UCAL_YEAR, components.year.value_or(1), 0) ||
        !set(UCAL_MONTH, components.month.value_or(1), 1) || !set(UCAL_DATE, components.day.value_or(1), 0))
        return {};
    return dayAt(calendar, U_ZERO_ERROR);
}

std::optional<std::int64_t> addMonths(std::string const& identifier, std::int64_t day, std::int64_t years, std::int64_t months) {
    if (!fits(years) || !fits(months)) return {};
    auto& calendar = *ofThisThread(identifier);
    UErrorCode status = U_ZERO_ERROR;
    calendar.setTime(static_cast<double>(day) * dayLength + reference, status);
    calendar.add(UCAL_YEAR, static_cast<std::int32_t>(years), status);
    calendar.add(UCAL_MONTH, static_cast<std::int32_t>(months), status);
    return dayAt(calendar, status);
}

} // namespace Tessarin::OtherCalendar
