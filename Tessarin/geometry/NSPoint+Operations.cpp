#include "Tessarin/platform/foundation/geometry/NSPoint.h"

#include <cmath>
#include <numeric>

namespace Tessarin {

double NSPoint::length() const noexcept { return std::hypot(x, y); }
double NSPoint::distance(NSPoint const& other) const noexcept { return (*this - other).length(); }

NSPoint NSPoint::midpoint(NSPoint const& other) const noexcept { return {std::midpoint(x, other.x), std::midpoint(y, other.y)}; }

NSPoint NSPoint::interpolated(NSPoint const& end, double fraction) const noexcept {
    return {std::lerp(x, end.x, fraction), std::lerp(y, end.y, fraction)};
}

NSPoint NSPoint::rotated(double radians, NSPoint const& about) const noexcept {
    auto const arm = *this - about;
    auto const sine = std::sin(radians), cosine = std::cos(radians);
    return about + NSPoint{arm.x * cosine - arm.y * sine, arm.x * sine + arm.y * cosine};
}

NSPoint NSPoint::rotated(double radians) const noexcept { return rotated(radians, {0, 0}); }

} // namespace Tessarin
