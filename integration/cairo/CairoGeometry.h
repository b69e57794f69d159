#pragma once
#include "Tessarin/platform/foundation/geometry/NSColor.h"
#include "Tessarin/platform/foundation/geometry/NSRect.h"
#include <algorithm>
#include <cairo.h>
#include <cmath>
#include <optional>

// Points, rectangles and colours as Cairo has them, and back. Cairo has no types for points and sizes: it takes numbers.
namespace Tessarin {

inline NSRect fromCairo(cairo_rectangle_t const& rect) { return {{rect.x, rect.y}, {rect.width, rect.height}}; }
inline NSRect fromCairo(cairo_rectangle_int_t const& rect) {
    return {{double(rect.x), double(rect.y)}, {double(rect.width), double(rect.height)}};
}

/// Standardized: Cairo would draw a negative size the other way round.
inline cairo_rectangle_t toCairo(NSRect const& rect) { return {rect.minX(), rect.minY(), rect.width(), rect.height()}; }

/// The smallest one around it. What does not fit an int ends below 2³⁰; what is no number is 0.
inline cairo_rectangle_int_t toCairoInt(NSRect const& rect) {
    auto const whole = [](double number) {
        constexpr double most = (1 << 30) - 1; // so that its width and height fit, too
        return std::isnan(number) ? 0 : static_cast<int>(std::clamp(number, -most, most));
    };
    auto const around = rect.integralOutward();
    auto const left = whole(around.minX()), top = whole(around.minY());
    return {left, top, whole(around.maxX()) - left, whole(around.maxY()) - top};
}

/// The colour of a solid pattern; absent for patterns of other kinds.
inline std::optional<NSColor> colorFromCairo(cairo_pattern_t* pattern) {
    NSColor color;
    auto const status = cairo_pattern_get_rgba(pattern, &color.red, &color.green, &color.blue, &color.alpha);
    return status == CAIRO_STATUS_SUCCESS ? std::optional(color) : std::nullopt;
}

/// What is drawn next has this colour.
inline void setSource(cairo_t* cairo, NSColor const& color) {
    auto const shown = color.clamped();
    cairo_set_source_rgba(cairo, shown.red, shown.green, shown.blue, shown.alpha);
}

/// How far Cairo's coordinates reach, in the context's units: what lies beyond would be drawn anywhere.
inline NSRect reachOf(cairo_t* cairo) {
    constexpr double most = 1 << 22;
    double left = HUGE_VAL, top = HUGE_VAL, right = -HUGE_VAL, bottom = -HUGE_VAL;
    for (NSPoint corner : {NSPoint{-most, -most}, {most, -most}, {-most, most}, {most, most}}) {
        cairo_device_to_user(cairo, &corner.x, &corner.y);
        left = std::min(left, corner.x), right = std::max(right, corner.x);
        top = std::min(top, corner.y), bottom = std::max(bottom, corner.y);
    }
    return {{left, top}, {right - left, bottom - top}};
}

/// Adds the rectangle to the current path: as much of it as lies within reach, and nothing of one without a place or size.
inline void addRectangle(cairo_t* cairo, NSRect const& rect) {
    auto const shown = rect.intersection(reachOf(cairo));
    if (!shown) return;
    auto const [x, y, width, height] = toCairo(*shown);
    cairo_rectangle(cairo, x, y, width, height);
}

/// Whether a context may be scaled so and stay in order: one that cannot be inverted puts it in error for good.
inline bool isUsableScale(double across, double down) {
    auto const isUsable = [](double scale) { return std::abs(scale) > 1e-9 && std::abs(scale) < 1e9; };
    return isUsable(across) && isUsable(down);
}

} // namespace Tessarin
