#include "Tessarin/keyaccess/KVC.h"
#include "Tessarin/platform/foundation/geometry/NSColor.h"
#include "Tessarin/platform/foundation/geometry/NSRect.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>

namespace Tessarin {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

static_assert(std::is_aggregate_v<NSPoint> && std::is_aggregate_v<NSSize> && std::is_aggregate_v<NSRect>);
static_assert(std::is_aggregate_v<NSEdgeInsets> && std::is_aggregate_v<NSColor> && sizeof(NSRect) == 4 * sizeof(double));

TEST(GeometryText, ReadsBackExactlyWhatItWrites) {
    std::mt19937_64 random(7);
    for (int round = 0; round < 20'000; ++round) {
        double parts[4];
        for (auto& part : parts) do
                part = std::bit_cast<double>(random());
            while (std::isnan(part));
        NSRect const rect{{parts[0], parts[1]}, {parts[2], parts[3]}};
        ASSERT_EQ(NSRect::fromString(rect.description()), rect) << rect;
    }
    EXPECT_EQ((NSRect{{0, 0}, {10, 20}}.description()), "{{0, 0}, {10, 20}}");
    EXPECT_EQ((NSPoint{-0.5, 1e300}.description()), "{-0.5, 1e+300}");
    EXPECT_EQ((NSSize{infinity, -std::nan("")}.description()), "{inf, nan}");
    EXPECT_EQ((NSEdgeInsets{.top = 1, .left = 2, .bottom = 3, .right = 4}.description()), "{1, 2, 3, 4}");
    EXPECT_EQ(NSEdgeInsets::fromString("{1,2,3,4}"), (NSEdgeInsets{1, 2, 3, 4}));
    EXPECT_EQ(NSColor::fromString(" { 0.25 , 1,0,\t0.5}\n"), (NSColor{0.25, 1, 0, 0.5}));
    EXPECT_EQ(NSSize::fromString("{1e-3,-inf}"), (NSSize{0.001, -infinity}));
    EXPECT_TRUE(std::isnan(NSPoint::fromString("{nan, 0}")->x));
}

TEST(GeometryText, WhatIsIllFormedIsAbsent) {
    for (auto const* text :
         {"",         "{}",          "{1}",       "{1, 2",   "1, 2",     "{1, 2}}",  "{1, 2, 3}",  "{1 2}",
          "{1,, 2}",  "{1, 2} x",    "{a, 2}",    "{1, +2}", "{1, 0x2}", "{1, 2.}.", "{1, 1e999}", "{infinity, 1}",
          "{INF, 1}", "{nan(7), 1}", "{-nan, 1}", "{--1, 2}"})
        EXPECT_EQ(NSPoint::fromString(text), std::nullopt) << text;
    EXPECT_EQ(NSPoint::fromString(std::string_view("{1, 2}\0", 7)), std::nullopt);
    for (auto const* text : {"{1, 2, 3, 4}", "{{1, 2}, {3}}", "{{1, 2} {3, 4}}", "{{1, 2}, {3, 4}"})
        EXPECT_EQ(NSRect::fromString(text), std::nullopt) << text;
}

TEST(GeometryValues, EqualOnesHashAlikeAndNeighboursDoNot) {
    std::hash<NSRect> const hash;
    EXPECT_EQ(hash({{0.0, 1}, {-0.0, 2}}), hash({{-0.0, 1}, {0.0, 2}}));
    std::vector<std::size_t> seen;
    for (int at = 0; at < 10'000; ++at)
        seen.push_back(hash({{double(at % 10), double(at / 10 % 10)}, {double(at / 100 % 10), double(at / 1000)}}));
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(std::unique(seen.begin(), seen.end()), seen.end());
    EXPECT_NE(std::hash<NSPoint>{}({1, 2}), std::hash<NSPoint>{}({2, 1}));
    EXPECT_NE((NSPoint{std::nan(""), 0}), (NSPoint{std::nan(""), 0}));
}

TEST(GeometryValues, FieldsAreFoundByKey) {
    NSRect const rect{{1, 2}, {3, 4}};
    EXPECT_EQ(valueForKeyPath<double>(rect, "origin.y"), 2);
    EXPECT_EQ(valueForKeyPath<double>(rect, "size.width"), 3);
    EXPECT_EQ(valueForKey<NSSize>(rect, "size"), (NSSize{3, 4}));
    EXPECT_EQ(valueForKey<double>(NSEdgeInsets{.left = 5}, "left"), 5);
    EXPECT_EQ(valueForKey<double>(NSColor{.green = 0.5}, "green"), 0.5);
}

TEST(NSColor, HexTextGoesBothWays) {
    for (int value = 0; value < 256; ++value) {
        NSColor const color{value / 255.0, (255 - value) / 255.0, 1, value / 255.0};
        ASSERT_EQ(NSColor::fromHexText(color.hexText()), color) << value;
    }
    struct {
        char const* text;
        std::optional<NSColor> color;
        char const* written;
    } const rows[] = {{"#ff8000", NSColor{1, 128 / 255.0, 0}, "#ff8000"},
                      {"FF8000", NSColor{1, 128 / 255.0, 0}, "#ff8000"},
                      {"#f80", NSColor{1, 136 / 255.0, 0}, "#ff8800"},
                      {"#F80c", NSColor{1, 136 / 255.0, 0, 0.8}, "#ff8800cc"},
                      {"#00000000", NSColor{0, 0, 0, 0}, "#00000000"},
                      {"#000000FF", NSColor{}, "#000000"},
                      {"", {}, ""},
                      {"#", {}, ""},
                      {"#12", {}, ""},
                      {"#12345", {}, ""},
                      {"#1234567", {}, ""},
                      {"#123456789", {}, ""},
                      {"##123", {}, ""},
                      {"#12345g", {}, ""},
                      {"#-12345", {}, ""},
                      {" #123", {}, ""},
                      {"#ff 800", {}, ""}};
    for (auto const& row : rows) {
        auto const color = NSColor::fromHexText(row.text);
        EXPECT_EQ(color, row.color) << row.text;
        if (color) {
            EXPECT_EQ(color->hexText(), row.written);
        }
    }
    EXPECT_EQ((NSColor{-1, 7, std::nan(""), infinity}.hexText()), "#00ff00") << "the nearest inside";
    EXPECT_EQ((NSColor{1, 0, 0}.interpolated({0, 0, 1, 0.5}, 0.25)), (NSColor{0.75, 0, 0.25, 0.875}));
    EXPECT_EQ((NSColor{1, 0, 0}.interpolated({0, 0, 1}, 2)), (NSColor{0, 0, 1}));
}

} // namespace
} // namespace Tessarin
