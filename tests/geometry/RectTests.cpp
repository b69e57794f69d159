#include "tests/geometry/GeometryFixture.h"

#include <gtest/gtest.h>
#include <numbers>

namespace Tessarin {
namespace {

using namespace tests;

TEST(NSPoint, OperationsAgreeWithTheirDefinitions) {
    RandomRects random;
    for (int round = 0; round < 5000; ++round) {
        NSPoint const a{random.coordinate(), random.coordinate()}, b{random.coordinate(), random.coordinate()};
        auto const span = a.length() + b.length();
        ASSERT_NEAR(a.dot(a), a.length() * a.length(), 1e-12 * a.dot(a));
        ASSERT_EQ(a.distance(b), b.distance(a));
        ASSERT_NEAR(a.midpoint(b).distance(a), a.distance(b) / 2, 1e-12 * span);
        ASSERT_EQ(a.interpolated(b, 0), a);
        ASSERT_EQ(a.interpolated(b, 1), b);
        ASSERT_NEAR(a.interpolated(b, 0.25).distance(a), a.distance(b) / 4, 1e-12 * span);
        auto const angle = random.coordinate();
        ASSERT_NEAR(a.rotated(angle, b).distance(b), a.distance(b), 1e-12 * span);
        ASSERT_NEAR(a.rotated(angle, b).rotated(-angle, b).distance(a), 0, 1e-9 * span);
    }
    NSPoint const turned = NSPoint{3, 1}.rotated(std::numbers::pi / 2, {1, 1});
    EXPECT_NEAR(turned.distance({1, 3}), 0, 1e-15) << "from x towards y";
    EXPECT_EQ((NSPoint{1, 2} + NSSize{3, 4} - NSPoint{1, 1} * 2), (NSPoint{2, 4}));
    EXPECT_EQ((-NSPoint{1, 2} / 2), (NSPoint{-0.5, -1}));
    EXPECT_EQ((NSPoint{1e200, 1e200}.length()), std::hypot(1e200, 1e200)) << "no overflow on the way";
    EXPECT_EQ((NSPoint{1e308, 0}.midpoint({1.5e308, 0})), (NSPoint{1.25e308, 0}));
    EXPECT_EQ((NSPoint{infinity, nan}.length()), infinity);
}

TEST(NSRect, EdgesAreThoseOfTheRectangleThatIsMeant) {
    for (auto const& rect :
         {NSRect{{1, 2}, {3, 4}}, NSRect{{4, 2}, {-3, 4}}, NSRect{{1, 6}, {3, -4}}, NSRect{{4, 6}, {-3, -4}}}) {
        EXPECT_EQ(rect.standardized(), (NSRect{{1, 2}, {3, 4}})) << rect;
        EXPECT_EQ(rect.topLeft(), (NSPoint{1, 2})) << rect;
        EXPECT_EQ(rect.topRight(), (NSPoint{4, 2})) << rect;
        EXPECT_EQ(rect.bottomLeft(), (NSPoint{1, 6})) << rect;
        EXPECT_EQ(rect.bottomRight(), (NSPoint{4, 6})) << rect;
        EXPECT_EQ(rect.center(), (NSPoint{2.5, 4})) << rect;
        EXPECT_EQ(rect.inset(1, 0.5), (NSRect{{2, 2.5}, {1, 3}})) << rect;
        EXPECT_TRUE(rect.contains({1, 2}) && rect.contains({3.9, 5.9})) << rect;
        EXPECT_FALSE(rect.contains({4, 3}) || rect.contains({2, 6}) || rect.contains({0.9, 3}) || rect.contains({2, 1.9}))
            << rect;
    }
    NSRect const rect{{1, 2}, {3, 4}};
    EXPECT_EQ(rect.inset({.top = 1, .left = 2, .bottom = -1}), (NSRect{{3, 3}, {1, 4}}));
    EXPECT_EQ(rect.inset(9, 9), (NSRect{{2.5, 4}, {0, 0}}));
    EXPECT_EQ(rect.inset({.left = 100}), (NSRect{{4, 2}, {0, 4}})) << "halfway between, but inside";
    EXPECT_EQ(rect.offset(1, -1), rect.offset({1, -1}));
    EXPECT_EQ(rect.offset(1, -1), (NSRect{{2, 1}, {3, 4}}));
}

TEST(NSRect, RandomUnionsContainBothAndIntersectionsLieInBoth) {
    RandomRects random;
    int met = 0, apart = 0;
    for (int round = 0; round < 30'000; ++round) {
        auto const a = random(), b = random.near(a);
        auto const both = a.unionWith(b);
        ASSERT_TRUE((a.isEmpty() || both.containsRect(a)) && (b.isEmpty() || both.containsRect(b))) << a << b;
        auto const common = a.intersection(b);
        ASSERT_EQ(common.has_value(), a.intersects(b));
        ASSERT_EQ(common.has_value(), b.intersects(a));
        (common ? met : apart)++;
        if (!common) continue;
        ASSERT_EQ(common->minX(), std::max(a.minX(), b.minX()));
        ASSERT_TRUE(common->isEmpty() || (a.containsRect(*common) && b.containsRect(*common))) << a << b;
        auto const around = a.integralOutward(), inside = a.integralInward();
        ASSERT_TRUE(around.containsRect(a)) << a;
        ASSERT_TRUE(a.containsRect(inside) || inside.isEmpty()) << a;
        for (double const edge : {around.minX(), around.maxY(), inside.minX(), inside.maxY()}) ASSERT_EQ(edge, std::round(edge));
    }
    EXPECT_TRUE(met > 5000 && apart > 5000) << met << " and " << apart;
    EXPECT_EQ((NSRect{{0.2, -0.2}, {1.6, 2.4}}.integralOutward()), (NSRect{{0, -1}, {2, 4}}));
    EXPECT_EQ((NSRect{{0.2, -0.2}, {1.6, 2.4}}.integralInward()), (NSRect{{1, 0}, {0, 2}}));
}

TEST(NSRect, DivisionsShareAnEdgeAndAddUp) {
    RandomRects random;
    using enum RectEdge;
    for (int round = 0; round < 5000; ++round) {
        auto const rect = random();
        auto const amount = random.length();
        for (auto const edge : {Left, Top, Right, Bottom}) {
            auto const [slice, remainder] = rect.divided(amount, edge);
            bool const isAcross = edge == Left || edge == Right;
            auto const thickness = isAcross ? slice.width() : slice.height();
            ASSERT_EQ(thickness, std::min(amount, isAcross ? rect.width() : rect.height()));
            ASSERT_FALSE(slice.intersects(remainder)) << rect << amount;
            auto const& [before, after] = edge == Left || edge == Top ? std::pair(slice, remainder) : std::pair(remainder, slice);
            ASSERT_EQ(before.origin, rect.origin);
            if (isAcross) {
                ASSERT_EQ(before.maxX(), after.minX());
            }
            if (!isAcross) {
                ASSERT_EQ(before.maxY(), after.minY());
            }
            ASSERT_NEAR(after.bottomRight().distance(rect.bottomRight()), 0,
                        1e-12 * (rect.origin.length() + rect.width() + rect.height()));
        }
    }
    NSRect const rect{{0, 0}, {10, 20}};
    EXPECT_EQ(rect.divided(3, Bottom), (RectDivision{{{0, 17}, {10, 3}}, {{0, 0}, {10, 17}}}));
    EXPECT_EQ(rect.divided(3, Left), (RectDivision{{{0, 0}, {3, 20}}, {{3, 0}, {7, 20}}}));
    for (double const nothing : {0.0, -5.0, nan}) EXPECT_EQ(rect.divided(nothing, Top).remainder, rect) << nothing;
    EXPECT_EQ(rect.divided(infinity, Right).slice, rect);
}

TEST(NSRect, InfiniteEmptyAndMissingNumbersHaveDefinedResults) {
    NSRect const box{{0, 0}, {10, 10}}, everywhere{{-infinity, -infinity}, {infinity, infinity}}, empty{{5, 5}, {0, 3}},
        missing{{nan, 0}, {5, 5}}, unmeasured{{0, 0}, {nan, 5}}, half{{5, 0}, {infinity, 10}}, lost{{infinity, 0}, {5, 5}};
    struct {
        NSRect a, b;
        std::optional<NSRect> intersection;
        NSRect both;
    } const rows[] = {
        {box, everywhere, box, everywhere},
        {box, half, NSRect{{5, 0}, {5, 10}}, {{0, 0}, {infinity, 10}}},
        {box, empty, {}, box},
        {box, missing, {}, box},
        {box, unmeasured, {}, box},
        {box, lost, {}, box},
        {everywhere, half, half, everywhere},
        {everywhere, everywhere, everywhere, everywhere},
        {box, {{10, 0}, {10, 10}}, {}, {{0, 0}, {20, 10}}}, // neighbours have nothing in common
        {box, {{1e20, 0}, {1, 1}}, {}, box},                // too far off for so small a size to be told
    };
    for (auto const& row : rows)
        for (bool const swapped : {false, true}) {
            auto const &a = swapped ? row.b : row.a, &b = swapped ? row.a : row.b;
            EXPECT_EQ(a.intersection(b), row.intersection) << a << b;
            EXPECT_EQ(a.unionWith(b), row.both) << a << b;
        }
    EXPECT_EQ(empty.unionWith({{7, 7}, {0, 0}}), empty) << "both empty";
    for (auto const& nothing : {empty, missing, unmeasured, lost}) {
        EXPECT_TRUE(nothing.isEmpty()) << nothing;
        EXPECT_FALSE(everywhere.containsRect(nothing)) << nothing;
        EXPECT_FALSE(nothing.contains({5, 5})) << nothing;
    }
    EXPECT_TRUE(everywhere.contains({1e308, -1e308}) && everywhere.containsRect(box) && everywhere.containsRect(half));
    EXPECT_FALSE(box.contains({nan, 5}));
    EXPECT_EQ(everywhere.center(), (NSPoint{0, 0}));
    EXPECT_EQ((NSRect{{0, 0}, {-infinity, 1}}.standardized()), (NSRect{{-infinity, 0}, {infinity, 1}}));
    EXPECT_EQ(box.inset(infinity, -1), (NSRect{{5, -1}, {0, 12}}));
    EXPECT_EQ(everywhere.inset(10, 10), everywhere);
    EXPECT_EQ(half.divided(infinity, RectEdge::Left).slice, half);
    EXPECT_EQ(everywhere.integralOutward(), everywhere);
}

} // namespace
} // namespace Tessarin
