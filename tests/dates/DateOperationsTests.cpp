// What the room adds to dates: components, order, arithmetic, texts.
#include "Tessarin/dates/DateMonth.h"
#include "Tessarin/dates/Double+Time.h"
#include "Tessarin/platform/foundation/time/NSDateFormatter.h"

#include "tests/dates/DateFixture.h"
#include <atomic>
#include <cmath>
#include <limits>
#include <set>
#include <thread>

namespace Tessarin {
namespace {

using tests::date;
using tests::Surroundings;
using Style = NSDateFormatterStyle;

TEST(DateOperations, ComponentsAreThoseOfTheUsersClock) {
    Surroundings const berlin("Europe/Berlin");
    auto const moment = NSDate::dateWithISO8601Text("2015-02-28T23:30:15.750Z").value(); // a Saturday; Sunday in Berlin
    EXPECT_EQ((std::tuple{moment.year(), moment.month(), moment.day()}), (std::tuple{2015, DateMonth::March, 1}));
    EXPECT_EQ((std::tuple{moment.hour(), moment.minute(), moment.second()}), (std::tuple{0, 30, 15}));
    EXPECT_EQ(moment.dayOfWeek(), DateDayOfWeek::Sunday);
    EXPECT_EQ(moment.dayOfWeekString(), "Sunday");
    EXPECT_EQ(moment.dayOfWeekString(DateSymbolLength::Short), "Sun");
    EXPECT_EQ(moment.dayOfWeekString(DateSymbolLength::VeryShort), "S");
    Surroundings const newYork("America/New_York");
    EXPECT_EQ((std::tuple{moment.day(), moment.hour(), moment.dayOfWeek()}), (std::tuple{28, 18, DateDayOfWeek::Saturday}));
    auto const nowhere = NSDate::dateWithTimeIntervalSinceReferenceDate(std::nan(""));
    EXPECT_EQ((std::tuple{nowhere.year(), nowhere.month(), nowhere.dayOfWeek()}),
              (std::tuple{0, DateMonth::January, DateDayOfWeek::Sunday}));
}

TEST(DateOperations, ADateIsNeitherBeforeNorAfterItself) {
    auto const a = NSDate::dateWithTimeIntervalSinceReferenceDate(0), b = a.dateByAddingTimeInterval(1e-9);
    EXPECT_FALSE(a.isBefore(a) || a.isAfter(a) || a < a || a > a);
    EXPECT_TRUE(a <= a && a >= a && a == a);
    EXPECT_TRUE(a < b && a <= b && b > a && b >= a && a != b && a.isBefore(b) && b.isAfter(a));
    EXPECT_FALSE(b < a || b <= a || a > b || a >= b || b.isBefore(a) || a.isAfter(b));
}

TEST(DateOperations, DaysAreThoseOfTheUsersClock) {
    Surroundings const auckland("Pacific/Auckland");
    EXPECT_TRUE(date(2015, 3, 1).isSameDayAs(date(2015, 3, 1, 23, 59, 59)));
    EXPECT_FALSE(date(2015, 3, 1).isSameDayAs(date(2015, 3, 2)));
    EXPECT_FALSE(date(2015, 3, 1).isSameDayAs(date(2015, 4, 1)) || date(2015, 3, 1).isSameDayAs(date(2016, 3, 1)));
    NSDate now; // a midnight between two of the lines below would be a reason to fail: then once more
    for (int attempt = 0; attempt < 2; ++attempt, now = NSDate::now()) {
        bool const holds = now.isToday() && !now.isTomorrow() && now.nextDay().isTomorrow() && !now.nextDay().isToday() &&
                           now.previousDay().isYesterday() && now.midnight().isToday() && now.lastSecond().isToday();
        if (holds) return;
    }
    ADD_FAILURE() << "today is no day";
}

TEST(DateOperations, MidnightsThatTheClocksSkipOrRepeat) {
    struct {
        char const* zone;
        int year, month, day, hour; // the receiver
        int midnightHour;
        double toMidnight, toLast; // from the receiver, in hours, to midnight and to lastSecond + 1
    } const rows[] = {{"Europe/Berlin", 2018, 7, 1, 12, 0, -12, 12},
                      {"America/Sao_Paulo", 2018, 11, 4, 12, 1, -11, 12},     // 00:00 is skipped
                      {"America/Sao_Paulo", 2018, 2, 17, 12, 0, -12, 13},     // 23:00 occurs twice: 23:59:59 is the later one
                      {"America/Havana", 2018, 3, 11, 12, 1, -11, 12},        // 00:00 is skipped
                      {"America/Havana", 2018, 11, 4, 12, 0, -13, 12},        // 00:00 occurs twice: midnight is the first
                      {"Atlantic/Azores", 2025, 10, 26, 12, 0, -13, 12},      // the same
                      {"Pacific/Apia", 2011, 12, 29, 12, 0, -12, 12},         // the next day is missing
                      {"Asia/Beirut", 2018, 3, 25, 12, 1, -11, 12},           // 00:00 is skipped
                      {"Asia/Beirut", 2018, 10, 27, 12, 0, -12, 13},          // 23:00 occurs twice
                      {"Australia/Lord_Howe", 2018, 10, 7, 12, 0, -11.5, 12}, // half an hour is skipped
                      {"Pacific/Chatham", 2018, 4, 1, 12, 0, -13, 12}};
    for (auto const& row : rows) {
        Surroundings const place(row.zone);
        auto const receiver = date(row.year, row.month, row.day, row.hour).dateByAddingTimeInterval(0.75);
        auto const midnight = receiver.midnight(), last = receiver.lastSecond();
        EXPECT_EQ(midnight.hour(), row.midnightHour) << row.zone;
        EXPECT_EQ(midnight.timeIntervalSinceDate(receiver), row.toMidnight * 3600 - 0.75) << row.zone << " " << row.month;
        EXPECT_EQ(last.timeIntervalSinceDate(receiver), row.toLast * 3600 - 1.75) << row.zone << " " << row.month;
        EXPECT_EQ((std::tuple{last.day(), last.hour(), last.minute(), last.second()}), (std::tuple{row.day, 23, 59, 59}))
            << row.zone;
        for (auto const& any : {midnight, last, last.dateByAddingTimeInterval(-3'600), midnight.dateByAddingTimeInterval(3'600)})
            EXPECT_TRUE(any.midnight() == midnight && any.lastSecond() == last)
                << row.zone << " " << row.month << ", asked by another";
        EXPECT_EQ(receiver.dateOnly(), midnight);
        EXPECT_EQ(receiver.timeOnly(), receiver) << "strips nothing";
    }
}

TEST(DateOperations, ChangesDropTheFractionAndCarryOver) {
    Surroundings const berlin("Europe/Berlin");
    auto const start = date(2024, 2, 29, 12, 30, 45), fraction = start.dateByAddingTimeInterval(0.75);
    EXPECT_EQ(fraction.dateByChanging({}), start);
    EXPECT_EQ(date(-44, 3, 15, 9).dateByChanging({}), date(-44, 3, 15, 9)) << "years before 1 are found again";
    EXPECT_EQ(fraction.dateByAdding({}), fraction);
    EXPECT_EQ(fraction.dateByAdding({.years = 1}), date(2025, 2, 28, 12, 30, 45).dateByAddingTimeInterval(0.75));
    EXPECT_EQ(fraction.noon(), date(2024, 2, 29, 12));
    EXPECT_EQ(start.dateByChanging({.second = 1, .minute = 2, .hour = 3, .day = 4, .month = 5, .year = 2026}),
              date(2026, 5, 4, 3, 2, 1));
    EXPECT_EQ(start.dateByChanging({.day = 0}), date(2024, 1, 31, 12, 30, 45));
    EXPECT_EQ(start.dateByChanging({.year = 2025}), date(2025, 3, 1, 12, 30, 45)) << "the 29th carries over, unlike in a sum";
    EXPECT_EQ(start.dateByAdding({.seconds = 15, .minutes = 29, .hours = 11, .days = 1, .months = 1, .years = 1}),
              date(2025, 3, 30));
    EXPECT_EQ(start.nextDay(), date(2024, 3, 1, 12, 30, 45));
    EXPECT_EQ(start.nextDay().previousDay(), start);
    EXPECT_EQ(start.dateBySettingDate(date(2018, 7, 8, 1)), date(2018, 7, 8, 12, 30, 45));
    EXPECT_EQ(start.dateBySettingTime(date(2018, 7, 8, 1)), date(2024, 2, 29, 1));
    EXPECT_EQ(fraction.dateBySettingDate({}), fraction);
    EXPECT_EQ(fraction.dateBySettingTime({}), fraction);

    auto const far = NSDate::dateWithTimeIntervalSinceReferenceDate(1e300);
    constexpr auto huge = std::numeric_limits<std::int64_t>::max();
    EXPECT_TRUE(far.midnight() == far && far.nextDay() == far && far.dateBySettingDate(start) == far &&
                far.dateBySettingTime(start) == far);
    EXPECT_EQ(fraction.dateBySettingDate(far), fraction);
    EXPECT_EQ(fraction.dateByAdding({.months = huge}), fraction);
    EXPECT_EQ(fraction.dateByChanging({.year = huge}), fraction);
}

TEST(DateOperations, FollowAnotherZoneWithoutBeingTold) {
    Surroundings const berlin("Europe/Berlin");
    auto const moment = date(2015, 3, 1, 12);
    tests::Environment const tokyo("TZ", "Asia/Tokyo");
    auto const start = NSDate::now();
    while (moment.hour() != 20 && start.timeIntervalSinceNow() > -60) std::this_thread::yield();
    EXPECT_EQ(moment.hour(), 20) << "within a second, usually";
}

TEST(DateOperations, AZoneThatChangesMeanwhileIsSeenWholeOrNotAtAll) {
    Surroundings const utc("UTC");
    auto const moment = date(2015, 3, 1, 12, 30);
    Ref<NSTimeZone> const zones[] = {NSTimeZone::timeZoneForSecondsFromGMT(3'600), NSTimeZone::timeZoneForSecondsFromGMT(-7'200)};
    std::set<double> const noons{date(2015, 3, 1, 11).timeIntervalSinceReferenceDate(),
                                 date(2015, 3, 1, 14).timeIntervalSinceReferenceDate()};
    std::set<std::string> const texts{"1:30\u202fPM", "10:30\u202fAM", "1:30 PM", "10:30 AM"};
    NSTimeZone::setDefaultTimeZone(zones[0]);
    std::atomic<int> wrong = 0, running = 3;
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 3; ++thread)
        threads.emplace_back([&] {
            for (int round = 0; round < 2'000; ++round) {
                wrong += !noons.contains(moment.noon().timeIntervalSinceReferenceDate());
                if (round % 20 == 0) wrong += !texts.contains(moment.localTimeString(Style::No, Style::Short));
                if (round % 20 == 0) wrong += NSDate::ageString(300) != "5m";
            }
            --running;
        });
    for (std::size_t turn = 0; running > 0; ++turn) NSTimeZone::setDefaultTimeZone(zones[turn % 2]);
    threads.clear();
    NSTimeZone::setDefaultTimeZone(nullptr);
    EXPECT_EQ(wrong, 0);
}

TEST(DateOperations, SpeakTheUsersLanguageInTheUsersCalendar) {
    struct {
        char const* locale;
        char const *text, *weekday, *month, *shortMonth;
        std::int64_t year;
    } const rows[] = {{"de_DE.UTF-8", "Sonntag, 1. März 2015", "Sonntag", "März", "März", 2015},
                      {"en_GB@euro", "Sunday, 1 March 2015", "Sunday", "March", "Mar", 2015},
                      {"th_TH.UTF-8", "วันอาทิตย์ที่ 1 มีนาคม พ.ศ. 2558", "วันอาทิตย์", "มีนาคม", "มี.ค.", 2558},
                      {"fa_IR", "۱۳۹۳ اسفند ۱۰, یکشنبه", "یکشنبه", nullptr, nullptr, 1393},
                      {"sr_RS.UTF-8@latin", "nedelja, 1. mart 2015.", "nedelja", "mart", "mar", 2015},
                      {"ja_JP.UTF-8@calendar=japanese", "平成27年3月1日日曜日", "日曜日", "3月", "3月", 27}, // 1980 was of another era
                      {"C", "Sunday, March 1, 2015", "Sunday", "March", "Mar", 2015},
                      {"xx_YY.UTF-8", "Sunday, March 1, 2015", "Sunday", "March", "Mar", 2015},
                      {"../../etc", nullptr, "Sunday", "March", "Mar", 2015},
                      {"", nullptr, nullptr, nullptr, nullptr, 2015}};
    for (auto const& row : rows) {
        Surroundings const place("Europe/Berlin", row.locale);
        auto const moment = date(2015, 3, 1, 12, 30);
        if (row.text) { EXPECT_EQ(moment.localTimeString(Style::Full, Style::No), row.text) << row.locale; }
        if (row.weekday) { EXPECT_EQ(moment.dayOfWeek().name(), row.weekday) << row.locale; }
        if (row.month) { EXPECT_EQ(DateMonth::March.name(), row.month) << row.locale; }
        if (row.shortMonth) { EXPECT_EQ(DateMonth::March.shortName(), row.shortMonth) << row.locale; }
        EXPECT_EQ(moment.year(), row.year) << row.locale;
        EXPECT_EQ(moment.dateByChanging({}), moment) << row.locale;
        EXPECT_EQ(moment.dateBySettingDate(date(1980, 5, 5)), date(1980, 5, 5, 12, 30)) << row.locale;
    }
}

TEST(DoubleTime, TotalsAreTruncatedTowardZero) {
    EXPECT_EQ(Double::days(90'000), 1);
    EXPECT_EQ(Double::hours(90'000), 25);
    EXPECT_EQ(Double::minutes(-90.0), -1);
    EXPECT_EQ(Double::days(86'399.9), 0);
    EXPECT_EQ(Double::seconds(-0.9), 0);
    EXPECT_EQ(Double::seconds(-0x1p63), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(Double::minutes(0x1p63), 153'722'867'280'912'928) << "fits after the division";
    EXPECT_DEATH(Double::seconds(0x1p63), "Double::seconds: 9.2[0-9e+]+ is no 64-bit integer\n");
    EXPECT_DEATH(Double::days(NAN), "Double::days: nan is no");
    EXPECT_DEATH(Double::hours(-INFINITY), "Double::hours: -inf is no");
}

} // namespace
} // namespace Tessarin
