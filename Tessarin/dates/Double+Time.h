#pragma once
#include "Tessarin/Export.h"
#include <cstdint>

/// Intervals in seconds, held as doubles. Totals, not parts: 90,000 seconds are `days` 1 and `hours` 25.
namespace Tessarin::Double {

inline constexpr double secondsPerMinute = 60.0;
inline constexpr double secondsPerHour = 3600.0;
inline constexpr double secondsPerDay = 86400.0;

/// Whole days, hours, minutes, seconds, truncated toward zero. Fatal for what is not a number or does not fit 64 bits.
TESSARIN_API std::int64_t days(double interval);
TESSARIN_API std::int64_t hours(double interval);
TESSARIN_API std::int64_t minutes(double interval);
TESSARIN_API std::int64_t seconds(double interval);

} // namespace Tessarin::Double
