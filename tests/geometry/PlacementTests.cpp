#include "tests/geometry/GeometryFixture.h"

#include <gtest/gtest.h>

namespace Tessarin {
namespace {

using namespace tests;
using enum RectContentMode;

constexpr RectContentMode inOrder[] = {ScaleToFill, ScaleAspectFit, ScaleAspectFill, None,     Center,     Top,        Bottom,
                                       Left,        Right,          TopLeft,         TopRight, BottomLeft, BottomRight};

// Each mode, downward and flipped, written out once: 20 x 10 in a container of 100 x 80 at {10, 20}.
TEST(Placement, EachModePutsTheRectangleWhereItSays) {
    struct {
        RectContentMode mode;
        NSRect downward, flipped;
    } const rows[] = {
        {ScaleToFill, {{10, 20}, {100, 80}}, {{10, 20}, {100, 80}}},
        {ScaleAspectFit, {{10, 35}, {100, 50}}, {{10, 35}, {100, 50}}},
        {ScaleAspectFill, {{-20, 20}, {160, 80}}, {{-20, 20}, {160, 80}}},
        {None, {{-3, -4}, {20, 10}}, {{-3, -4}, {20, 10}}},
        {Center, {{50, 55}, {20, 10}}, {{50, 55}, {20, 10}}},
        {Top, {{50, 20}, {20, 10}}, {{50, 90}, {20, 10}}},
        {Bottom, {{50, 90}, {20, 10}}, {{50, 20}, {20, 10}}},
        {Left, {{10, 55}, {20, 10}}, {{10, 55}, {20, 10}}},
        {Right, {{90, 55}, {20, 10}}, {{90, 55}, {20, 10}}},
        {TopLeft, {{10, 20}, {20, 10}}, {{10, 90}, {20, 10}}},
        {TopRight, {{90, 20}, {20, 10}}, {{90, 90}, {20, 10}}},
        {BottomLeft, {{10, 90}, {20, 10}}, {{10, 20}, {20, 10}}},
        {BottomRight, {{90, 90}, {20, 10}}, {{90, 20}, {20, 10}}},
    };
    NSRect const rect{{-3, -4}, {20, 10}}, container{{10, 20}, {100, 80}}, turned{{110, 100}, {-100, -80}};
    int number = 0;
    for (auto const& row : rows) {
        EXPECT_EQ(static_cast<int>(row.mode), number) << "the order is part of files";
        EXPECT_EQ(inOrder[number], row.mode);
        EXPECT_EQ(rect.placedIn(container, row.mode), row.downward) << number;
        EXPECT_EQ(rect.placedIn(container, row.mode, VerticalAxis::Flipped), row.flipped) << number;
        EXPECT_EQ(rect.placedIn(turned, row.mode), row.downward) << number << ": the same container";
        if (row.mode != None) {
            EXPECT_EQ((NSRect{{17, 6}, {-20, -10}}.placedIn(container, row.mode)), row.downward) << number;
        }
        ++number;
    }
    EXPECT_EQ(rect.placedIn(container, RectContentMode{13}), rect);
    EXPECT_EQ(rect.placedIn(container, RectContentMode{-1}), rect);
}

TEST(Placement, RandomRectanglesKeepWhatTheirModePromises) {
    RandomRects random;
    for (int round = 0; round < 30'000; ++round) {
        auto const rect = random(), container = random();
        auto const ratio = rect.size.width / rect.size.height;
        auto const slack = 1e-12 * (std::abs(container.origin.x) + std::abs(container.origin.y) + container.width() +
                                    container.height() + rect.width() + rect.height());
        auto const isInside = [&](NSRect const& inner, NSRect const& outer, double by) { // one that is too thin is empty
            return inner.minX() >= outer.minX() - by && inner.maxX() <= outer.maxX() + by && inner.minY() >= outer.minY() - by &&
                   inner.maxY() <= outer.maxY() + by;
        };
        auto const fit = rect.placedIn(container, ScaleAspectFit), fill = rect.placedIn(container, ScaleAspectFill);
        for (auto const& scaled : {fit, fill}) {
            ASSERT_NEAR(scaled.width() / scaled.height() / ratio, 1, 1e-12) << rect << container;
            ASSERT_TRUE(scaled.width() == container.width() || scaled.height() == container.height()) << rect << container;
            ASSERT_NEAR(scaled.center().distance(container.center()), 0, slack + 1e-12 * (scaled.width() + scaled.height()));
        }
        ASSERT_TRUE(isInside(fit, container, slack) && fit.width() <= container.width() && fit.height() <= container.height());
        ASSERT_TRUE(fill.width() >= container.width() && fill.height() >= container.height());
        ASSERT_TRUE(isInside(container, fill, slack + 1e-12 * (fill.width() + fill.height())));
        for (auto const mode : inOrder) {
            if (mode <= None) continue;
            for (auto const axis : {VerticalAxis::Downward, VerticalAxis::Flipped}) {
                auto const placed = rect.placedIn(container, mode, axis);
                ASSERT_EQ(placed.size, rect.size);
                bool const isTop = mode == Top || mode == TopLeft || mode == TopRight;
                bool const isBottom = mode == Bottom || mode == BottomLeft || mode == BottomRight;
                bool const isLeft = mode == Left || mode == TopLeft || mode == BottomLeft;
                bool const isRight = mode == Right || mode == TopRight || mode == BottomRight;
                bool const isHigh = axis == VerticalAxis::Downward ? isTop : isBottom; // where y is smallest
                if (isLeft) {
                    ASSERT_EQ(placed.minX(), container.minX());
                }
                if (isRight) {
                    ASSERT_NEAR(placed.maxX(), container.maxX(), slack);
                }
                if (!isLeft && !isRight) {
                    ASSERT_NEAR(placed.center().x, container.center().x, slack);
                }
                if ((isTop || isBottom) && isHigh) {
                    ASSERT_EQ(placed.minY(), container.minY());
                }
                if ((isTop || isBottom) && !isHigh) {
                    ASSERT_NEAR(placed.maxY(), container.maxY(), slack);
                }
                if (!isTop && !isBottom) {
                    ASSERT_NEAR(placed.center().y, container.center().y, slack);
                }
            }
        }
    }
}

TEST(Placement, InfiniteEmptyAndMissingNumbersHaveDefinedResults) {
    NSRect const box{{10, 20}, {100, 80}}, wide{{0, 0}, {20, 10}};
    struct {
        NSRect rect, container;
        RectContentMode mode;
        NSRect placed;
    } const rows[] = {
        {{{5, 5}, {0, 10}}, box, ScaleAspectFit, {{60, 60}, {0, 0}}},         // no ratio: nothing, in the middle
        {{{5, 5}, {0, 10}}, box, ScaleAspectFill, {{60, 60}, {0, 0}}},
        {{{5, 5}, {nan, 10}}, box, ScaleAspectFit, {{60, 60}, {0, 0}}},
        {{{5, 5}, {infinity, 10}}, box, ScaleAspectFit, {{60, 60}, {0, 0}}},
        {{{nan, nan}, {20, 10}}, box, ScaleAspectFit, {{10, 35}, {100, 50}}}, // where it was does not matter
        {{{5, 5}, {nan, nan}}, box, ScaleToFill, box},
        {{{5, 5}, {0, 10}}, box, BottomRight, {{110, 90}, {0, 10}}},
        {wide, {{1, 2}, {0, 0}}, ScaleAspectFit, {{1, 2}, {0, 0}}},
        {wide, {{1, 2}, {0, 10}}, ScaleAspectFit, {{1, 7}, {0, 0}}},
        {wide, {{1, 2}, {0, 10}}, ScaleAspectFill, {{-9, 2}, {20, 10}}},
        {wide, {{1, 2}, {0, 0}}, Center, {{-9, -3}, {20, 10}}},
        {wide, {{1, 2}, {nan, 10}}, ScaleAspectFit, {{1, 7}, {0, 0}}},        // no number counts as zero
        {wide, {{1, 2}, {infinity, 10}}, ScaleAspectFit, {{infinity, 2}, {20, 10}}},
        {wide, {{1, 2}, {infinity, infinity}}, ScaleAspectFit, {{1, 2}, {infinity, infinity}}},
        {wide, {{1, 2}, {infinity, 10}}, TopLeft, {{1, 2}, {20, 10}}},
        {wide, {{1, 2}, {infinity, 10}}, TopRight, {{infinity, 2}, {20, 10}}},
        {wide, {{-infinity, -infinity}, {infinity, infinity}}, Center, {{-infinity, -infinity}, {20, 10}}},
        {{{0, 0}, {infinity, 10}}, box, Right, {{-infinity, 55}, {infinity, 10}}},
        {{{0, 0}, {infinity, 10}}, {{1, 2}, {infinity, 10}}, Right, {{1, 2}, {infinity, 10}}},
    };
    for (auto const& row : rows)
        EXPECT_EQ(row.rect.placedIn(row.container, row.mode), row.placed)
            << row.rect << " in " << row.container << ", mode " << static_cast<int>(row.mode);
}

TEST(NSSize, RatioAndTypeAreThoseOfTheSides) {
    EXPECT_EQ((NSSize{3, 2}.aspectRatio()), 1.5);
    EXPECT_EQ((NSSize{3, 0}.aspectRatio()), std::nullopt);
    EXPECT_EQ((NSSize{0, -0.0}.aspectRatio()), std::nullopt);
    EXPECT_EQ((NSSize{infinity, infinity}.aspectRatio()), std::nullopt);
    EXPECT_EQ((NSSize{infinity, 2}.aspectRatio()), infinity);
    EXPECT_EQ((NSSize{2, 3}.aspectRatioType()), AspectRatioType::Portrait);
    for (auto const& size : {NSSize{3, 2}, NSSize{2, 2}, NSSize{0, 0}, NSSize{nan, 1}})
        EXPECT_EQ(size.aspectRatioType(), AspectRatioType::Landscape) << size << ", a square included";
    EXPECT_EQ((NSSize{infinity, 0}.area()), 0);
    EXPECT_EQ((NSSize{3, 2}.area()), 6);
    EXPECT_EQ((NSSize{3, 2}.scaled(2) - NSSize{1, 1}), (NSSize{5, 3}));
    EXPECT_EQ((NSSize{20, 10}.fittedIn({-5, 100})), (NSSize{0, 0}));
    EXPECT_EQ((NSSize{20, 10}.filling({40, 10})), (NSSize{40, 20}));
}

} // namespace
} // namespace Tessarin
