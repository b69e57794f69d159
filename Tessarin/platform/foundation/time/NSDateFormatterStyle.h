#pragma once
#include <cstdint>

namespace Tessarin {

/// How much of a date or a time is written: nothing, "1/2/15", "Jan 2, 2015", "January 2, 2015", "Friday, January 2, 2015".
/// Any other value counts as Short.
enum class NSDateFormatterStyle : std::int64_t { No = 0, Short = 1, Medium = 2, Long = 3, Full = 4 };

} // namespace Tessarin
