#pragma once
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/integration/cairo/CairoGeometry.h"
#include <cmath>
#include <memory>

// Images are Cairo's image surfaces. None of these touches the surface that it reads.
namespace Tessarin {

struct CairoSurfaceRelease {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using CairoSurface = std::unique_ptr<cairo_surface_t, CairoSurfaceRelease>;

/// Larger images Cairo does not make.
inline constexpr int largestCairoSide = 32767;

/// In units, that is pixels divided by the surface's scale; empty for what is no image surface in order.
inline NSSize imageSize(cairo_surface_t* image) {
    if (!image || cairo_surface_status(image) != CAIRO_STATUS_SUCCESS) return {};
    if (cairo_surface_get_type(image) != CAIRO_SURFACE_TYPE_IMAGE) return {};
    double across = 1, down = 1;
    cairo_surface_get_device_scale(image, &across, &down);
    return {cairo_image_surface_get_width(image) / across, cairo_image_surface_get_height(image) / down};
}

/// Draws an image into a rectangle: placed there by the mode, as `NSRect::placedIn` says, smoothly scaled, and cut where it
/// would stick out. With `None` its origin is the rectangle's. Nothing is drawn of what is no image, and nothing where it would
/// be more than 10⁹ units away or 10⁹ times its size, or as little. The context's source, path
/// and state are afterwards what they were.
inline void draw(cairo_surface_t* image, NSRect const& into, RectContentMode mode, cairo_t* cairo) {
    NSRect const whole{into.topLeft(), imageSize(image)};
    auto const place = whole.placedIn(into, mode), shown = place.intersection(into).value_or(NSRect{});
    if (whole.isEmpty() || shown.isEmpty()) return;
    auto const across = place.size.width / whole.size.width, down = place.size.height / whole.size.height;
    if (!isUsableScale(across, down)) return;
    for (auto const each : {place.origin.x, place.origin.y})
        if (!(std::abs(each) < 1e9)) return;
    cairo_save(cairo);
    cairo_path_t* const path = cairo_copy_path(cairo);
    cairo_new_path(cairo);
    addRectangle(cairo, shown);
    cairo_translate(cairo, place.origin.x, place.origin.y);
    cairo_scale(cairo, across, down);
    cairo_set_source_surface(cairo, image, 0, 0);
    cairo_pattern_set_filter(cairo_get_source(cairo), CAIRO_FILTER_GOOD);
    cairo_pattern_set_extend(cairo_get_source(cairo), CAIRO_EXTEND_PAD); // the rim does not fade
    cairo_fill(cairo);
    cairo_restore(cairo);
    cairo_append_path(cairo, path);
    cairo_path_destroy(path);
}

/// An image of what `draw` draws, `scale` pixels a unit, transparent where it draws nothing. Null when the size in pixels is
/// empty or more than Cairo makes.
inline CairoSurface snapshot(NSSize const& size, double scale, FunctionRef<void(cairo_t*)> draw) {
    auto const pixels = size.scaled(scale);
    if (pixels.isEmpty() || !(pixels.width <= largestCairoSide && pixels.height <= largestCairoSide)) return nullptr;
    CairoSurface image(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, static_cast<int>(std::ceil(pixels.width)),
                                                  static_cast<int>(std::ceil(pixels.height))));
    if (cairo_surface_status(image.get()) != CAIRO_STATUS_SUCCESS) return nullptr;
    cairo_surface_set_device_scale(image.get(), scale, scale);
    cairo_t* const cairo = cairo_create(image.get());
    draw(cairo);
    cairo_destroy(cairo);
    cairo_surface_flush(image.get());
    return image;
}

/// A smaller image of the same ratio whose longer side has so many pixels; the shorter has at least one. An image that is no
/// larger is copied as it is. Null for what is no image, and for less than one pixel.
inline CairoSurface thumbnail(cairo_surface_t* image, int longestSide) {
    if (imageSize(image).isEmpty() || longestSide < 1) return nullptr;
    NSSize const pixels{double(cairo_image_surface_get_width(image)), double(cairo_image_surface_get_height(image))};
    double const longest = std::min<double>(longestSide, std::max(pixels.width, pixels.height));
    auto const fitted = pixels.fittedIn({longest, longest});
    NSSize const size{std::max(1.0, std::round(fitted.width)), std::max(1.0, std::round(fitted.height))};
    return snapshot(size, 1, [&](cairo_t* cairo) {
        cairo_set_operator(cairo, CAIRO_OPERATOR_SOURCE);
        draw(image, {{0, 0}, size}, RectContentMode::ScaleToFill, cairo);
    });
}

} // namespace Tessarin
