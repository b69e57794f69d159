#pragma once
#include "Tessarin/geometry/RadialGradient.h"
#include "Tessarin/integration/cairo/CairoGeometry.h"
#include <memory>

namespace Tessarin {

struct CairoPatternRelease {
    void operator()(cairo_pattern_t* pattern) const { cairo_pattern_destroy(pattern); }
};
using CairoPattern = std::unique_ptr<cairo_pattern_t, CairoPatternRelease>;

/// The gradient as a source for Cairo; null when it has no picture.
inline CairoPattern toCairo(RadialGradient const& gradient) {
    if (!gradient.isDrawable()) return nullptr;
    CairoPattern pattern(cairo_pattern_create_radial(gradient.startCenter.x, gradient.startCenter.y, gradient.startRadius,
                                                     gradient.endCenter.x, gradient.endCenter.y, gradient.endRadius));
    for (auto const& [color, position] : gradient.sortedStops())
        cairo_pattern_add_color_stop_rgba(pattern.get(), position, color.red, color.green, color.blue, color.alpha);
    cairo_pattern_set_extend(pattern.get(), gradient.extent == GradientExtent::Extend ? CAIRO_EXTEND_PAD : CAIRO_EXTEND_NONE);
    return pattern;
}

/// Draws the gradient over a rectangle, in the context's coordinates, operator and clip; nothing when it has no picture. The
/// context's source, path and state are afterwards what they were.
inline void draw(RadialGradient const& gradient, NSRect const& over, cairo_t* cairo) {
    auto const pattern = toCairo(gradient);
    if (!pattern) return;
    cairo_save(cairo);
    cairo_path_t* const path = cairo_copy_path(cairo);
    cairo_new_path(cairo);
    addRectangle(cairo, over);
    cairo_set_source(cairo, pattern.get());
    cairo_fill(cairo);
    cairo_append_path(cairo, path);
    cairo_path_destroy(path);
    cairo_restore(cairo);
}

} // namespace Tessarin
