// Zones: the system's whole database beside the C library, the forms of TZ, and files that are no zones.
#include "Tessarin/platform/foundation/time/NSCalendar.h"
#include "Tessarin/platform/foundation/time/NSTimeZone.h"

#include "tests/support/TemporaryFolder.h"
#include <cstdio>
#include <ctime>
#include <gtest/gtest.h>
#include <set>

namespace Tessarin {
namespace {

using enum NSCalendarUnit;
using tests::Environment;
using tests::TemporaryFolder;

NSDate at(std::time_t time) { return NSDate::dateWithTimeIntervalSince1970(static_cast<double>(time)); }
constexpr std::time_t year1900 = -2'208'988'800, year1971 = 31'536'000, year2200 = 7'258'118'400;

std::string contentOf(std::filesystem::path const& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// One zone beside the C library, which has the same one set: around every change, and in between.
class Comparison {
public:
    Comparison(std::string name, std::time_t from)
        : name_(std::move(name)), from_(from), zone_(NSTimeZone::timeZoneWithName(name_)) {
        if (zone_) calendar_ = NSCalendar::calendarWithIdentifier("gregorian", zone_);
    }
    int faults() {
        if (!zone_) return fault(0, "is not found");
        for (auto change = zone_->nextDaylightSavingTimeTransitionAfterDate(at(from_)); change;
             change = zone_->nextDaylightSavingTimeTransitionAfterDate(*change)) {
            auto const time = static_cast<std::time_t>(change->timeIntervalSince1970());
            if (time >= year2200) break;
            for (auto const near : {time - 1, time, time + 1}) check(near);
        }
        for (auto time = from_; time < year2200; time += 40 * 86'400 + 12'345) check(time); // changes that we might not know of
        return faults_;
    }

private:
    void check(std::time_t time) {
        std::tm expected{};
        ::localtime_r(&time, &expected);
        auto const date = at(time);
        auto const found = calendar_->components(Year | Month | Day | Hour | Minute | Second | Weekday, date);
        NSDateComponents const wall{.year = expected.tm_year + 1900,
                                    .month = expected.tm_mon + 1,
                                    .day = expected.tm_mday,
                                    .hour = expected.tm_hour,
                                    .minute = expected.tm_min,
                                    .second = expected.tm_sec,
                                    .weekday = expected.tm_wday + 1};
        if (found != wall) fault(time, "has another wall time");
        if (zone_->secondsFromGMTForDate(date) != expected.tm_gmtoff || zone_->abbreviationForDate(date) != expected.tm_zone ||
            zone_->isDaylightSavingTimeForDate(date) != (expected.tm_isdst > 0))
            fault(time, "has another name or offset");
        if (calendar_->dateFromComponents(found, date) != date) fault(time, "is not found again by its own offset");
        auto const first = *calendar_->dateFromComponents(found);
        if (first > date) fault(time, "is not the first of its wall time");
        if (first != date && calendar_->components(Year | Month | Day | Hour | Minute | Second | Weekday, first) != found)
            fault(time, "is not found again");
    }
    int fault(std::time_t time, char const* what) {
        if (++faults_ < 4) std::fprintf(stderr, "%s: %ld %s\n", name_.c_str(), static_cast<long>(time), what);
        return faults_;
    }

    std::string name_;
    std::time_t from_;
    Ref<NSTimeZone> zone_;
    Ref<NSCalendar> calendar_;
    int faults_ = 0;
};

/// In a process of its own, since the C library has one zone for all threads.
[[noreturn]] void compareTheWholeDatabase() {
    std::filesystem::path const root = "/usr/share/zoneinfo";
    std::set<std::string> seen;
    int faults = 0;
    for (auto entry = std::filesystem::recursive_directory_iterator(root); entry != end(entry); ++entry) {
        auto const name = entry->path().lexically_relative(root).native();
        if (name == "posix" || name == "right") entry.disable_recursion_pending(); // copies, and one with leap seconds
        if (!entry->is_regular_file()) continue;
        auto const content = contentOf(entry->path());
        if (!content.starts_with("TZif") || !seen.insert(content).second) continue;
        ::setenv("TZ", name.c_str(), 1);
        ::tzset();
        faults += Comparison(name, year1900).faults();
    }
    for (auto const* const rule :
         {"CET-1CEST,M3.5.0,M10.5.0/3", "EST5EDT4,J60/0,J300", "ABC3DEF,59/1:30,300", "NZST-12NZDT,M9.5.0,M4.1.0/3",
          "<-03>3<-02>,M3.5.0/-2,M10.5.0/-1", "IST-1GMT0,M10.5.0,M3.5.0/1"}) {
        ::setenv("TZ", rule, 1);
        ::tzset();
        faults += Comparison(rule, year1971).faults(); // the C library's rules begin in 1970
    }
    std::fprintf(stderr, "%zu zones compared\n", seen.size());
    std::_Exit(faults == 0 && seen.size() > 200 ? 0 : 1);
}

TEST(NSTimeZone, EveryZoneAgreesWithTheCLibrary) {
    EXPECT_EXIT(compareTheWholeDatabase(), testing::ExitedWithCode(0), "zones compared");
}

TEST(NSTimeZone, IsWhatTheEnvironmentSays) {
    struct {
        std::optional<std::string> wish;
        char const* name; // null: any
        std::int64_t winter, summer;
    } const rows[] = {{"Europe/Berlin", "Europe/Berlin", 3600, 7200},
                      {":Europe/Berlin", "Europe/Berlin", 3600, 7200},
                      {"/usr/share/zoneinfo/Asia/Kolkata", "Asia/Kolkata", 19800, 19800},
                      {"CET-1CEST,M3.5.0,M10.5.0/3", "CET-1CEST,M3.5.0,M10.5.0/3", 3600, 7200},
                      {"EST5EDT4,J60/0,J300", nullptr, -18000, -14400},
                      {"AAA10BBB", nullptr, -36000, -32400}, // changes as in the United States
                      {"<-03>3<-02>,M10.3.0/-25,M2.2.6/167:59:59", nullptr, -7200, -10800},
                      {"<+0330>-3:30", nullptr, 12600, 12600},
                      {"XXX3EDT4,0/0,J365/23", nullptr, -14400, -14400}, // daylight saving for ever
                      {"", "UTC", 0, 0},
                      {":", "UTC", 0, 0},
                      {"No/Where", "UTC", 0, 0},
                      {"Europe", "UTC", 0, 0}, // a folder
                      {"../../../etc/hostname", "UTC", 0, 0},
                      {"CET-1CEST,M13.5.0,M10.5.0", "UTC", 0, 0},
                      {"CET-1CEST,M3.5.0", "UTC", 0, 0},
                      {"CET-99", "UTC", 0, 0},
                      {std::nullopt, nullptr,
                       NSTimeZone::timeZoneWithName("/etc/localtime")->secondsFromGMTForDate(at(1'421'000'000)),
                       NSTimeZone::timeZoneWithName("/etc/localtime")->secondsFromGMTForDate(at(1'437'000'000))}};
    for (auto const& row : rows) {
        Environment const wish("TZ", row.wish);
        NSTimeZone::resetSystemTimeZone();
        auto const& zone = NSTimeZone::localTimeZone();
        if (row.name) { EXPECT_EQ(zone->name(), row.name); }
        EXPECT_EQ(zone->secondsFromGMTForDate(at(1'421'000'000)), row.winter) << row.wish.value_or("unset"); // 2015-01-11
        EXPECT_EQ(zone->secondsFromGMTForDate(at(1'437'000'000)), row.summer) << row.wish.value_or("unset"); // 2015-07-15
        EXPECT_EQ(NSCalendar::currentCalendar()->timeZone(), zone);
    }
    NSTimeZone::setDefaultTimeZone(NSTimeZone::timeZoneForSecondsFromGMT(-34'200));
    EXPECT_EQ(NSTimeZone::localTimeZone()->name(), "GMT-09:30") << "code comes before the environment";
    NSTimeZone::setDefaultTimeZone(nullptr);
    EXPECT_NE(NSTimeZone::localTimeZone()->name(), "GMT-09:30");
    EXPECT_EQ(NSTimeZone::timeZoneForSecondsFromGMT(93'600), nullptr);
}

TEST(NSTimeZone, RulesHoldForEver) {
    constexpr double cycle = 146'097 * 86'400.0; // after 400 years the calendar is the same
    auto const berlin = NSTimeZone::timeZoneWithName("Europe/Berlin");
    auto const calendar = NSCalendar::calendarWithIdentifier("gregorian", berlin);
    for (double time = 2e9; time < 2.1e9; time += 100'003) {
        auto const date = at(static_cast<std::time_t>(time));
        for (int const cycles : {1, 2, 100}) {
            auto const later = date.dateByAddingTimeInterval(cycles * cycle);
            ASSERT_EQ(berlin->secondsFromGMTForDate(later), berlin->secondsFromGMTForDate(date));
            ASSERT_EQ(
                calendar->dateFromComponents(calendar->components(Year | Month | Day | Hour | Minute | Second, later), later),
                later);
        }
    }
    auto const next = berlin->nextDaylightSavingTimeTransitionAfterDate(at(0).dateByAddingTimeInterval(5 * cycle));
    EXPECT_EQ(next->description(), "3970-03-29 01:00:00 +0000");
    EXPECT_FALSE(NSTimeZone::timeZoneWithName("Asia/Kolkata")->nextDaylightSavingTimeTransitionAfterDate(at(0)));
}

TEST(NSTimeZone, DamagedFilesAreRefusedOrUnderstoodButNeverTrusted) {
    TemporaryFolder const folder;
    auto const whole = contentOf("/usr/share/zoneinfo/Europe/Berlin");
    auto const summer = at(1'437'000'000), later = at(2'700'000'000); // 2015-07, 2055-07
    auto const old = std::string{whole}.replace(4, 1, 1, '\0');
    auto const zone = NSTimeZone::timeZoneWithName(folder.write("old", old));
    ASSERT_TRUE(zone) << "the first version has only the first block";
    EXPECT_EQ(zone->secondsFromGMTForDate(summer), 7200);
    EXPECT_EQ(zone->secondsFromGMTForDate(later), 3600) << "and no rule";

    EXPECT_EQ(NSTimeZone::timeZoneWithName(folder.write("none", "TZif2")), nullptr);
    int refused = 0;
    unsigned random = 1;
    for (std::size_t round = 0; round < 600; ++round) {
        auto content = whole;
        if (round % 2 == 0) content.resize(round * whole.size() / 600);
        for (int flip = 0; flip < 3 && round % 2 == 1; ++flip) {
            random = random * 1'103'515'245 + 12'345;
            content[(random >> 8) % (flip == 0 ? content.size() : 1'200)] = static_cast<char>(random >> 4);
        }
        auto const damaged = NSTimeZone::timeZoneWithName(folder.write(std::to_string(round), content));
        refused += !damaged;
        if (damaged) { EXPECT_LT(std::abs(damaged->secondsFromGMTForDate(later)), 26 * 3600); }
    }
    EXPECT_GT(refused, 290) << "every half of a file, at least";
}

} // namespace
} // namespace Tessarin
