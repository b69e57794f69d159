#include "Tessarin/platform/foundation/time/NSDate.h"

#include "Tessarin/platform/foundation/time/CivilDate.h"

#include <cmath>
#include <ctime>
#include <fmt/format.h>

namespace Tessarin {

NSDate::NSDate() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    seconds_ = static_cast<double>(now.tv_sec - static_cast<std::time_t>(NSTimeIntervalSince1970)) +
               static_cast<double>(now.tv_nsec) * 1e-9;
}

std::string NSDate::description() const {
    // Beyond some ten million years a calendar says nothing any more, and days would soon not fit.
    if (!(std::abs(seconds_) < 3e14)) return fmt::format("date({})", seconds_);
    auto const days = std::floor(seconds_ / 86400);
    auto const second = static_cast<int>(seconds_ - days * 86400);
    auto const date = civilFromDays(static_cast<std::int64_t>(days));
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02} +0000", date.year, date.month, date.day, second / 3600,
                       second / 60 % 60, second % 60);
}

std::ostream& operator<<(std::ostream& out, NSDate const& date) { return out << date.description(); }

} // namespace Tessarin
