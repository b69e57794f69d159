#include "Tessarin/platform/foundation/geometry/NSRect.h"

#include <cmath>
#include <gtest/gtest.h>
#include <numbers>
#include <random>

namespace Tessarin {
namespace {

constexpr double infinity = HUGE_VAL, nan = __builtin_nan("");

/// Rectangles of all sizes: lengths from a millionth to a million, at places from there, half of them on whole numbers.
class RandomRects {
public:
    double between(double least, double most) { return std::uniform_real_distribution(least, most)(random_); }
    double length() {
        auto const value = std::pow(10, between(-6, 6));
        return random_() % 2 ? value : std::ceil(value);
    }
    double coordinate() { return random_() % 2 ? length() : -length(); }
    NSRect operator()() { return {{coordinate(), coordinate()}, {length(), length()}}; }

private:
    std::mt19937_64 random_{20};
};

using enum RectContentMode;

// Each mode, downward and flipped, in a container of 100 x 80 at {10, 20}. The order is part of files.
TEST(Placement, EachModePutsTheRectangleWhereItSays) {
    struct {
        RectContentMode mode;
        NSRect placed;
        double flippedY;
    // clang-format off
    } const rows[] = {
        {ScaleToFill, {{10, 20}, {100, 80}}, 20}, {ScaleAspectFit, {{10, 35}, {100, 50}}, 35}, {ScaleAspectFill, {{-20, 20},
        {160, 80}}, 20},
        {None, {{-3, -4}, {20, 10}}, -4}, {Center, {{50, 55}, {20, 10}}, 55}, {Top, {{50, 20}, {20, 10}}, 90},
        {Bottom, {{50, 90}, {20, 10}}, 20},
        {Left, {{10, 55}, {20, 10}}, 55}, {Right, {{90, 55}, {20, 10}}, 55}, {TopLeft, {{10, 20}, {20, 10}}, 90},
        {TopRight, {{90, 20}, {20, 10}}, 90}, {BottomLeft, {{10, 90}, {20, 10}}, 20}, {BottomRight, {{90, 90}, {20, 10}}, 20}};
    // clang-format on
    NSRect const rect{{-3, -4}, {20, 10}}, container{{10, 20}, {100, 80}}, turned{{110, 100}, {-100, -80}};
    int number = 0;
    for (auto const& [mode, placed, flippedY] : rows) {
        EXPECT_EQ(static_cast<int>(mode), number++);
        EXPECT_EQ(rect.placedIn(container, mode), placed) << number;
        EXPECT_EQ(rect.placedIn(turned, mode), placed) << number << ": the same container";
        EXPECT_EQ(rect.placedIn(container, mode, VerticalAxis::Flipped), (NSRect{{placed.origin.x, flippedY}, placed.size}));
        EXPECT_TRUE(mode == None || NSRect({{17, 6}, {-20, -10}}).placedIn(container, mode) == placed) << number;
    }
    EXPECT_EQ((NSSize{49, 49}.fittedIn({1, 1})), (NSSize{1, 1})) << "49 * (1 / 49) is less";
    for (int const unknown : {13, -1}) EXPECT_EQ(rect.placedIn(container, RectContentMode{unknown}), rect);
}

TEST(Placement, RandomRectanglesKeepWhatTheirModePromises) {
    RandomRects random;
    for (int round = 0; round < 30'000; ++round) {
        auto const rect = random(), container = random();
        auto const fit = rect.placedIn(container, ScaleAspectFit), fill = rect.placedIn(container, ScaleAspectFill);
        auto const slack = 1e-12 * (container.origin.length() + container.width() + container.height() + rect.width() +
                                    rect.height() + fill.width() + fill.height());
        auto const isInside = [&](NSRect const& inner, NSRect const& outer) { // one that is too thin is empty
            return inner.minX() >= outer.minX() - slack && inner.maxX() <= outer.maxX() + slack &&
                   inner.minY() >= outer.minY() - slack && inner.maxY() <= outer.maxY() + slack &&
                   inner.width() <= outer.width() && inner.height() <= outer.height();
        };
        for (auto const& scaled : {fit, fill}) {
            ASSERT_NEAR(*scaled.size.aspectRatio() / *rect.size.aspectRatio(), 1, 1e-12) << rect << container;
            ASSERT_TRUE(scaled.width() == container.width() || scaled.height() == container.height()) << rect << container;
        }
        ASSERT_TRUE(isInside(fit, container) && isInside(container, fill)) << rect << container;
        for (int mode = static_cast<int>(Center); mode <= static_cast<int>(BottomRight); ++mode) {
            auto const placed = rect.placedIn(container, RectContentMode{mode});
            auto const step = placed.center() - container.center();
            auto const room = NSPoint{container.width() - rect.width(), container.height() - rect.height()} / 2;
            int const across[] = {0, 0, 0, -1, 1, -1, 1, -1, 1}, down[] = {0, -1, 1, 0, 0, -1, -1, 1, 1}; // the edges it names
            ASSERT_EQ(placed.size, rect.size);
            ASSERT_NEAR(step.x, room.x * across[mode - static_cast<int>(Center)], slack) << mode;
            ASSERT_NEAR(step.y, room.y * down[mode - static_cast<int>(Center)], slack) << mode;
        }
    }
}

TEST(Placement, InfiniteEmptyAndMissingNumbersHaveDefinedResults) {
    NSRect const box{{10, 20}, {100, 80}}, wide{{0, 0}, {20, 10}};
    struct {
        NSRect rect, container;
        RectContentMode mode;
        NSRect placed;
    // clang-format off
    } const rows[] = {
        {{{5, 5}, {0, 10}}, box, ScaleAspectFit, {{60, 60}, {0, 0}}}, {{{5, 5}, {nan, 10}}, box, ScaleAspectFill, {{60, 60},
        {0, 0}}}, // no ratio
        {{{5, 5}, {infinity, 10}}, box, ScaleAspectFit, {{60, 60}, {0, 0}}}, {{{nan, nan},
        {20, 10}}, box, ScaleAspectFit, {{10, 35}, {100, 50}}},
        {{{5, 5}, {0, 10}}, box, BottomRight, {{110, 90}, {0, 10}}}, {wide, {{1, 2}, {0, 10}}, ScaleAspectFill, {{-9, 2},
        {20, 10}}},
        {wide, {{1, 2}, {nan, 10}}, ScaleAspectFit, {{1, 7}, {0, 0}}}, {wide, {{1, 2},
        {infinity, 10}}, TopRight, {{infinity, 2}, {20, 10}}},
        {wide, {{1, 2}, {infinity, 10}}, ScaleAspectFit, {{infinity, 2}, {20, 10}}},
        {wide, {{1, 2}, {infinity, infinity}}, ScaleAspectFit, {{1, 2}, {infinity, infinity}}},
        {wide, {{-infinity, -infinity}, {infinity, infinity}}, Center, {{-infinity, -infinity}, {20, 10}}},
        {{{0, 0}, {infinity, 10}}, {{1, 2}, {infinity, 10}}, Right, {{1, 2}, {infinity, 10}}}};
    // clang-format on
    for (auto const& [rect, container, mode, placed] : rows)
        EXPECT_EQ(rect.placedIn(container, mode), placed) << rect << " in " << container << ", mode " << static_cast<int>(mode);
    for (auto const& size : {NSSize{3, 0}, NSSize{0, -0.0}, NSSize{infinity, infinity}})
        EXPECT_EQ(size.aspectRatio(), std::nullopt);
    EXPECT_EQ((NSSize{2, 3}.aspectRatioType()), AspectRatioType::Portrait);
    for (auto const& size : {NSSize{3, 2}, NSSize{2, 2}, NSSize{nan, 1}})
        EXPECT_EQ(size.aspectRatioType(), AspectRatioType::Landscape) << size << ", a square included";
    EXPECT_EQ((NSSize{infinity, 0}.area()), 0);
}

TEST(NSPoint, OperationsAgreeWithTheirDefinitions) {
    RandomRects random;
    for (int round = 0; round < 5000; ++round) {
        NSPoint const a{random.coordinate(), random.coordinate()}, b{random.coordinate(), random.coordinate()};
        auto const slack = 1e-12 * (a.length() + b.length()), angle = random.between(-9, 9);
        ASSERT_NEAR(a.midpoint(b).distance(a), b.distance(a) / 2, slack);
        ASSERT_NEAR(a.interpolated(b, 0.25).distance(a), a.distance(b) / 4, slack);
        ASSERT_NEAR(a.rotated(angle, b).rotated(-angle, b).distance(a), 0, 4 * slack);
    }
    EXPECT_NEAR((NSPoint{3, 1}.rotated(std::numbers::pi / 2, {1, 1}).distance({1, 3})), 0, 1e-15) << "from x towards y";
    EXPECT_EQ((-(NSPoint{1, 2} + NSSize{3, 4} - NSPoint{1, 1} * 2) / 2), (NSPoint{-1, -2}));
    EXPECT_EQ((NSPoint{1e308, 0}.midpoint({1.5e308, infinity})), (NSPoint{1.25e308, infinity})) << "no overflow on the way";
    EXPECT_EQ((NSPoint{infinity, nan}.length()), infinity);
}

TEST(NSRect, EdgesAreThoseOfTheRectangleThatIsMeant) {
    NSRect const plain{{1, 2}, {3, 4}};
    for (auto const& rect : {plain, NSRect{{4, 2}, {-3, 4}}, NSRect{{1, 6}, {3, -4}}, NSRect{{4, 6}, {-3, -4}}}) {
        EXPECT_EQ(rect.standardized(), plain) << rect;
        EXPECT_TRUE(rect.topRight() == NSPoint({4, 2}) && rect.bottomLeft() == NSPoint({1, 6})) << rect;
        EXPECT_EQ(rect.center(), (NSPoint{2.5, 4})) << rect;
        EXPECT_EQ(rect.inset({.top = 1, .left = 2, .bottom = -1}), (NSRect{{3, 3}, {1, 4}})) << rect;
        EXPECT_TRUE(rect.contains({1, 2}) && rect.contains({3.9, 5.9})) << rect;
        for (auto const& outside : {NSPoint{4, 3}, NSPoint{2, 6}, NSPoint{0.9, 3}, NSPoint{2, 1.9}, NSPoint{nan, 3}})
            EXPECT_FALSE(rect.contains(outside)) << rect << outside << ": half open";
    }
    EXPECT_EQ(plain.inset(9, 1), (NSRect{{2.5, 3}, {0, 2}}));
    EXPECT_EQ(plain.inset({.left = 100}), (NSRect{{4, 2}, {0, 4}})) << "halfway between, but inside";
    EXPECT_EQ((NSRect{{0.2, -0.2}, {1.6, 2.4}}.integralOutward()), (NSRect{{0, -1}, {2, 4}}));
    EXPECT_EQ((NSRect{{0.2, -0.2}, {1.6, 2.4}}.integralInward()), (NSRect{{1, 0}, {0, 2}}));
}

TEST(NSRect, RandomUnionsContainBothIntersectionsLieInBothAndDivisionsAddUp) {
    RandomRects random;
    int met = 0;
    for (int round = 0; round < 30'000; ++round) {
        auto const a = random();
        auto const b = a.offset(a.width() * random.between(-2, 2), a.height() * random.between(-2, 2))
                           .inset(a.width() * random.between(-1, 0.4), 0);
        auto const both = a.unionWith(b);
        auto const common = a.intersection(b);
        ASSERT_TRUE((a.isEmpty() || both.containsRect(a)) && (b.isEmpty() || both.containsRect(b))) << a << b;
        ASSERT_TRUE(common.has_value() == a.intersects(b) && common == b.intersection(a)) << a << b;
        ASSERT_TRUE(!common || common->isEmpty() || (a.containsRect(*common) && b.containsRect(*common))) << a << b;
        met += common && common->minX() == std::max(a.minX(), b.minX()) && common->minY() == std::max(a.minY(), b.minY());
        auto const inside = a.integralInward();
        ASSERT_TRUE((a.isEmpty() || a.integralOutward().containsRect(a)) && (inside.isEmpty() || a.containsRect(inside))) << a;
        for (auto const edge : {RectEdge::Left, RectEdge::Top, RectEdge::Right, RectEdge::Bottom}) {
            bool const isFirst = edge <= RectEdge::Top, isAcross = edge == RectEdge::Left || edge == RectEdge::Right;
            auto const amount = random.length();
            auto const [slice, rest] = a.divided(amount, edge);
            auto const &before = isFirst ? slice : rest, &after = isFirst ? rest : slice;
            ASSERT_EQ(isAcross ? slice.width() : slice.height(), std::min(amount, isAcross ? a.width() : a.height()));
            ASSERT_TRUE(before.origin == a.origin && (isAcross ? before.topRight() : before.bottomLeft()) == after.origin)
                << a << amount;
            ASSERT_NEAR(after.bottomRight().distance(a.bottomRight()), 0, 1e-12 * (a.origin.length() + a.width() + a.height()));
        }
    }
    EXPECT_TRUE(met > 5000 && met < 25'000) << met;
    for (double const nothing : {0.0, -5.0, nan})
        EXPECT_EQ((NSRect{{0, 0}, {10, 20}}.divided(nothing, RectEdge::Bottom).remainder), (NSRect{{0, 0}, {10, 20}})) << nothing;
}

TEST(NSRect, InfiniteEmptyAndMissingNumbersHaveDefinedResults) {
    NSRect const box{{0, 0}, {10, 10}}, everywhere{{-infinity, -infinity}, {infinity, infinity}}, half{{5, 0}, {infinity, 10}};
    NSRect const empty{{5, 5}, {0, 3}}, missing{{nan, 0}, {5, 5}}, unmeasured{{0, 0}, {nan, 5}}, lost{{infinity, 0}, {5, 5}};
    struct {
        NSRect a, b;
        std::optional<NSRect> intersection;
        NSRect both;
    // clang-format off
    } const rows[] = {
        {box, everywhere, box, everywhere}, {box, half, NSRect{{5, 0}, {5, 10}}, {{0, 0}, {infinity, 10}}},
        {everywhere, half, half, everywhere},
        {box, {{10, 0}, {10, 10}}, {}, {{0, 0}, {20, 10}}}, {box, {{1e20, 0}, {1, 1}},
        {}, box}, // a neighbour; so far off that its size is lost
        {box, empty, {}, box}, {box, missing, {}, box}, {box, unmeasured, {}, box}, {box, lost, {}, box}};
    // clang-format on
    for (auto const& [a, b, intersection, both] : rows) {
        EXPECT_TRUE(a.intersection(b) == intersection && b.intersection(a) == intersection) << a << b;
        EXPECT_TRUE(a.unionWith(b) == both && b.unionWith(a) == both) << a << b;
    }
    EXPECT_EQ(empty.unionWith(lost), empty) << "both empty";
    for (auto const& nothing : {empty, missing, unmeasured, lost})
        EXPECT_FALSE(!nothing.isEmpty() || everywhere.containsRect(nothing) || nothing.contains({5, 5})) << nothing;
    EXPECT_TRUE(everywhere.contains({1e308, -1e308}) && everywhere.containsRect(half) && everywhere.center() == NSPoint({0, 0}));
    EXPECT_EQ((NSRect{{0, 0}, {-infinity, 1}}.standardized()), (NSRect{{-infinity, 0}, {infinity, 1}}));
    EXPECT_EQ(box.inset(infinity, -1), (NSRect{{5, -1}, {0, 12}}));
    EXPECT_EQ(everywhere.inset(10, 10).integralOutward(), everywhere);
    EXPECT_EQ(half.divided(infinity, RectEdge::Left).slice, half);
}

} // namespace
} // namespace Tessarin
