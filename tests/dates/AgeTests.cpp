// Ages and durations as text, and the words in the user's language.
#include "Tessarin/platform/foundation/bundles/NSBundle.h"
#include "Tessarin/platform/foundation/bundles/NSLocalizedString.h"

#include "tests/dates/DateFixture.h"
#include <cmath>
#include <cstdlib>
#include <sys/wait.h>

namespace Tessarin {
namespace {

using Style = NSDateFormatterStyle;
using tests::Surroundings;
using tests::TemporaryFolder;
constexpr double day = 86'400;

TEST(DateAges, AreRoundedDownInTheLargestUnit) {
    struct {
        double seconds;
        Style style;
        char const* text;
    } const rows[] = {{0, Style::No, "now"}, {0, Style::Full, "now"}, {0.9, Style::Short, "now"}, {-0.9, Style::Long, "now"},
                      {1, Style::Short, "1s"}, {59, Style::Short, "59s"}, {60, Style::Short, "1m"}, {3'599, Style::Short, "59m"},
                      {3'600, Style::Short, "1h"}, {day - 1, Style::Short, "23h"}, {day, Style::Short, "1d"},
                      {day * 7 - 1, Style::Short, "6d"}, {day * 7, Style::Short, "1w"}, {day * 29, Style::Short, "4w"},
                      {day * 30, Style::Short, "1mo"}, {day * 359, Style::Short, "11mo"}, {day * 360, Style::Short, "1y"},
                      {day * 720 - 1, Style::Short, "1y"}, {1e12, Style::Short, "32150y"}, {3'600, Style::No, ""},
                      {-7'200, Style::Medium, "2 h"}, {300, Style::Medium, "5 m"}, {300, Style::Long, "5 min"},
                      {45, Style::Long, "45 sec"}, {7'200, Style::Long, "2 hr"}, {day * 6, Style::Long, "6 days"},
                      {day * 7, Style::Long, "1 wk"}, {day * 61, Style::Long, "2 mos"}, {day * 360, Style::Long, "1 yr"},
                      {1, Style::Full, "1 second"}, {2, Style::Full, "2 seconds"}, {119, Style::Full, "1 minute"},
                      {120, Style::Full, "2 minutes"}, {3'600, Style::Full, "1 hour"}, {day * 2 - 1, Style::Full, "1 day"},
                      {day * 2, Style::Full, "2 days"}, {day * 7, Style::Full, "1 week"}, {day * 30, Style::Full, "1 month"},
                      {day * 359, Style::Full, "11 months"}, {day * 365, Style::Full, "1 year"},
                      {day * 720, Style::Full, "2 years"}, {300, static_cast<Style>(5), "5m"},
                      {300, static_cast<Style>(-1), "5m"}};
    for (auto const& row : rows) EXPECT_EQ(NSDate::ageString(row.seconds, row.style), row.text) << row.seconds;
    EXPECT_EQ(NSDate::ageString(60), "1m");
    EXPECT_DEATH(NSDate::ageString(NAN), "nan is no 64-bit integer\n");
    EXPECT_DEATH(NSDate::ageString(0x1p63), "is no 64-bit integer");
    EXPECT_DEATH(NSDate::ageString(-0x1p63), "NSDate::ageString: -9223372036854775808 has no absolute value\n");
}

TEST(DateAges, DurationsAreExactUntilTheTwelfthCharacter) {
    struct {
        double seconds;
        char const* text;
    } const rows[] = {{0, "0.0 s"}, {0.25, "0.25 s"}, {-12, "12.0 s"}, {3.14159265358979, "3.1415926535 s"},
                      {12.345678, "12.345678 s"}, {1e-5, "1e-05 s"}, {1.2345678901e-7, "1.2345678901 s"},
                      {123'456'789'012, "123456789012 s"}};
    auto const start = NSDate::dateWithTimeIntervalSinceReferenceDate(0);
    for (auto const& row : rows) EXPECT_EQ(start.dateByAddingTimeInterval(row.seconds).durationStringRelativeTo(start), row.text);
}

constexpr char const* german =
    "/* long minutes */\n\"minutes\" = \"Minuten\";\n// alone\n\"1 hour\"=\"eine \\\"Stunde\\\"\";now = \"jetzt\\U00e4\";\n";

/// Run by the next test in a copy of this program, beside which the texts lie.
TEST(DateAges, DISABLED_Child) {
    EXPECT_EQ(NSDate::ageString(120, Style::Full), "2 Minuten");
    EXPECT_EQ(NSDate::ageString(0), "jetztä");
    EXPECT_EQ(NSDate::ageString(7'200, Style::Full), "2 hours") << "no text: the key";
}

TEST(DateAges, RelativeOnesHaveThePluralsOfTheLanguage) {
    struct {
        char const* locale;
        double seconds;
        Style style;
        char const* text;
    } const rows[] = {{"en_US", 3 * day, Style::Full, "3 days ago"}, {"en_US", -61, Style::Full, "in 1 minute"},
                      {"en_US", 0.5, Style::Full, "now"}, {"en_US", 90 * day, Style::Medium, "3 mo. ago"},
                      {"en_US", 3 * day, Style::No, ""}, {"de_DE", 14 * day, Style::Full, "vor 2 Wochen"},
                      {"pl_PL", 2 * day, Style::Full, "2 dni temu"}, {"pl_PL", 3 * 3'600, Style::Full, "3 godziny temu"},
                      {"pl_PL", 5 * 3'600, Style::Full, "5 godzin temu"}, {"ru_RU", 360 * day, Style::Full, "1 год назад"}};
    for (auto const& row : rows) {
        Surroundings const place("UTC", row.locale);
        EXPECT_EQ(NSDate::relativeAgeString(row.seconds, row.style), row.text) << row.locale << " " << row.seconds;
    }
}

TEST(DateAges, SpeakTheLanguageOfTheMainBundle) {
    TemporaryFolder const folder;
    folder.write("de.lproj/Localizable.strings", german);
    std::filesystem::copy_file("/proc/self/exe", folder.path("program"));
    tests::Environment const locale("LC_ALL", "de_AT.UTF-8");
    auto const command =
        folder.path("program") + " --gtest_also_run_disabled_tests --gtest_filter=DateAges.DISABLED_Child >" + folder.path("log");
    EXPECT_EQ(std::system(command.c_str()), 0) << folder.read("log");
}

TEST(NSBundle, TextsFollowTheUsersLanguages) {
    TemporaryFolder const folder;
    folder.write("Resources/de.lproj/Localizable.strings", german);
    folder.write("Resources/pt-BR.lproj/Localizable.strings", std::string_view("\xFF\xFEn\0o\0w\0=\0\"\0j\0\xE1\0\"\0;\0", 20));
    folder.write("Resources/en.lproj/Localizable.strings", "now = \"right now\"; broken = ; \"never\" = \"read\";");
    folder.write("Resources/en.lproj/Other.strings",
                 "<?xml version=\"1.0\"?><plist><dict><key>now</key><string>other</string></dict></plist>");
    folder.write("Resources/zh-Hans.lproj/Localizable.strings", "now = \"现在\";");
    folder.write("Resources/zh-Hant.lproj/Localizable.strings", "now = \"現在\";");
    folder.write("Info.plist", "<plist><dict><key>CFBundleDevelopmentRegion</key><string>en</string></dict></plist>");
    auto const bundle = NSBundle::bundleWithPath(folder.path());
    struct {
        char const *messages, *languages;
        char const *now, *hour;
    } const rows[] = {{"de_DE.UTF-8", "", "jetztä", "eine \"Stunde\""}, {"pt_BR", "", "já", "1 hour"},
                      {"pt_PT", "", "right now", "1 hour"}, {"fr_FR", "fr:de", "jetztä", "eine \"Stunde\""},
                      {"zh_CN.UTF-8", "", "现在", "1 hour"}, {"zh_TW", "", "現在", "1 hour"}, // by the script of the country
                      {"C", "de", "right now", "1 hour"}, {"", "", "right now", "1 hour"}};
    for (auto const& row : rows) {
        tests::Environment const all("LC_ALL", ""), plain("LANG", ""), messages("LC_MESSAGES", row.messages),
            languages("LANGUAGE", row.languages);
        NSTimeZone::resetSystemTimeZone();
        EXPECT_EQ(bundle->localizedStringForKey("now"), row.now) << row.messages;
        EXPECT_EQ(bundle->localizedStringForKey("1 hour"), row.hour) << row.messages;
        EXPECT_EQ(bundle->localizedStringForKey("now", "", "Other"), "other");
        EXPECT_EQ(bundle->localizedStringForKey("never", "a value"), "a value") << "nothing is read after what is broken";
    }
}

} // namespace
} // namespace Tessarin
