#include "Tessarin/platform/foundation/time/NSCalendar.h"
#include "benchmarks/dates/Peers.h"

#include <cmath>

namespace Tessarin::benchmarks {
namespace {

using enum NSCalendarUnit;

std::int64_t number(NSDate const& date) { return static_cast<std::int64_t>(std::floor(date.timeIntervalSinceReferenceDate())); }

class Ours : public DatePeer {
public:
    Ours() {
        for (auto const instant : instants())
            dates_.push_back(NSDate::dateWithTimeIntervalSince1970(static_cast<double>(instant)));
    }
    std::int64_t components(std::size_t index) override {
        auto const parts =
            NSCalendar::currentCalendar()->components(Year | Month | Day | Hour | Minute | Second | Weekday, dates_[index]);
        return *parts.year + *parts.month + *parts.day + *parts.hour + *parts.minute + *parts.second + *parts.weekday;
    }
    std::int64_t addDay(std::size_t index) override { return number(dates_[index].nextDay()); }
    std::int64_t addMonth(std::size_t index) override { return number(dates_[index].dateByAdding({.months = 1})); }
    std::int64_t fromComponents(std::size_t index) override {
        auto const& [year, month, day, hour, minute, second] = walls()[index];
        return number(*NSCalendar::currentCalendar()->dateFromComponents(
            {.year = year, .month = month, .day = day, .hour = hour, .minute = minute, .second = second}));
    }
    std::int64_t parseISO(std::string const& text) override { return number(*NSDate::dateWithISO8601Text(text)); }
    std::int64_t parseRFC822(std::string const& text) override { return number(*NSDate::dateWithRFC822Text(text)); }

private:
    std::vector<NSDate> dates_;
};

} // namespace
std::unique_ptr<DatePeer> makeOurs() { return std::make_unique<Ours>(); }
} // namespace Tessarin::benchmarks
