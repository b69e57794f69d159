#include "Tessarin/platform/foundation/time/CivilDate.h"
#include "Tessarin/platform/foundation/time/NSDate.h"

#include <chrono>
#include <gtest/gtest.h>

namespace Tessarin {
namespace {

TEST(CivilDate, IsJulianBeforeTheReformAndWithoutGaps) {
    EXPECT_EQ(civilFromDays(daysFromCivil({1582, 10, 15}) - 1), (CivilDate{1582, 10, 4}));
    EXPECT_EQ(daysFromCivil({1582, 10, 5}), daysFromCivil({1582, 10, 15})) << "days that never were count on from the 4th";
    EXPECT_EQ(daysFromCivil({1500, 3, 1}) - daysFromCivil({1500, 2, 28}), 2) << "1500 was a leap year then";
    EXPECT_EQ(daysInMonth(1500, 2), 29);
    EXPECT_EQ(daysInMonth(1900, 2), 28);
    EXPECT_EQ(daysInMonth(2000, 2), 29);
    auto previous = civilFromDays(-2'000'000);
    for (std::int64_t number = -1'999'999; number < -150'000; ++number) {
        auto const date = civilFromDays(number);
        ASSERT_EQ(daysFromCivil(date), number);
        ASSERT_TRUE(date.day == previous.day + 1 || date.day == 1 || number == daysFromCivil({1582, 10, 15})) << number;
        previous = date;
    }
    EXPECT_EQ(daysFromCivil({2001, 14, 0}), daysFromCivil({2002, 1, 31})) << "months and days carry over";
    EXPECT_EQ(daysFromCivil({2001, -1, 1}), daysFromCivil({2000, 11, 1}));
}

TEST(NSDate, CountsFromItsReference) {
    auto const date = NSDate::dateWithTimeIntervalSince1970(0);
    EXPECT_EQ(date.timeIntervalSinceReferenceDate(), -978307200);
    EXPECT_EQ(date.dateByAddingTimeInterval(1.5).timeIntervalSinceDate(date), 1.5);
    EXPECT_EQ(date.earlierDate(NSDate::distantPast()), NSDate::distantPast());
    EXPECT_EQ(date.laterDate(NSDate::distantPast()), date);
    auto const system = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    EXPECT_NEAR(NSDate::now().timeIntervalSince1970(), system, 5);

    struct {
        NSDate date;
        char const* text;
    } const rows[] = {{date, "1970-01-01 00:00:00 +0000"},
                      {NSDate::dateWithTimeIntervalSinceReferenceDate(-0.5), "2000-12-31 23:59:59 +0000"},
                      {NSDate::distantPast(), "0001-01-01 00:00:00 +0000"},
                      {NSDate::distantFuture(), "4001-01-01 00:00:00 +0000"}};
    for (auto const& row : rows) EXPECT_EQ(row.date.description(), row.text);
}

TEST(NSDate, ReadsTheISOFormStrictly) {
    std::pair<char const*, char const*> const rows[] = {{"2015-03-01T12:30:45.000+0100", "2015-03-01 11:30:45 +0000"},
                                                       {"2015-03-01T00:30:00.000-08:30", "2015-03-01 09:00:00 +0000"},
                                                       {"2016-02-29T23:59:59.999Z", "2016-02-29 23:59:59 +0000"},
                                                       {"1582-10-04T00:00:00.000Z", "1582-10-04 00:00:00 +0000"}};
    for (auto const& [text, description] : rows) EXPECT_EQ(NSDate::dateWithISO8601Text(text).value().description(), description);
    for (auto const* text :
         {"1582-10-05T00:00:00.000Z", "2015-02-29T00:00:00.000Z", "2015-04-31T00:00:00.000Z", "2015-13-01T00:00:00.000Z",
          "2015-03-01T24:00:00.000Z", "2015-03-01T00:60:00.000Z", "2015-03-01T00:00:60.000Z", "2015-03-01T00:00:00Z",
          "2015-03-01T00:00:00.00Z", "2015-03-01T00:00:00.0000Z", "2015-03-01T00:00:00.000", "2015-03-01T00:00:00.000+01",
          "2015-03-01T00:00:00.000+2400", "2015-03-01 00:00:00.000Z", "2015-3-01T00:00:00.000Z",
          "+015-03-01T00:00:00.000Z", "2015-03-01T00:00:00.000Z ", ""})
        EXPECT_FALSE(NSDate::dateWithISO8601Text(text)) << text;
    EXPECT_EQ(NSDate::dateWithISO8601Text("2001-01-01T00:00:00.250Z")->timeIntervalSinceReferenceDate(), 0.25);
}

TEST(NSDate, ReadsTheMailFormStrictly) {
    std::pair<char const*, char const*> const rows[] = {{"Sun, 01 Mar 2015 12:30:45 GMT", "2015-03-01 12:30:45 +0000"},
                                                       {"Sun, 01 Mar 2015 12:30:45 UTC", "2015-03-01 12:30:45 +0000"},
                                                       {"Sun, 01 Mar 2015 12:30:45 PDT", "2015-03-01 19:30:45 +0000"},
                                                       {"Sun, 01 Mar 2015 12:30:45 EST", "2015-03-01 17:30:45 +0000"},
                                                       {"Sun, 01 Mar 2015 12:30:45 +0100", "2015-03-01 11:30:45 +0000"},
                                                       {"Sun, 01 Mar 2015 00:30:45 GMT+01:00", "2015-02-28 23:30:45 +0000"}};
    for (auto const& [text, description] : rows) EXPECT_EQ(NSDate::dateWithRFC822Text(text).value().description(), description);
    for (auto const* text :
         {"Mon, 01 Mar 2015 12:30:45 GMT", "Sun, 1 Mar 2015 12:30:45 GMT", "Sun 01 Mar 2015 12:30:45 GMT",
          "sun, 01 Mar 2015 12:30:45 GMT", "Sun, 01 MAR 2015 12:30:45 GMT", "Sun, 01 arA 2015 12:30:45 GMT",
          "Sun, 01 Mar 15 12:30:45 GMT", "Sun, 01 Mar 2015 12:30 GMT", "Sun, 01 Mar 2015 12:30:45",
          "Sun, 01 Mar 2015 12:30:45 CET", "Sun, 01 Mar 2015 12:30:45 GMTx"})
        EXPECT_FALSE(NSDate::dateWithRFC822Text(text)) << text;
    EXPECT_EQ(NSDate::dateWithRFC822Text("Wed, 31 Dec 1969 23:59:59 GMT")->timeIntervalSince1970(), -1);
}

} // namespace
} // namespace Tessarin
