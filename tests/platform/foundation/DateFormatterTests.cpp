// Dates as text and back.
#include "Tessarin/platform/foundation/time/NSDateFormatter.h"
#include "Tessarin/platform/foundation/time/NSTimeZone.h"

#include "tests/support/TemporaryFolder.h"
#include <gtest/gtest.h>

namespace Tessarin {
namespace {

using tests::Environment;
using Style = NSDateFormatterStyle;

NSDate const moment = NSDate::dateWithISO8601Text("2015-03-01T12:30:45.250Z").value();

TEST(NSDateFormatter, FollowsTheEnvironment) {
    // LC_TIME decides when LC_ALL is silent, LANG when both are; in a zone whose rules changed after ICU 72 was made.
    Environment const all("LC_ALL", ""), time("LC_TIME", "fr_FR.UTF-8"), language("LANG", "de_DE.UTF-8"),
        zone("TZ", "Asia/Almaty");
    NSTimeZone::resetSystemTimeZone();
    auto const formatter = make<NSDateFormatter>();
    EXPECT_EQ(formatter->stringFromDate(moment), "") << "nothing to write";
    formatter->setDateFormat("EEEE d MMMM yyyy HH:mm:ss.SSS Z");
    EXPECT_EQ(formatter->stringFromDate(moment), "dimanche 1 mars 2015 18:30:45.250 +0600");
    EXPECT_EQ(formatter->stringFromDate(moment.dateByAddingTimeInterval(3'653 * 86'400.0)),
              "samedi 1 mars 2025 17:30:45.250 +0500");
    formatter->setDateFormat("");
    formatter->setDateStyle(Style::Short);
    EXPECT_EQ(formatter->stringFromDate(moment), "01/03/2015");
    formatter->setTimeStyle(static_cast<Style>(9));
    EXPECT_EQ(formatter->stringFromDate(moment), "01/03/2015 18:30") << "any other style is short";
    Environment const silent("LC_TIME", "");
    NSTimeZone::resetSystemTimeZone();
    EXPECT_EQ(formatter->stringFromDate(moment), "01.03.15, 18:30");
    EXPECT_EQ(formatter->shortWeekdaySymbols(), (std::vector<std::string>{"So.", "Mo.", "Di.", "Mi.", "Do.", "Fr.", "Sa."}));
    EXPECT_EQ(formatter->monthSymbols().size(), 12U);
    Environment const ireland("TZ", "Europe/Dublin"), english("LANG", "en_IE");
    NSTimeZone::resetSystemTimeZone();
    formatter->setDateFormat("HH:mm zzzz");
    EXPECT_EQ(formatter->stringFromDate(moment), "12:30 Greenwich Mean Time")
        << "daylight saving is the winter's there, by its flag";
    EXPECT_EQ(formatter->stringFromDate(moment.dateByAddingTimeInterval(120 * 86'400)), "13:30 Irish Standard Time");
}

TEST(NSDateFormatter, WhatMachinesReadIsWrittenForThem) {
    for (auto const* locale : {"th_TH.UTF-8", "ar_EG.UTF-8", "ja_JP.UTF-8@calendar=japanese", "de_DE.UTF-8"}) {
        Environment const all("LC_ALL", locale), zone("TZ", "Asia/Bangkok");
        NSTimeZone::resetSystemTimeZone();
        auto const formatter = make<NSDateFormatter>();
        formatter->setDateFormat(NSDateFormatter::ISO8601Format);
        EXPECT_EQ(formatter->stringFromDate(moment), "2015-03-01T19:30:45.250+0700") << locale;
        formatter->setDateFormat(NSDateFormatter::RFC822Format);
        EXPECT_EQ(formatter->stringFromDate(moment), "Sun, 01 Mar 2015 19:30:45 GMT+7") << locale;
    }
}

TEST(NSDateFormatter, ReadsStrictlyAfterTheTwoFixedForms) {
    Environment const all("LC_ALL", "fr_FR.UTF-8"), zone("TZ", "Europe/Paris");
    NSTimeZone::resetSystemTimeZone();
    auto const whole = moment.dateByAddingTimeInterval(-0.25);
    struct {
        std::string_view format;
        char const* text;
        std::optional<NSDate> date;
    } const rows[] = {{NSDateFormatter::ISO8601Format, "2015-03-01T13:30:45.250+01:00", moment},
                      {NSDateFormatter::ISO8601Format, "2015-02-29T13:30:45.250+0100", {}},
                      {NSDateFormatter::ISO8601Format, "2015-03-01T13:30:45.250+0100 ", {}},
                      {NSDateFormatter::RFC822Format, "Sun, 01 Mar 2015 12:30:45 GMT", whole}, // English wherever it is read
                      {NSDateFormatter::RFC822Format, "dim., 01 mars 2015 13:30:45 +01:00", whole},
                      {NSDateFormatter::RFC822Format, "dim., 01 mars 2015 12:30:45 GMT", whole},
                      {"d MMMM yyyy HH:mm:ss", "1 mars 2015 13:30:45", whole},
                      {"d MMMM yyyy HH:mm:ss", "31 avril 2015 13:30:45", {}},
                      {"d MMMM yyyy HH:mm:ss", "1 March 2015 13:30:45", {}},
                      {"d MMMM yyyy HH:mm:ss", "", {}},
                      {NSDateFormatter::ISO8601Format, "2015-03-01T13:30:45.25000000000000000000000000000000000+0100", {}},
                      {NSDateFormatter::ISO8601Format, "2015-03-01T13:30:45.٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢٢+0100", {}},
                      {"", "1 mars 2015", {}}};
    auto const formatter = make<NSDateFormatter>();
    for (auto const& row : rows) {
        formatter->setDateFormat(row.format);
        EXPECT_EQ(formatter->dateFromString(row.text), row.date) << row.text;
    }
}

} // namespace
} // namespace Tessarin
