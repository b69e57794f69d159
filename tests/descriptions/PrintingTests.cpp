#include "Tessarin/descriptions/DefaultReflectable.h"
#include "Tessarin/descriptions/PrintTo.h"
#include "Tessarin/keyaccess/KVC.h"
#include "integration/fmt/Descriptions.h"

#include <concepts>
#include <fmt/chrono.h>
#include <fmt/ranges.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <sstream>

namespace app {

using Tessarin::PrintTo;
enum class Mode { Light, Dark };
struct Point {
    int x = 0, y = 0;
    bool operator==(Point const&) const = default;
};
struct Place : Tessarin::DefaultReflectable<Place> {
    std::string name;
    Mode mode = Mode::Dark;
    bool operator==(Place const&) const = default;
};

} // namespace app

namespace other {
struct Place : Tessarin::DefaultReflectable<Place> {
    int people = 7;
};
struct Secret : Tessarin::DefaultReflectable<Secret> {
    int key = 7;
    std::string description() const { return "Secret"; }
};
} // namespace other

namespace Tessarin {
namespace {

static_assert(!std::equality_comparable<other::Place>, "the base is equal to itself, which says nothing of the rest");

app::Place const highbury{{}, "Highbury", app::Mode::Dark};

TEST(PrintTo, AFailedAssertionShowsFields) {
    EXPECT_NONFATAL_FAILURE(EXPECT_EQ((app::Point{1, 2}), (app::Point{1, 3})), "Which is: Point(x: 1, y: 3)");
    EXPECT_NONFATAL_FAILURE(EXPECT_EQ(highbury, app::Place()), "Which is: Place(name: \"Highbury\", mode: Dark)");
    EXPECT_NONFATAL_FAILURE(EXPECT_EQ(app::Mode::Dark, app::Mode::Light), "Which is: Light");
    EXPECT_EQ(testing::PrintToString(std::vector{app::Point{1, 2}}), "{ Point(x: 1, y: 2) }");
    EXPECT_EQ(testing::PrintToString(other::Place()), "Place(people: 7)") << "found by its base";
    EXPECT_EQ(testing::PrintToString(Value(List{"a"})), "[\"a\"]");
}

TEST(DefaultReflectable, GivesDescriptionAndStream) {
    std::ostringstream out;
    out << highbury << ", " << other::Secret();
    EXPECT_EQ(out.str(), "Place(name: \"Highbury\", mode: Dark), Secret");
    EXPECT_EQ(highbury.deepDescription(), "Place\n  name: \"Highbury\"\n  mode: Dark");
    EXPECT_EQ(describe(std::vector{other::Secret()}), "[Secret]") << "its own description comes first";
    EXPECT_EQ(valueForKey<std::string>(highbury, "name"), "Highbury") << "the base is no field";
}

TEST(Format, TakesWhatIsDescribedByFields) {
    EXPECT_EQ(fmt::format("{:>18}|{}|{}", app::Point{1, 2}, app::Mode::Dark, highbury),
              " Point(x: 1, y: 2)|Dark|Place(name: \"Highbury\", mode: Dark)");
    EXPECT_EQ(fmt::format("{}", std::vector{app::Point{1, 2}}), "[Point(x: 1, y: 2)]");
    EXPECT_EQ(fmt::format("{:%Y}", fmt::gmtime(std::time_t{0})), "1970") << "what fmt formats itself is left to it";
}

} // namespace
} // namespace Tessarin
