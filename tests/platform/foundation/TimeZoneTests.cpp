// Zones: the forms of TZ, and files that are no zones. The system's whole database is the campaign "zones".
#include "Tessarin/platform/foundation/time/NSCalendar.h"
#include "Tessarin/platform/foundation/time/NSTimeZone.h"

#include "tests/support/TemporaryFolder.h"
#include <cmath>
#include <ctime>
#include <iterator>
#include <gtest/gtest.h>

namespace Tessarin {
namespace {

using tests::Environment;
using tests::TemporaryFolder;

NSDate at(std::time_t time) { return NSDate::dateWithTimeIntervalSince1970(static_cast<double>(time)); }

std::string contentOf(std::filesystem::path const& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
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
    for (auto const* wrong :
         {":", "No/Where", "Europe", "../../../etc/hostname", "CET-1CEST,M13.5.0,M10.5.0", "CET-1CEST,M3.5.0", "CET-99"}) {
        Environment const wish("TZ", wrong);
        NSTimeZone::resetSystemTimeZone();
        EXPECT_EQ(NSTimeZone::localTimeZone()->name(), "UTC") << wrong;
    }
    NSTimeZone::setDefaultTimeZone(NSTimeZone::timeZoneForSecondsFromGMT(-34'200));
    EXPECT_EQ(NSTimeZone::localTimeZone()->name(), "GMT-09:30") << "code comes before the environment";
    NSTimeZone::setDefaultTimeZone(nullptr);
    EXPECT_NE(NSTimeZone::localTimeZone()->name(), "GMT-09:30");
    EXPECT_EQ(NSTimeZone::timeZoneForSecondsFromGMT(93'600), nullptr);
    auto const next =
        NSTimeZone::timeZoneWithName("Europe/Berlin")->nextDaylightSavingTimeTransitionAfterDate(at(63'114'000'000));
    EXPECT_EQ(next->description(), "3970-03-29 01:00:00 +0000") << "rules hold for ever";
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
