// Zones of the system's database, and rules as TZ has them, beside the C library: one of them a trial.
#include "fuzz/campaigns/Zones.h"

#include "Tessarin/platform/foundation/time/NSCalendar.h"
#include "Tessarin/platform/foundation/time/NSTimeZone.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

namespace Tessarin::campaigns {
namespace {

using enum NSCalendarUnit;
namespace fs = std::filesystem;

constexpr auto wallUnits = Year | Month | Day | Hour | Minute | Second | Weekday;
constexpr std::time_t year1900 = -2'208'988'800, year1971 = 31'536'000, year2200 = 7'258'118'400;

NSDate at(std::time_t time) { return NSDate::dateWithTimeIntervalSince1970(static_cast<double>(time)); }

/// One name of each zone; where the comparison begins, for the C library's rules begin in 1970.
std::vector<std::pair<std::string, std::time_t>> const& allZones() {
    static auto const all = [] {
        std::vector<std::pair<std::string, std::time_t>> zones;
        std::set<std::string> seen;
        fs::path const root = "/usr/share/zoneinfo";
        for (auto entry = fs::recursive_directory_iterator(root); entry != end(entry); ++entry) {
            auto const name = entry->path().lexically_relative(root).native();
            if (name == "posix" || name == "right") entry.disable_recursion_pending(); // copies, and one with leap seconds
            if (!entry->is_regular_file()) continue;
            std::ifstream in(entry->path(), std::ios::binary);
            std::string const content(std::istreambuf_iterator<char>(in), {});
            if (content.starts_with("TZif") && seen.insert(content).second) zones.emplace_back(name, year1900);
        }
        require(zones.size() > 200, "there are but {} zones", zones.size());
        std::ranges::sort(zones);
        for (auto const* const rule :
             {"CET-1CEST,M3.5.0,M10.5.0/3", "EST5EDT4,J60/0,J300", "ABC3DEF,59/1:30,300", "NZST-12NZDT,M9.5.0,M4.1.0/3",
              "<-03>3<-02>,M3.5.0/-2,M10.5.0/-1", "IST-1GMT0,M10.5.0,M3.5.0/1"})
            zones.emplace_back(rule, year1971);
        return zones;
    }();
    return all;
}

void check(NSTimeZone const& zone, NSCalendar const& calendar, std::time_t time) {
    std::tm expected{};
    ::localtime_r(&time, &expected);
    auto const date = at(time);
    auto const found = calendar.components(wallUnits, date);
    NSDateComponents const wall{.year = expected.tm_year + 1900,
                                .month = expected.tm_mon + 1,
                                .day = expected.tm_mday,
                                .hour = expected.tm_hour,
                                .minute = expected.tm_min,
                                .second = expected.tm_sec,
                                .weekday = expected.tm_wday + 1};
    auto const requireOf = [&](bool holds, char const* what) { require(holds, "{}: {} {}", zone.name(), time, what); };
    requireOf(found == wall, "has another wall time");
    requireOf(zone.secondsFromGMTForDate(date) == expected.tm_gmtoff && zone.abbreviationForDate(date) == expected.tm_zone &&
                  zone.isDaylightSavingTimeForDate(date) == (expected.tm_isdst > 0),
              "has another name or offset");
    requireOf(calendar.dateFromComponents(found, date) == date, "is not found again by its own offset");
    auto const first = *calendar.dateFromComponents(found);
    requireOf(first <= date, "is not the first of its wall time");
    requireOf(first == date || calendar.components(wallUnits, first) == found, "is not found again");
}

/// The rules hold for ever, and after 400 years the calendar is the same.
void checkLater(NSTimeZone const& zone, NSCalendar const& calendar, std::time_t time) {
    constexpr double cycle = 146'097 * 86'400.0;
    for (int const cycles : {1, 2, 100}) {
        auto const later = at(time).dateByAddingTimeInterval(cycles * cycle);
        require(zone.secondsFromGMTForDate(later) == zone.secondsFromGMTForDate(at(time)),
                "{}: {} is another offset {} cycles later", zone.name(), time, cycles);
        require(calendar.dateFromComponents(calendar.components(wallUnits, later), later) == later,
                "{}: {} is not found again {} cycles later", zone.name(), time, cycles);
    }
}

} // namespace

void tryZones(Trial& trial, Tally& tally) {
    auto const& [name, from] = allZones()[trial.number() % allZones().size()];
    ::setenv("TZ", name.c_str(), 1);
    ::tzset();
    auto const zone = NSTimeZone::timeZoneWithName(name);
    require(zone != nullptr, "{} is not found", name);
    auto const calendar = NSCalendar::calendarWithIdentifier("gregorian", zone);
    for (auto change = zone->nextDaylightSavingTimeTransitionAfterDate(at(from)); change;
         change = zone->nextDaylightSavingTimeTransitionAfterDate(*change)) {
        auto const time = static_cast<std::time_t>(change->timeIntervalSince1970());
        if (time >= year2200) break;
        for (auto const near : {time - 1, time, time + 1}) check(*zone, *calendar, near);
        tally.add("changes");
    }
    auto const step = 40 * 86'400 + static_cast<std::time_t>(trial.random(86'400)); // meets changes that we might not know of
    for (auto time = from; time < year2200; time += step) check(*zone, *calendar, time);
    for (std::time_t time = 5'000'000'000; time < 5'100'000'000; time += 2'000'000) checkLater(*zone, *calendar, time);
    tally.add("zones");
}

} // namespace Tessarin::campaigns
