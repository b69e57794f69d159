// Inline, since lists and grids place thousands of pictures (benchmark "geometry"). Included at the end of NSSize.h.
#pragma once
#include "Tessarin/geometry/AspectRatioType.h"

namespace Tessarin {

namespace geometry {

constexpr double lesser(double a, double b) noexcept { return b < a ? b : a; }
constexpr double greater(double a, double b) noexcept { return a < b ? b : a; }
constexpr double notNegative(double side) noexcept { return side > 0 ? side : 0; } // and a number
constexpr double chosen(bool isFirst, double first, double second) noexcept {
    double const both[] = {second, first};
    return both[isFirst];
}

} // namespace geometry

constexpr bool NSSize::isEmpty() const noexcept { return !(width > 0 && height > 0); }
constexpr double NSSize::area() const noexcept { return isEmpty() ? 0 : width * height; }

constexpr std::optional<double> NSSize::aspectRatio() const noexcept {
    if (height == 0) return {};
    auto const ratio = width / height;
    return ratio == ratio ? std::optional(ratio) : std::nullopt;
}

constexpr AspectRatioType NSSize::aspectRatioType() const noexcept {
    return width < height ? AspectRatioType::Portrait : AspectRatioType::Landscape;
}

constexpr bool NSSize::hasRatio() const noexcept {
    constexpr double infinity = __builtin_huge_val();
    return (width > 0) & (height > 0) & (width < infinity) & (height < infinity); // one jump
}

// The side that binds is taken from the bounds as it is, both where the ratios are the same; the other one is kept within them
// against rounding. Which of the two it is cannot be foreseen by the processor either: no jumps.
constexpr NSSize NSSize::fittedIn(NSSize const& bounds) const noexcept {
    if (!hasRatio()) return {};
    NSSize const most{geometry::notNegative(bounds.width), geometry::notNegative(bounds.height)};
    auto const across = most.width / width, down = most.height / height;
    return {geometry::chosen(across <= down, most.width, geometry::lesser(width * down, most.width)),
            geometry::chosen(down <= across, most.height, geometry::lesser(height * across, most.height))};
}

constexpr NSSize NSSize::filling(NSSize const& bounds) const noexcept {
    if (!hasRatio()) return {};
    NSSize const least{geometry::notNegative(bounds.width), geometry::notNegative(bounds.height)};
    auto const across = least.width / width, down = least.height / height;
    return {geometry::chosen(across >= down, least.width, geometry::greater(width * down, least.width)),
            geometry::chosen(down >= across, least.height, geometry::greater(height * across, least.height))};
}

} // namespace Tessarin
