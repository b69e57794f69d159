#pragma once
#include "Tessarin/platform/foundation/time/NSDateComponents.h"
#include <cstdint>
#include <optional>
#include <string>

namespace Tessarin {

/// Every calendar but the Gregorian one, by ICU: as a count of days since 2001-01-01, without any zone, so that clocks are a
/// matter of one table for all calendars. Each thread keeps the last calendar that it used.
namespace OtherCalendar {

bool isKnown(std::string const& identifier);
/// Whether the day is near enough: within a hundred thousand years.
bool reaches(std::int64_t day);
/// Sets era, year, month and day; nothing when the day is out of reach.
void takeApart(std::string const& identifier, std::int64_t day, NSDateComponents& components);
std::optional<std::int64_t> dayOf(std::string const& identifier, NSDateComponents const& components);
std::optional<std::int64_t> addMonths(std::string const& identifier, std::int64_t day, std::int64_t years, std::int64_t months);

} // namespace OtherCalendar
} // namespace Tessarin
