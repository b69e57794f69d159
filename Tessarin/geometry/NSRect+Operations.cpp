#include "Tessarin/platform/foundation/geometry/NSRect.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Tessarin {
namespace {

enum class Rounding { Outward, Inward };

/// From edge to edge. A length is itself rounded: one step further or less far where the end would else lie on the wrong side, so
/// that a union contains what it is made of, and an intersection lies in both.
double lengthBetween(double start, double end, Rounding rounding) {
    auto const length = end - start;
    auto const infinity = std::numeric_limits<double>::infinity();
    if (rounding == Rounding::Outward && start + length < end) return std::nextafter(length, infinity);
    if (rounding == Rounding::Inward && start + length > end) return std::nextafter(length, 0);
    return length;
}

NSRect between(NSPoint const& start, NSPoint const& end, Rounding rounding) {
    return {start, {lengthBetween(start.x, end.x, rounding), lengthBetween(start.y, end.y, rounding)}};
}

} // namespace

std::optional<NSRect> NSRect::intersection(NSRect const& other) const noexcept {
    if (!intersects(other)) return {};
    return between({std::max(minX(), other.minX()), std::max(minY(), other.minY())},
                   {std::min(maxX(), other.maxX()), std::min(maxY(), other.maxY())}, Rounding::Inward);
}

NSRect NSRect::unionWith(NSRect const& other) const noexcept {
    if (other.isEmpty()) return *this;
    if (isEmpty()) return other;
    return between({std::min(minX(), other.minX()), std::min(minY(), other.minY())},
                   {std::max(maxX(), other.maxX()), std::max(maxY(), other.maxY())}, Rounding::Outward);
}

NSRect NSRect::integralOutward() const noexcept {
    return between({std::floor(minX()), std::floor(minY())}, {std::ceil(maxX()), std::ceil(maxY())}, Rounding::Outward);
}

NSRect NSRect::integralInward() const noexcept {
    NSPoint const start{std::ceil(minX()), std::ceil(minY())};
    return between(start, {std::max(start.x, std::floor(maxX())), std::max(start.y, std::floor(maxY()))}, Rounding::Inward);
}

} // namespace Tessarin
