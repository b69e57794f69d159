#include "Tessarin/dates/Double+Time.h"

#include "Tessarin/platform/runtime/Fatal.h"

#include <fmt/format.h>

namespace Tessarin::Double {
namespace {

std::int64_t truncated(double value, char const* operation) {
    // 2^63 itself does not fit any more; and whatever is not a number fails both comparisons.
    if (!(value >= -0x1p63 && value < 0x1p63)) fatal(fmt::format("Double::{}: {} is no 64-bit integer", operation, value));
    return static_cast<std::int64_t>(value);
}

} // namespace

std::int64_t days(double interval) { return truncated(interval / secondsPerDay, "days"); }
std::int64_t hours(double interval) { return truncated(interval / secondsPerHour, "hours"); }
std::int64_t minutes(double interval) { return truncated(interval / secondsPerMinute, "minutes"); }
std::int64_t seconds(double interval) { return truncated(interval, "seconds"); }

} // namespace Tessarin::Double
