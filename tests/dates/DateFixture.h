#pragma once
#include "Tessarin/platform/foundation/time/NSCalendar.h"

#include "tests/support/TemporaryFolder.h"
#include <gtest/gtest.h>

namespace Tessarin::tests {

/// The user's surroundings, set for as long as it lives.
class Surroundings {
public:
    explicit Surroundings(char const* zone, char const* locale = "en_US.UTF-8") : zone_("TZ", zone), locale_("LC_ALL", locale) {
        NSTimeZone::resetSystemTimeZone();
    }
    ~Surroundings() { NSTimeZone::resetSystemTimeZone(); }
    Surroundings(Surroundings const&) = delete;
    Surroundings& operator=(Surroundings const&) = delete;

private:
    Environment zone_, locale_;
};

/// Of the Gregorian calendar, on the clocks of the user.
inline NSDate date(std::int64_t year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    auto const calendar = NSCalendar::calendarWithIdentifier("gregorian");
    return *calendar->dateFromComponents(
        {.year = year, .month = month, .day = day, .hour = hour, .minute = minute, .second = second});
}

} // namespace Tessarin::tests
