// Calendars: what is odd about clocks and months, in zones that have it.
#include "Tessarin/platform/foundation/time/NSCalendar.h"

#include <cmath>
#include <limits>
#include <fmt/format.h>
#include <gtest/gtest.h>

namespace Tessarin {
namespace {

using enum NSCalendarUnit;
constexpr auto whole = Year | Month | Day | Hour | Minute | Second;

Ref<NSCalendar> calendarIn(char const* zone, char const* identifier = "gregorian") {
    return NSCalendar::calendarWithIdentifier(identifier, NSTimeZone::timeZoneWithName(zone));
}

/// "2018-11-04 00:30:00"
NSDateComponents parts(std::string const& text) {
    long long year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    EXPECT_EQ(std::sscanf(text.c_str(), "%lld-%lld-%lld %lld:%lld:%lld", &year, &month, &day, &hour, &minute, &second), 6)
        << text;
    return {.year = year, .month = month, .day = day, .hour = hour, .minute = minute, .second = second};
}

/// The same with the zone's name, so that repeated hours differ: "2018-02-17 23:30:00 -03".
std::string text(NSCalendar const& calendar, NSDate const& date) {
    auto const is = calendar.components(whole, date);
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02} {}", *is.year, *is.month, *is.day, *is.hour, *is.minute, *is.second,
                       calendar.timeZone()->abbreviationForDate(date));
}

TEST(NSCalendar, WallTimesThatAreSkippedOrRepeated) {
    struct {
        char const *zone, *wish, *first;
        char const* sibling; // a date with the offset to be preferred
        char const* kept;
    } const rows[] = {
        {"America/Sao_Paulo", "2018-11-04 00:00:00", "2018-11-04 01:00:00 -02", "2018-11-05 00:00:00", "2018-11-04 01:00:00 -02"},
        {"America/Sao_Paulo", "2018-02-17 23:59:59", "2018-02-17 23:59:59 -02", "2018-02-17 12:00:00", "2018-02-17 23:59:59 -02"},
        {"America/Sao_Paulo", "2018-02-17 23:59:59", "2018-02-17 23:59:59 -02", "2018-02-18 00:00:00", "2018-02-17 23:59:59 -03"},
        {"America/Havana", "2018-03-11 00:00:00", "2018-03-11 01:00:00 CDT", "2018-03-10 00:00:00", "2018-03-11 01:00:00 CDT"},
        {"America/Havana", "2018-11-04 00:30:00", "2018-11-04 00:30:00 CDT", "2018-11-05 00:00:00", "2018-11-04 00:30:00 CST"},
        {"Asia/Beirut", "2018-03-25 00:00:00", "2018-03-25 01:00:00 EEST", "2018-03-24 00:00:00", "2018-03-25 01:00:00 EEST"},
        {"Asia/Beirut", "2018-10-27 23:59:59", "2018-10-27 23:59:59 EEST", "2018-10-28 00:00:00", "2018-10-27 23:59:59 EET"},
        {"Europe/Berlin", "2018-03-25 02:30:00", "2018-03-25 03:30:00 CEST", "2018-03-24 00:00:00", "2018-03-25 03:30:00 CEST"},
        {"Europe/Berlin", "2018-10-28 02:30:00", "2018-10-28 02:30:00 CEST", "2018-12-01 00:00:00", "2018-10-28 02:30:00 CET"},
        {"Pacific/Apia", "2011-12-30 12:00:00", "2011-12-31 12:00:00 +14", "2011-12-29 12:00:00", "2011-12-31 12:00:00 +14"},
        {"Pacific/Kwajalein", "1993-08-21 06:00:00", "1993-08-22 06:00:00 +12", "1993-08-20 00:00:00", "1993-08-22 06:00:00 +12"},
        {"Australia/Lord_Howe", "2018-10-07 02:10:00", "2018-10-07 02:40:00 +11", "2018-10-01 00:00:00",
         "2018-10-07 02:40:00 +11"},
        {"Australia/Lord_Howe", "2018-04-01 01:45:00", "2018-04-01 01:45:00 +11", "2018-05-01 00:00:00",
         "2018-04-01 01:45:00 +1030"},
        {"Pacific/Chatham", "2018-09-30 02:50:00", "2018-09-30 03:50:00 +1345", "2018-10-01 00:00:00",
         "2018-09-30 03:50:00 +1345"},
        {"Pacific/Chatham", "2018-04-01 03:00:00", "2018-04-01 03:00:00 +1345", "2018-04-02 00:00:00",
         "2018-04-01 03:00:00 +1245"},
        {"Africa/Monrovia", "1972-01-07 00:30:00", "1972-01-07 01:14:30 GMT", "1972-01-01 00:00:00", "1972-01-07 01:14:30 GMT"}};
    for (auto const& row : rows) {
        auto const calendar = calendarIn(row.zone);
        auto const wish = parts(row.wish);
        EXPECT_EQ(text(*calendar, *calendar->dateFromComponents(wish)), row.first) << row.zone;
        auto const sibling = *calendar->dateFromComponents(parts(row.sibling));
        EXPECT_EQ(text(*calendar, *calendar->dateFromComponents(wish, sibling)), row.kept)
            << row.zone << " beside " << row.sibling;
    }
}

