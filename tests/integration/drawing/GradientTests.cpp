#include "tests/integration/drawing/Picture.h"

#include <gtest/gtest.h>

namespace Tessarin {
namespace {

using namespace tests;

constexpr NSSize size{160, 120};
std::vector<GradientStop> const plain{{{1, 0.9, 0.2}, 0}, {{0.1, 0.2, 0.8}, 1}},
    see{{{1, 0, 0, 1}, 0}, {{0, 1, 0, 0}, 0.5}, {{0, 0, 1, 0.8}, 1}},
    hard{{{1, 1, 1}, 0.2}, {{0, 0, 0}, 0.5}, {{1, 0.5, 0}, 0.5}, {{0, 0.5, 1}, 0.9}};

/// Pixel by pixel, what `colorAt` says.
Picture judged(RadialGradient const& gradient) {
    Picture picture{int(size.width), int(size.height)};
    for (int y = 0; y < picture.height; ++y)
        for (int x = 0; x < picture.width; ++x)
            picture.pixels.push_back(pixel(gradient.colorAt({x + 0.5, y + 0.5}).value_or(NSColor{0, 0, 0, 0})));
    return picture;
}

struct Row {
    char const* name;
    RadialGradient gradient;
};

TEST(RadialGradient, BothToolkitsDrawThePictureThatItsColoursSay) {
    NSPoint const left{50, 60}, middle{80, 60}, right{110, 50};
    Row const rows[] = {
        {"around one centre", {middle, 0, middle, 50, plain}},
        {"a ring", {middle, 20, middle, 50, see}},
        {"inward", {middle, 50, middle, 10, plain}},
        {"inward, out of centre", {middle, 50, {90, 65}, 10, see}},
        {"a focus", {{60, 50}, 0, middle, 50, hard}},
        {"a focus on the rim", {{30, 60}, 0, middle, 50, plain}},
        {"touching from inside", {{65, 60}, 20, middle, 35, see}},
        {"a cone", {left, 10, right, 30, plain}},
        {"a cone that shrinks", {left, 30, right, 5, see}},
        {"a cone from a point", {left, 0, right, 20, hard}},
        {"a tube", {left, 20, right, 20, plain}},
        {"crossing", {{70, 60}, 30, {95, 60}, 35, plain}},
        {"one colour", {middle, 10, middle, 40, {{{0, 0.5, 0.5}, 0.3}}}},
        {"out of order and range", {middle, 10, middle, 40, {{{1, 2, 0}, 7}, {{0, -1, 1, 0.5}, -3}, {{1, 1, 1}, 0.5}}}},
    };
    for (auto const& [name, ofRow] : rows)
        for (auto const extent : {GradientExtent::Extend, GradientExtent::Clip}) {
            auto gradient = ofRow;
            gradient.extent = extent;
            auto const truth = judged(gradient);
            auto const cairo = WithCairo::drawn(size, 1, [&](cairo_t* to) { draw(gradient, {{0, 0}, size}, to); });
            auto const qt = WithQt::drawn(size, 1, [&](QPainter& to) { draw(gradient, {{0, 0}, size}, to); });
            auto const shown = std::count_if(truth.pixels.begin(), truth.pixels.end(), [](auto each) { return each != 0; });
            EXPECT_GT(shown, 1000) << name;
            auto const what = name + std::string(extent == GradientExtent::Clip ? ", clipped" : "");
            EXPECT_LE(meanDifference(cairo, truth), 2) << what;
            EXPECT_LE(meanDifference(qt, truth), 2) << what;
            EXPECT_LE(meanDifference(cairo, qt), 2) << what;
        }
}

TEST(RadialGradient, FollowsTransformsAndStaysInItsRectangle) {
    RadialGradient const gradient{{20, 15}, 2, {28, 20}, 18, see, GradientExtent::Clip};
    NSRect const over{{5, 5}, {30, 20}};
    auto const cairo = WithCairo::drawn(size, 1, [&](cairo_t* to) {
        cairo_translate(to, 40, -30);
        cairo_rotate(to, 0.5);
        cairo_scale(to, 3, 2.5);
        draw(gradient, over, to);
    });
    auto const qt = WithQt::drawn(size, 1, [&](QPainter& to) {
        to.translate(40, -30);
        to.rotate(0.5 * 180 / M_PI);
        to.scale(3, 2.5);
        draw(gradient, over, to);
    });
    EXPECT_LE(meanDifference(cairo, qt), 2);
    EXPECT_EQ(cairo.at(5, 5), 0u);
    EXPECT_GT(std::count_if(qt.pixels.begin(), qt.pixels.end(), [](auto each) { return each != 0; }), 1000);
}

TEST(RadialGradient, WithoutAPictureNothingIsDrawn) {
    NSPoint const middle{80, 60};
    RadialGradient const good{middle, 0, middle, 50, plain};
    std::vector<RadialGradient> rows(6, good);
    rows[0].stops.clear();
    rows[1].endRadius = 0;
    rows[2].startRadius = -1;
    rows[3].endCenter.x = std::numeric_limits<double>::infinity();
    rows[4].startCenter.y = rows[5].stops[0].position = rows[5].stops[1].position = std::nan("");
    auto const blank = Picture{160, 120, std::vector<std::uint32_t>(160 * 120)};
    for (auto const& gradient : rows) {
        auto const at = &gradient - rows.data();
        EXPECT_FALSE(gradient.isDrawable()) << at;
        EXPECT_EQ(gradient.colorAt(middle), std::nullopt) << at;
        EXPECT_EQ(toCairo(gradient), nullptr) << at;
        EXPECT_EQ(WithCairo::drawn(size, 1, [&](cairo_t* to) { draw(gradient, {{0, 0}, size}, to); }), blank) << at;
        EXPECT_EQ(WithQt::drawn(size, 1, [&](QPainter& to) { draw(gradient, {{0, 0}, size}, to); }), blank) << at;
    }
    EXPECT_TRUE(good.isDrawable());
}

} // namespace
} // namespace Tessarin
