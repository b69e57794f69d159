#include "Tessarin/dates/DateDayOfWeek.h"
#include "Tessarin/dates/DateMonth.h"
#include "Tessarin/dates/DateSymbolLength.h"
#include "Tessarin/dates/SymbolLookupPrivate.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <fmt/format.h>

namespace Tessarin {
namespace {

/// `count` steps on from `position` in a circle of so many. Only forwards it closes: the remainder is truncated, and a
/// negative one names no position.
std::int64_t stepped(std::int64_t position, std::int64_t count, std::int64_t circle, char const* type) {
    std::int64_t sum = 0;
    if (__builtin_add_overflow(position, count, &sum) || sum % circle < 0)
        fatal(fmt::format("{}.increment({}): there is no such position", type, count));
    return sum % circle;
}

} // namespace

std::optional<DateSymbolLength> DateSymbolLength::fromRawValue(std::int64_t rawValue) {
    if (rawValue < 0 || rawValue > 2) return {};
    return DateSymbolLength{rawValue};
}

std::optional<DateDayOfWeek> DateDayOfWeek::fromRawValue(std::int64_t rawValue) {
    if (rawValue < 0 || rawValue > 6) return {};
    return DateDayOfWeek{rawValue};
}
DateDayOfWeek DateDayOfWeek::nextDay() const { return increment(1); }
DateDayOfWeek DateDayOfWeek::increment(std::int64_t days) const {
    return DateDayOfWeek{stepped(rawValue(), days, 7, "DateDayOfWeek")};
}
std::string DateDayOfWeek::name() const { return symbolAt(make<NSDateFormatter>()->weekdaySymbols(), rawValue()); }
std::string DateDayOfWeek::shortName() const { return symbolAt(make<NSDateFormatter>()->shortWeekdaySymbols(), rawValue()); }

std::optional<DateMonth> DateMonth::fromRawValue(std::int64_t rawValue) {
    if (rawValue < 1 || rawValue > 12) return {};
    return DateMonth{rawValue};
}
DateMonth DateMonth::nextMonth() const { return increment(1); }
DateMonth DateMonth::increment(std::int64_t months) const {
    return DateMonth{stepped(rawValue() - 1, months, 12, "DateMonth") + 1};
}
std::string DateMonth::name() const { return symbolAt(make<NSDateFormatter>()->monthSymbols(), rawValue() - 1); }
std::string DateMonth::shortName() const { return symbolAt(make<NSDateFormatter>()->shortMonthSymbols(), rawValue() - 1); }

} // namespace Tessarin