TEST(NSCalendar, AddsYearsThenMonthsThenDaysOnTheWallAndTimeAsItPasses) {
    struct {
        char const *zone, *from;
        NSDateComponents amount;
        char const* sum;
    } const rows[] = {{"UTC", "2024-02-29 12:00:00", {.year = 1}, "2025-02-28 12:00:00 UTC"},
                      {"UTC", "2024-02-29 12:00:00", {.year = 1, .month = 1}, "2025-03-28 12:00:00 UTC"},
                      {"UTC", "2024-02-29 12:00:00", {.year = -4}, "2020-02-29 12:00:00 UTC"},
                      {"UTC", "2023-01-31 12:00:00", {.month = 1}, "2023-02-28 12:00:00 UTC"},
                      {"UTC", "2023-01-31 12:00:00", {.month = 1, .day = 1}, "2023-03-01 12:00:00 UTC"},
                      {"UTC", "2023-03-31 12:00:00", {.month = -13}, "2022-02-28 12:00:00 UTC"},
                      {"UTC", "2023-12-31 23:59:59", {.second = 1}, "2024-01-01 00:00:00 UTC"},
                      {"UTC", "1582-10-04 12:00:00", {.day = 1}, "1582-10-15 12:00:00 UTC"},
                      {"UTC", "1500-02-29 12:00:00", {.year = 100}, "1600-02-29 12:00:00 UTC"},
                      {"UTC", "1600-02-29 12:00:00", {.year = -100}, "1500-02-29 12:00:00 UTC"},
                      {"UTC", "0001-01-01 00:00:00", {.month = -1}, "0000-12-01 00:00:00 UTC"}, // 1 BC
                      {"UTC", "0001-03-01 00:00:00", {.day = -1}, "0001-02-28 00:00:00 UTC"},
                      {"UTC", "-0001-03-31 00:00:00", {.month = -4}, "-002-11-30 00:00:00 UTC"},
                      {"UTC", "-0001-02-15 00:00:00", {.month = 14}, "0000-04-15 00:00:00 UTC"},
                      {"Europe/Berlin", "2018-03-24 12:00:00", {.day = 1}, "2018-03-25 12:00:00 CEST"},
                      {"Europe/Berlin", "2018-03-24 12:00:00", {.hour = 24}, "2018-03-25 13:00:00 CEST"},
                      {"Europe/Berlin", "2018-03-24 02:30:00", {.day = 1}, "2018-03-25 03:30:00 CEST"},
                      {"Europe/Berlin", "2018-02-25 02:30:00", {.month = 1}, "2018-03-25 03:30:00 CEST"},
                      {"Europe/Berlin", "2018-10-27 02:30:00", {.day = 1}, "2018-10-28 02:30:00 CEST"},
                      {"Europe/Berlin", "2018-10-29 02:30:00", {.day = -1}, "2018-10-28 02:30:00 CET"},
                      {"Europe/Berlin", "2018-10-27 02:30:00", {.day = 1, .hour = 1}, "2018-10-28 02:30:00 CET"},
                      {"Pacific/Apia", "2011-12-29 12:00:00", {.day = 1}, "2011-12-31 12:00:00 +14"},
                      {"Pacific/Apia", "2011-12-31 12:00:00", {.day = -1}, "2011-12-29 12:00:00 -10"}, // a loop over days goes on
                      {"Pacific/Apia", "2012-01-01 12:00:00", {.day = -2}, "2011-12-29 12:00:00 -10"},
                      {"Pacific/Kwajalein", "1993-08-22 06:00:00", {.day = -1}, "1993-08-20 06:00:00 -12"},
                      {"America/Sao_Paulo", "2018-11-03 00:00:00", {.day = 1}, "2018-11-04 01:00:00 -02"}};
    for (auto const& row : rows) {
        auto const calendar = calendarIn(row.zone);
        auto const from = *calendar->dateFromComponents(parts(row.from));
        EXPECT_EQ(text(*calendar, *calendar->dateByAddingComponents(row.amount, from)), row.sum) << row.from;
    }
    auto const utc = calendarIn("UTC");
    auto const early = NSDate::dateWithTimeIntervalSinceReferenceDate(-0.25);
    EXPECT_EQ(utc->dateByAddingComponents({.day = 1}, early)->timeIntervalSinceReferenceDate(), 86'399.75);
    EXPECT_EQ(utc->components(whole, early), parts("2000-12-31 23:59:59"));
    EXPECT_EQ(utc->components(Hour | Weekday, early), (NSDateComponents{.hour = 23, .weekday = 1})) << "nothing else";
}

TEST(NSCalendar, WhatIsOutOfReachIsAbsent) {
    auto const calendar = calendarIn("Europe/Berlin"), persian = calendarIn("Europe/Berlin", "persian");
    auto const date = NSDate::distantPast();
    for (double const seconds : {2e14, -2e14, 1e300, HUGE_VAL, std::nan("")}) {
        auto const far = NSDate::dateWithTimeIntervalSinceReferenceDate(seconds);
        EXPECT_EQ(calendar->components(whole, far), NSDateComponents{});
        EXPECT_FALSE(calendar->dateByAddingComponents({.day = 1}, far));
    }
    for (auto const amount :
         {std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min(), std::int64_t{400'000'000'000'000}})
        for (auto const& parts :
             {NSDateComponents{.year = amount}, NSDateComponents{.month = amount}, NSDateComponents{.day = amount},
              NSDateComponents{.hour = amount}, NSDateComponents{.minute = amount}, NSDateComponents{.second = amount}})
            for (auto const& each : {calendar, persian}) {
                EXPECT_FALSE(each->dateByAddingComponents(parts, date));
                EXPECT_FALSE(each->dateFromComponents(parts));
            }
    auto const last = calendar->dateFromComponents({.year = 5'000'000, .month = 12, .day = 31});
    EXPECT_EQ(calendar->components(Year | Month | Day, *last), (NSDateComponents{.year = 5'000'000, .month = 12, .day = 31}));
    EXPECT_EQ(NSCalendar::calendarWithIdentifier("martian"), nullptr);
    for (auto const* identifier :
         {"hebrew", "chinese", "islamic-umalqura"}) { // where ICU would count for seconds and then be wrong
        auto const other = calendarIn("UTC", identifier);
        for (std::int64_t const amount : {2'000'000'000, -2'000'000'000, 5'000'000})
            for (auto const& parts : {NSDateComponents{.year = amount}, NSDateComponents{.month = amount}}) {
                EXPECT_FALSE(other->dateFromComponents(parts)) << identifier << amount;
                EXPECT_FALSE(other->dateByAddingComponents(parts, NSDate::now())) << identifier << amount;
            }
        EXPECT_FALSE(other->components(Year, *last).year) << identifier;
    }
}

TEST(NSCalendar, OtherCalendarsShareTheClocks) {
    auto const gregorian = calendarIn("Asia/Tehran");
    auto const date = *gregorian->dateFromComponents(parts("2021-03-21 12:30:15"));
    struct {
        char const* identifier;
        std::int64_t year, month, day;
    } const rows[] = {{"persian", 1400, 1, 1}, {"buddhist", 2564, 3, 21}, {"hebrew", 5781, 8, 8}, {"japanese", 3, 3, 21}};
    for (auto const& row : rows) {
        auto const calendar = calendarIn("Asia/Tehran", row.identifier);
        auto const found = calendar->components(whole, date);
        EXPECT_EQ((std::tuple{*found.year, *found.month, *found.day}), (std::tuple{row.year, row.month, row.day}))
            << row.identifier;
        EXPECT_EQ((std::tuple{*found.hour, *found.minute, *found.second}), (std::tuple{12, 30, 15})) << row.identifier;
        // Every hour across the change of the clocks, that of the next day at 00:00 included.
        for (int hour = 0; hour < 72; ++hour) {
            auto const each = date.dateByAddingTimeInterval(hour * 3600 - 15);
            EXPECT_EQ(calendar->dateFromComponents(calendar->components(whole, each), each), each) << row.identifier << hour;
            EXPECT_EQ(calendar->dateByAddingComponents({.day = 1}, each), gregorian->dateByAddingComponents({.day = 1}, each));
        }
    }
    auto const persian = calendarIn("Asia/Tehran", "persian");
    auto const end = *persian->dateFromComponents({.year = 1400, .month = 6, .day = 31, .hour = 8});
    EXPECT_EQ(persian->components(Month | Day, *persian->dateByAddingComponents({.month = 1}, end)),
              (NSDateComponents{.month = 7, .day = 30}));
    for (auto const* identifier : {"chinese", "dangi"}) {
        auto const lunar = calendarIn("Asia/Shanghai", identifier);
        auto each = *gregorian->dateFromComponents(parts("2020-01-01 12:00:00"));
        for (int day = 0, leapDays = 0; day < 366; ++day, each = each.dateByAddingTimeInterval(86'400)) {
            auto const components = lunar->components(whole, each);
            leapDays += components.isLeapMonth.value_or(false);
            EXPECT_EQ(lunar->dateFromComponents(components), each) << identifier << day;
            if (day == 365) {
                EXPECT_EQ(leapDays, 29) << "a fourth month came twice";
            }
        }
    }
    auto const showa = *calendarIn("UTC", "japanese")->dateByAddingComponents({.year = -40}, date);
    EXPECT_EQ(calendarIn("UTC", "japanese")->components(Year, showa), (NSDateComponents{.era = 234, .year = 56}))
        << "with its era";
}

} // namespace
} // namespace Tessarin
