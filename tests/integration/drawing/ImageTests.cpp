#include "tests/integration/drawing/Picture.h"

#include <gtest/gtest.h>

namespace Tessarin {
namespace {

using namespace tests;

constexpr NSColor red{1, 0, 0}, blue{0, 0, 1}, white{1, 1, 1};
constexpr double infinity = std::numeric_limits<double>::infinity();

/// Left half red, right half blue.
Picture halves(int width, int height) {
    Picture picture{width, height};
    for (int at = 0; at < width * height; ++at) picture.pixels.push_back(pixel(at % width < width / 2 ? red : blue));
    return picture;
}

template <class Toolkit> class Images : public testing::Test {};
using Toolkits = testing::Types<WithCairo, WithQt>;
TYPED_TEST_SUITE(Images, Toolkits);

TYPED_TEST(Images, EachModeFillsWhatPlacedInSaysAndIsCutAtTheRectangle) {
    NSRect const into{{20, 10}, {80, 60}};
    NSSize const canvas{130, 90};
    for (auto const& [width, height] : {std::pair(40, 20), std::pair(200, 20), std::pair(30, 100)})
        for (int number = 0; number <= static_cast<int>(RectContentMode::BottomRight); ++number) {
            auto const mode = RectContentMode{number};
            auto const image = TypeParam::image(halves(width, height));
            auto const drawn = TypeParam::drawn(canvas, 1, [&](auto&& to) {
                TypeParam::fill(to, {{0, 0}, canvas}, white);
                TypeParam::drawImage(image, into, mode, to);
                TypeParam::fill(to, {{128, 0}, {2, 2}}, blue); // the state is as before
            });
            auto const place = NSRect{into.origin, {double(width), double(height)}}.placedIn(into, mode);
            auto const shown = place.intersection(into).value();
            int wrong = 0;
            for (int y = 2; y < drawn.height; ++y)
                for (int x = 0; x < drawn.width; ++x) {
                    NSPoint const here{x + 0.5, y + 0.5};
                    auto const color = drawn.at(x, y);
                    if (!shown.inset(-1, -1).contains(here)) wrong += color != pixel(white);
                    bool const isSeam = std::abs(here.x - place.center().x) <= place.width() / width + 1;
                    if (shown.inset(1, 1).contains(here) && !isSeam)
                        wrong += color != pixel(here.x < place.center().x ? red : blue);
                }
            EXPECT_EQ(wrong, 0) << width << " x " << height << ", mode " << number;
            EXPECT_EQ(drawn.at(129, 1), pixel(blue));
        }
}

TYPED_TEST(Images, ThumbnailsKeepTheRatioAndAverage) {
    struct {
        int width, height, side, smallWidth, smallHeight;
    } const rows[] = {{400, 200, 100, 100, 50}, {200, 400, 100, 50, 100}, {300, 300, 64, 64, 64}, {5000, 2, 100, 100, 1},
                      {30, 20, 100, 30, 20},    {30, 20, 30, 30, 20},     {30, 20, 0, 0, 0},      {30, 20, -4, 0, 0}};
    for (auto const& row : rows) {
        auto const source = halves(row.width, row.height);
        auto const small = TypeParam::picture(TypeParam::small(TypeParam::image(source), row.side));
        EXPECT_EQ(std::pair(small.width, small.height), std::pair(row.smallWidth, row.smallHeight))
            << row.width << ' ' << row.side;
        if (row.width <= row.side) {
            EXPECT_EQ(small, source);
        } else if (row.side > 0) {
            EXPECT_EQ(small.at(0, 0), pixel(red)) << "the rim does not fade";
            EXPECT_EQ(small.at(small.width - 1, small.height - 1), pixel(blue));
        }
    }
    Picture board{256, 256};
    for (int at = 0; at < 256 * 256; ++at) board.pixels.push_back(pixel((at + at / 256) % 2 ? white : NSColor{}));
    for (auto const each : TypeParam::picture(TypeParam::small(TypeParam::image(board), 32)).pixels)
        ASSERT_NEAR(part(each, 1), 127, 8) << "pixels are averaged, not picked";
    EXPECT_EQ(TypeParam::picture(TypeParam::small(typename TypeParam::Image{}, 10)), Picture{}) << "no image";
}

TYPED_TEST(Images, SnapshotsHaveTheScaleThatIsAskedFor) {
    auto const drawn = TypeParam::drawn({10, 5.5}, 2, [](auto&& to) {
        TypeParam::fill(to, {{1, 2}, {3, 1}}, red.withAlpha(0.5));
    });
    EXPECT_EQ(std::pair(drawn.width, drawn.height), std::pair(20, 11));
    for (int y = 0; y < 11; ++y)
        for (int x = 0; x < 20; ++x) {
            bool const isRed = NSRect{{2, 4}, {6, 2}}.contains({double(x), double(y)});
            ASSERT_NEAR(part(drawn.at(x, y), 3), isRed ? 128 : 0, 1) << x << ' ' << y;
            ASSERT_NEAR(part(drawn.at(x, y), 2), isRed ? 128 : 0, 1) << x << ' ' << y;
        }
    for (auto const& size : {NSSize{0, 5}, NSSize{-1, 5}, NSSize{5, std::nan("")}, NSSize{1e9, 1}, NSSize{infinity, 1}})
        EXPECT_EQ(TypeParam::drawn(size, 1, [](auto&&) { ADD_FAILURE() << "nothing to draw on"; }), Picture{}) << size;
    for (double const scale : {0.0, -1.0, std::nan(""), infinity})
        EXPECT_EQ(TypeParam::drawn({5, 5}, scale, [](auto&&) { ADD_FAILURE(); }), Picture{}) << scale;
}

TEST(Conversions, GoBothWays) {
    NSRect const rect{{1.5, -2}, {3, 4.25}}, turned{{4.5, 2.25}, {-3, -4.25}};
    EXPECT_EQ(fromQt(toQt(rect)), rect);
    EXPECT_EQ(fromCairo(toCairo(rect)), rect);
    EXPECT_EQ(fromQt(toQt(turned)), rect);
    EXPECT_EQ(fromCairo(toCairo(turned)), rect);
    EXPECT_EQ(toQtInt(rect), QRect(1, -2, 4, 5));
    EXPECT_EQ(fromCairo(toCairoInt(rect)), fromQt(toQtInt(rect)));
    EXPECT_EQ(toQtInt({{std::nan(""), -1e30}, {infinity, 1}}).top(), std::numeric_limits<int>::min());
    EXPECT_EQ(toCairoInt({{std::nan(""), 0}, {5, infinity}}).height, std::numeric_limits<int>::max());
    EXPECT_EQ(toCairoInt({{std::nan(""), 0}, {5, infinity}}).x, 0);
    EXPECT_EQ(fromQt(toQt(NSPoint{1, -2.5})), (NSPoint{1, -2.5}));
    EXPECT_EQ(fromQt(QPoint(3, 4)), (NSPoint{3, 4}));
    EXPECT_EQ(fromQt(toQt(NSSize{1, 2.5})), (NSSize{1, 2.5}));
    NSEdgeInsets const insets{.top = 1, .left = 2, .bottom = 3, .right = 4};
    EXPECT_EQ(fromQt(toQt(insets)), insets);
    EXPECT_EQ(toQt(insets).bottom(), 3);
    for (int value = 0; value < 256; ++value) {
        NSColor const color{value / 255.0, 1 - value / 255.0, 0.5, value / 255.0};
        ASSERT_EQ(fromQt(toQt(color))->hexText(), color.hexText());
    }
    EXPECT_EQ(fromQt(QColor::fromHsv(240, 255, 255)), blue);
    EXPECT_EQ(fromQt(QColor()), std::nullopt);
    EXPECT_EQ(toQt(NSColor{7, std::nan(""), -1}), QColor(Qt::red));
    CairoPattern const solid(cairo_pattern_create_rgba(0.25, 0.5, 0.75, 1)), other(cairo_pattern_create_linear(0, 0, 1, 1));
    EXPECT_EQ(colorFromCairo(solid.get()), (NSColor{0.25, 0.5, 0.75}));
    EXPECT_EQ(colorFromCairo(other.get()), std::nullopt);
}

} // namespace
} // namespace Tessarin
