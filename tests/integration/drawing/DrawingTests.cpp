#include "integration/cairo/CairoGradient.h"
#include "integration/cairo/CairoImages.h"
#include "integration/qt/QtGradient.h"
#include "integration/qt/QtImages.h"

#include <cfloat>
#include <climits>
#include <cstring>
#include <gtest/gtest.h>

namespace Tessarin {
namespace {

// What both toolkits do, with its outcome in one form.
struct WithCairo {
    using Image = CairoSurface;
    static cairo_surface_t* borrowed(Image const& image) { return image.get(); }
    static Image image(QImage const& picture) {
        Image image(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, picture.width(), picture.height()));
        for (int y = 0; y < picture.height(); ++y)
            std::memcpy(cairo_image_surface_get_data(image.get()) + y * cairo_image_surface_get_stride(image.get()),
                        picture.constScanLine(y), std::size_t(picture.width()) * 4);
        cairo_surface_mark_dirty(image.get());
        return image;
    }
    static QImage picture(Image const& image) {
        auto* const from = image.get();
        return QImage(cairo_image_surface_get_data(from), cairo_image_surface_get_width(from),
                      cairo_image_surface_get_height(from), cairo_image_surface_get_stride(from),
                      QImage::Format_ARGB32_Premultiplied)
            .copy();
    }
    template <class Draw> static QImage drawn(NSSize const& size, double scale, Draw draw) {
        auto const image = snapshot(size, scale, [&](cairo_t* cairo) { draw(cairo); });
        return image ? picture(image) : QImage();
    }
    static void fill(cairo_t* cairo, NSRect const& rect, NSColor const& color) {
        setSource(cairo, color);
        addRectangle(cairo, rect);
        cairo_fill(cairo);
    }
};

struct WithQt {
    using Image = QImage;
    static QImage const& borrowed(Image const& image) { return image; }
    static Image image(QImage const& picture) { return picture; }
    static QImage picture(Image const& image) { return image; }
    template <class Draw> static QImage drawn(NSSize const& size, double scale, Draw draw) {
        return snapshot(size, scale, [&](QPainter& painter) { draw(painter); });
    }
    static void fill(QPainter& painter, NSRect const& rect, NSColor const& color) { painter.fillRect(toQt(rect), toQt(color)); }
};

constexpr NSSize size{160, 120};
std::vector<GradientStop> const plain{{{1, 0.9, 0.2}, 0}, {{0.1, 0.2, 0.8}, 1}},
    see{{{1, 0, 0, 1}, 0}, {{0, 1, 0, 0}, 0.5}, {{0, 0, 1, 0.8}, 1}},
    hard{{{1, 1, 1}, 0.2}, {{0, 0, 0}, 0.5}, {{1, 0.5, 0}, 0.5}, {{0, 0.5, 1}, 0.9}};

/// The mean difference of the channel that differs most.
double difference(QImage const& a, QImage const& b) {
    double sums[4] = {};
    for (qsizetype at = 0; at < a.sizeInBytes(); ++at) sums[at % 4] += std::abs(a.constBits()[at] - b.constBits()[at]);
    return 4 * *std::max_element(sums, sums + 4) / double(a.sizeInBytes());
}
bool isShown(QImage const& picture) {
    return difference(picture, WithQt::drawn(size, 1, [](QPainter&) {})) > 5;
}

// The judge is `colorAt`, pixel by pixel.
TEST(RadialGradient, BothToolkitsDrawThePictureThatItsColoursSay) {
    NSPoint const left{50, 60}, middle{80, 60}, right{110, 50};
    // clang-format off
    RadialGradient const rows[] = {
        {middle, 0, middle, 50, plain}, {middle, 20, middle, 50, see}, // around one centre
        {middle, 50, middle, 10, plain}, {middle, 50, {90, 65}, 10, see}, // inward
        {{60, 50}, 0, middle, 50, hard}, {{30, 60}, 0, middle, 50, plain}, // a focus, one on the rim
        {{65, 60}, 20, middle, 35, see}, {middle, 35, {65, 60}, 20, see}, // touching from inside
        {left, 10, right, 30, plain}, {left, 30, right, 5, see}, {left, 0, right, 20, hard}, // cones
        {left, 20, right, 20, plain}, {{70, 60}, 30, {95, 60}, 35, plain},
        {middle, 10, middle, 40, {{{0, 0.5, 0.5}, 0.3}}}, // a tube, crossing, one colour
        {middle, 10, middle, 40, {{{1, 2, 0}, 7}, {{0, -1, 1, 0.5}, -3}, {{1, 1, 1}, 0.5}}}}; // out of order and range
    // clang-format on
    for (auto const& ofRow : rows)
        for (auto const extent : {GradientExtent::Extend, GradientExtent::Clip}) {
            auto gradient = ofRow;
            gradient.extent = extent;
            QImage truth(160, 120, QImage::Format_ARGB32_Premultiplied);
            for (int at = 0; at < 160 * 120; ++at)
                truth.setPixelColor(at % 160, at / 160,
                                    toQt(gradient.colorAt({at % 160 + 0.5, at / 160 + 0.5}).value_or(NSColor{0, 0, 0, 0})));
            auto const cairo = WithCairo::drawn(size, 1, [&](cairo_t* to) { draw(gradient, {{0, 0}, size}, to); });
            auto const qt = WithQt::drawn(size, 1, [&](QPainter& to) { draw(gradient, {{0, 0}, size}, to); });
            EXPECT_TRUE(isShown(truth) && difference(cairo, truth) <= 2 && difference(qt, truth) <= 2 &&
                        difference(cairo, qt) <= 2)
                << &ofRow - rows << (extent == GradientExtent::Clip ? " clipped: " : ": ") << difference(cairo, truth) << ", "
                << difference(qt, truth);
        }
}

TEST(RadialGradient, FollowsTransformsAndWithoutAPictureDrawsNothing) {
    RadialGradient const good{{20, 15}, 2, {28, 20}, 18, see, GradientExtent::Clip};
    std::vector<RadialGradient> rows(7, good);
    rows[1].stops.clear();
    rows[2] = {{1, 2}, 3, {1, 2}, 3, plain};
    rows[3].startRadius = -1;
    rows[4].endCenter.x = HUGE_VAL;
    rows[5].startCenter.y = std::nan("");
    for (auto& stop : rows[6].stops) stop.position = std::nan("");
    for (auto const& gradient : rows) {
        auto const drawnBy = [&](auto toolkit, auto place) {
            return decltype(toolkit)::drawn(size, 1, [&](auto&& to) { place(to), draw(gradient, {{5, 5}, {30, 20}}, to); });
        };
        auto const cairo = drawnBy(
            WithCairo{}, [](cairo_t* to) { cairo_translate(to, 40, -30), cairo_rotate(to, M_PI / 6), cairo_scale(to, 3, 2.5); });
        auto const qt = drawnBy(WithQt{}, [](QPainter& to) { to.translate(40, -30), to.rotate(30), to.scale(3, 2.5); });
        bool const isGood = &gradient == &rows[0];
        EXPECT_TRUE(gradient.isDrawable() == isGood && isShown(qt) == isGood && difference(cairo, qt) <= (isGood ? 2 : 0));
        EXPECT_EQ(gradient.colorAt({30, 20}).has_value(), isGood);
        EXPECT_EQ(cairo.pixel(5, 5), 0u) << "outside of its rectangle";
    }
}

constexpr QRgb red = 0xffff0000, blue = 0xff0000ff, white = 0xffffffff;

/// Left half red, right half blue.
QImage halves(int width, int height) {
    QImage picture(width, height, QImage::Format_ARGB32_Premultiplied);
    for (int at = 0; at < width * height; ++at) picture.setPixel(at % width, at / width, at % width < width / 2 ? red : blue);
    return picture;
}

template <class Toolkit> class Images : public testing::Test {};
using Toolkits = testing::Types<WithCairo, WithQt>;
TYPED_TEST_SUITE(Images, Toolkits);

TYPED_TEST(Images, EachModeFillsWhatPlacedInSaysAndIsCutAtTheRectangle) {
    NSRect const into{{20, 10}, {80, 60}};
    for (auto const& [width, height] : {std::pair(40, 20), std::pair(200, 20), std::pair(30, 100)})
        for (int mode = 0; mode <= static_cast<int>(RectContentMode::BottomRight); ++mode) {
            auto const image = TypeParam::image(halves(width, height));
            auto const drawn = TypeParam::drawn({130, 90}, 1, [&](auto&& to) {
                TypeParam::fill(to, {{0, 0}, {130, 90}}, {1, 1, 1});
                draw(TypeParam::borrowed(image), into, RectContentMode{mode}, to);
                TypeParam::fill(to, {{128, 0}, {2, 2}}, {0, 0, 1}); // the state is as before
            });
            auto const place = NSRect{into.origin, {double(width), double(height)}}.placedIn(into, RectContentMode{mode});
            auto const shown = place.intersection(into).value();
            int wrong = drawn.pixel(129, 1) != blue;
            for (int at = 130 * 2; at < 130 * 90; ++at) {
                NSPoint const here{at % 130 + 0.5, at / 130 + 0.5};
                auto const color = drawn.pixel(at % 130, at / 130);
                bool const isSeam = std::abs(here.x - place.center().x) <= place.width() / width + 1;
                if (!shown.inset(-1, -1).contains(here)) wrong += color != white;
                if (shown.inset(1, 1).contains(here) && !isSeam) wrong += color != (here.x < place.center().x ? red : blue);
            }
            EXPECT_EQ(wrong, 0) << width << " x " << height << ", mode " << mode;
        }
}

TYPED_TEST(Images, ThumbnailsKeepTheRatioAndAverage) {
    auto const small = [](QImage const& of, int side) {
        auto const image = TypeParam::image(of);
        auto const made = thumbnail(TypeParam::borrowed(image), side);
        return made == typename TypeParam::Image() ? QImage() : TypeParam::picture(made);
    };
    // clang-format off
    for (auto const& [of, side, expected] : {
             std::tuple(QSize(400, 200), 100, QSize(100, 50)), {QSize(200, 400), 100, QSize(50, 100)},
             {QSize(5000, 2), 100, QSize(100, 1)},
             {QSize(30, 20), 100, QSize(30, 20)}, {QSize(30, 20), 0, QSize(0, 0)}, {QSize(30, 20), -4, QSize(0, 0)}}) {
        // clang-format on
        auto const made = small(halves(of.width(), of.height()), side);
        EXPECT_EQ(made.size(), expected) << side;
        EXPECT_TRUE(made.isNull() || (made.pixel(0, 0) == red && made.pixel(made.width() - 1, made.height() - 1) == blue))
            << "no faded rim";
    }
    QImage board(256, 256, QImage::Format_ARGB32_Premultiplied);
    for (int at = 0; at < 256 * 256; ++at) board.setPixel(at % 256, at / 256, (at + at / 256) % 2 ? 0xffffffff : 0xff000000);
    auto const grey = small(board, 32);
    for (int at = 0; at < 32 * 32; ++at) ASSERT_NEAR(qGreen(grey.pixel(at % 32, at / 32)), 127, 8) << "averaged, not picked";
}

TYPED_TEST(Images, SnapshotsHaveTheScaleThatIsAskedFor) {
    auto const drawn = TypeParam::drawn({10, 5.5}, 2, [](auto&& to) { TypeParam::fill(to, {{1, 2}, {3, 1}}, {1, 0, 0, 0.5}); });
    ASSERT_EQ(drawn.size(), QSize(20, 11));
    for (int at = 0; at < 20 * 11; ++at)
        ASSERT_NEAR(qAlpha(drawn.pixel(at % 20, at / 20)), QRect(2, 4, 6, 2).contains(at % 20, at / 20) ? 128 : 0, 1) << at;
    for (auto const& refused : {NSSize{0, 5}, NSSize{5, std::nan("")}, NSSize{HUGE_VAL, 1}, NSSize{5, -5}})
        EXPECT_TRUE(TypeParam::drawn(refused, 1, [](auto&&) { ADD_FAILURE() << "nothing to draw on"; }).isNull()) << refused;
    for (double const scale : {0.0, -1.0, 1e9, std::nan("")})
        EXPECT_TRUE(TypeParam::drawn({5, 5}, scale, [](auto&&) {}).isNull()) << scale;
}

TEST(Cairo, WhatHasNoPlaceOrSizeLeavesTheContextInOrder) {
    auto const image = WithCairo::image(halves(4, 4));
    auto const drawn = WithCairo::drawn({8, 8}, 1, [&](cairo_t* cairo) {
        double const numbers[] = {0, 4, -4, 1e-320, 1e-200, 1e200, DBL_MAX, HUGE_VAL, -HUGE_VAL, std::nan("")};
        constexpr int count = std::size(numbers);
        cairo_rectangle(cairo, 0, 0, 0, 0), cairo_clip(cairo); // only the context's health is looked at
        for (int at = 0; at < count * count * count * count; ++at) {
            NSRect const rect{{numbers[at % count], numbers[at / count % count]},
                              {numbers[at / count / count % count], numbers[at / count / count / count]}};
            if (at % 7 == 0) draw(RadialGradient{{2, 2}, 1, {3, 3}, 4, plain}, rect, cairo);
            draw(image.get(), rect, RectContentMode{at % 13}, cairo);
            addRectangle(cairo, rect), cairo_fill(cairo);
            ASSERT_EQ(cairo_status(cairo), CAIRO_STATUS_SUCCESS) << rect << at % 13;
        }
        cairo_reset_clip(cairo);
        WithCairo::fill(cairo, {{-HUGE_VAL, -HUGE_VAL}, {HUGE_VAL, HUGE_VAL}}, {1, 1, 1});
        WithCairo::fill(cairo, {{4, -HUGE_VAL}, {HUGE_VAL, HUGE_VAL}}, {0, 0, 1});
    });
    EXPECT_TRUE(drawn.pixel(3, 7) == white && drawn.pixel(4, 0) == blue && drawn.pixel(7, 7) == blue);
}

TEST(Conversions, GoBothWays) {
    for (NSRect const& rect : {NSRect{{1.5, -2}, {3, 4.25}}, NSRect{{4.5, 2.25}, {-3, -4.25}}}) {
        EXPECT_TRUE(fromQt(toQt(rect)) == rect.standardized() && fromCairo(toCairo(rect)) == rect.standardized()) << rect;
        EXPECT_TRUE(toQtInt(rect) == QRect(1, -2, 4, 5) && fromCairo(toCairoInt(rect)) == fromQt(QRect(1, -2, 4, 5))) << rect;
    }
    NSRect const far{{std::nan(""), -1e30}, {5, HUGE_VAL}};
    EXPECT_TRUE(toQtInt(far).top() == 1 - (1 << 30) && toQtInt(far).bottom() == (1 << 30) - 2 && toCairoInt(far).width == 0);
    EXPECT_TRUE(fromQt(toQt(NSPoint{1, -2.5})) == NSPoint({1, -2.5}) && fromQt(toQt(NSSize{1, 2.5})) == NSSize({1, 2.5}));
    EXPECT_TRUE(toQt(NSEdgeInsets{1, 2, 3, 4}) == QMarginsF(2, 1, 4, 3) &&
                fromQt(QMarginsF(2, 1, 4, 3)) == NSEdgeInsets({1, 2, 3, 4}));
    for (double part = 0; part <= 1; part += 1 / 255.0)
        ASSERT_EQ(fromQt(toQt(NSColor{part, 1 - part, 0.5, part}))->hexText(), (NSColor{part, 1 - part, 0.5, part}.hexText()));
    EXPECT_TRUE(fromQt(QColor::fromHsv(240, 255, 255)) == NSColor({0, 0, 1}) && fromQt(QColor()) == std::nullopt);
    EXPECT_EQ(toQt(NSColor{7, std::nan(""), -1}), QColor(Qt::red));
    CairoPattern const solid(cairo_pattern_create_rgba(0.25, 0.5, 0.75, 1)), other(cairo_pattern_create_linear(0, 0, 1, 1));
    EXPECT_TRUE(colorFromCairo(solid.get()) == NSColor({0.25, 0.5, 0.75}) && !colorFromCairo(other.get()));
}

} // namespace
} // namespace Tessarin
