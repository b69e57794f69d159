#pragma once
#include "Tessarin/platform/foundation/geometry/NSColor.h"
#include "Tessarin/platform/foundation/geometry/NSPoint.h"
#include <optional>
#include <vector>

namespace Tessarin {

/// A colour of a gradient, and where from 0 (the start circle) to 1 (the end circle) it stands.
struct GradientStop {
    NSColor color;
    double position = 0;

    friend bool operator==(GradientStop const&, GradientStop const&) = default;
};

/// What a gradient shows before its first circle and behind its last: its outermost colours, or nothing.
enum class GradientExtent { Extend, Clip };

/// Colours that change from one circle to another: a value. At each position from 0 to 1 lies a circle between the two, drawn
/// in the colour of that position, later ones over earlier ones. The circles need not lie in each other: then what is between
/// them looks like a cone, and outside of it nothing is drawn. Parts of colours change in a straight line, before they are
/// multiplied by their opacity. The adapters for toolkits draw it, <Tessarin/integration/cairo/CairoGradient.h> and
/// <Tessarin/integration/qt/QtGradient.h>, with the same picture.
///
///     RadialGradient const glow{.startCenter = middle, .endCenter = middle, .endRadius = 40,
///                               .stops = {{.color = bright}, {.color = bright.withAlpha(0), .position = 1}}};
struct TESSARIN_API RadialGradient {
    NSPoint startCenter;
    double startRadius = 0;
    NSPoint endCenter;
    double endRadius = 0;
    std::vector<GradientStop> stops;
    GradientExtent extent = GradientExtent::Extend;

    /// False for what has no picture: no stops, a radius that is negative, numbers that are infinite or none, two equal circles.
    bool isDrawable() const noexcept;
    /// In the order of their positions, those at the same one in the order given; positions and parts of colours brought into 0
    /// … 1, the outermost colours repeated at 0 and 1. Stops without a number for a position are left out.
    std::vector<GradientStop> sortedStops() const;
    /// What is drawn at a point; absent where nothing is. This is what the drawings are to look like; it sorts the stops each
    /// time.
    std::optional<NSColor> colorAt(NSPoint const& point) const;

    friend bool operator==(RadialGradient const&, RadialGradient const&) = default;

private:
    std::optional<double> positionAt(NSPoint const& point) const noexcept;
};

} // namespace Tessarin
