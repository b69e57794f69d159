#include "Tessarin/keyaccess/KVC.h"
#include "Tessarin/platform/foundation/geometry/NSColor.h"
#include "Tessarin/platform/foundation/geometry/NSRect.h"

#include <bit>
#include <cmath>
#include <gtest/gtest.h>
#include <random>

namespace Tessarin {
namespace {

static_assert(std::is_aggregate_v<NSPoint> && std::is_aggregate_v<NSRect> && sizeof(NSRect) == 4 * sizeof(double));

TEST(GeometryText, ReadsBackExactlyWhatItWritesAndNothingElse) {
    std::mt19937_64 random(7);
    for (int round = 0; round < 20'000; ++round) {
        NSSize const size{std::bit_cast<double>(random()), std::bit_cast<double>(random())};
        ASSERT_TRUE(NSSize::fromString(size.description()) == size || std::isnan(size.width + size.height)) << size;
    }
    EXPECT_EQ((NSRect{{0, 0}, {10, 20}}.description()), "{{0, 0}, {10, 20}}");
    EXPECT_EQ((NSSize{-HUGE_VAL, -std::nan("")}.description()), "{-inf, nan}");
    EXPECT_EQ(NSEdgeInsets::fromString("{1,2,3,4}"), (NSEdgeInsets{.top = 1, .left = 2, .bottom = 3, .right = 4}));
    EXPECT_EQ(NSColor::fromString(" { 0.25 , 1,0,\t5e-1}\n"), (NSColor{0.25, 1, 0, 0.5}));
    EXPECT_TRUE(std::isnan(NSPoint::fromString("{nan, 0}")->x));
    for (auto const* text :
         {"", "{}", "{1}", "{1, 2", "1, 2", "{1, 2}}", "{1, 2, 3}", "{1 2}", "{1,, 2}", "{1, 2} x", "{a, 2}", "{1, +2}",
          "{1, 0x2}", "{1, 1e999}", "{infinity, 1}", "{INF, 1}", "{nan(7), 1}", "{-nan, 1}", "{--1, 2}"})
        EXPECT_EQ(NSPoint::fromString(text), std::nullopt) << text;
    for (auto const* text : {"{1, 2, 3, 4}", "{{1, 2}, {3}}", "{{1, 2} {3, 4}}", "{{1, 2}, {3, 4}"})
        EXPECT_EQ(NSRect::fromString(text), std::nullopt) << text;
}

TEST(GeometryValues, HashByTheirNumbersAndAreReadByKey) {
    EXPECT_NE(std::hash<NSPoint>{}({1, 2}), std::hash<NSPoint>{}({2, 1}));
    EXPECT_EQ(std::hash<NSPoint>{}({0.0, 1}), std::hash<NSPoint>{}({-0.0, 1})) << "they are equal";
    EXPECT_EQ(valueForKeyPath<double>(NSRect{{1, 2}, {3, 4}}, "origin.y"), 2);
    EXPECT_EQ(valueForKey<double>(NSEdgeInsets{.left = 5}, "left"), 5);
}

TEST(NSColor, HexTextGoesBothWays) {
    for (int value = 0; value < 256; ++value) {
        NSColor const color{value / 255.0, (255 - value) / 255.0, 1, value / 255.0};
        ASSERT_EQ(NSColor::fromHexText(color.hexText()), color) << value;
    }
    for (auto const& [text, written] :
         {std::pair("FF8000", "#ff8000"), {"#f80", "#ff8800"}, {"#F80c", "#ff8800cc"}, {"#000000ff", "#000000"}})
        EXPECT_EQ(NSColor::fromHexText(text)->hexText(), written) << text;
    for (auto const* text :
         {"", "#", "#12", "#12345", "#1234567", "#123456789", "##123", "#12345g", "#-12345", " #123", "#ff 800"})
        EXPECT_EQ(NSColor::fromHexText(text), std::nullopt) << text;
    EXPECT_EQ((NSColor{-1, 7, std::nan(""), HUGE_VAL}.hexText()), "#00ff00") << "the nearest inside";
    EXPECT_EQ((NSColor{1, 0, 0}.interpolated({0, 0, 1, 0.5}, 0.25)), (NSColor{0.75, 0, 0.25, 0.875}));
    EXPECT_EQ((NSColor{1, 0, 0}.interpolated({0, 0, 1}, 2)), (NSColor{0, 0, 1}));
}

} // namespace
} // namespace Tessarin
