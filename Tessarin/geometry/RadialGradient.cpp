#include "Tessarin/geometry/RadialGradient.h"

#include <algorithm>
#include <cmath>

namespace Tessarin {

bool RadialGradient::isDrawable() const noexcept {
    for (double const number : {startCenter.x, startCenter.y, startRadius, endCenter.x, endCenter.y, endRadius})
        if (!std::isfinite(number)) return false;
    bool const hasStops = std::any_of(stops.begin(), stops.end(), [](auto const& stop) { return !std::isnan(stop.position); });
    return hasStops && startRadius >= 0 && endRadius >= 0 && !(startCenter == endCenter && startRadius == endRadius);
}

std::vector<GradientStop> RadialGradient::sortedStops() const {
    std::vector<GradientStop> sorted;
    for (auto const& stop : stops)
        if (!std::isnan(stop.position)) sorted.push_back({stop.color.clamped(), std::clamp(stop.position, 0.0, 1.0)});
    std::stable_sort(sorted.begin(), sorted.end(), [](auto const& a, auto const& b) { return a.position < b.position; });
    if (sorted.empty()) return sorted;
    if (sorted.front().position > 0) sorted.insert(sorted.begin(), {sorted.front().color, 0});
    if (sorted.back().position < 1) sorted.push_back({sorted.back().color, 1});
    return sorted;
}

/// The last circle through the point, of all that exist: where |point - centre(t)| = radius(t), and the radius is not negative.
std::optional<double> RadialGradient::positionAt(NSPoint const& point) const noexcept {
    auto const way = endCenter - startCenter, arm = point - startCenter;
    auto const growth = endRadius - startRadius;
    // a t² - 2 b t + c = 0
    auto const a = way.dot(way) - growth * growth, b = arm.dot(way) + startRadius * growth,
               c = arm.dot(arm) - startRadius * startRadius;
    double roots[2];
    if (a == 0) { // the circles touch from inside: there is one
        if (b == 0) return {};
        roots[0] = roots[1] = c / (2 * b);
    } else {
        auto const square = b * b - a * c;
        if (square < 0) return {};
        roots[0] = (b + std::sqrt(square)) / a, roots[1] = (b - std::sqrt(square)) / a;
        if (roots[0] < roots[1]) std::swap(roots[0], roots[1]);
    }
    for (double const root : roots) {
        bool const isShown = extent == GradientExtent::Extend || (root >= 0 && root <= 1);
        if (isShown && startRadius + root * growth >= 0) return root;
    }
    return {};
}

std::optional<NSColor> RadialGradient::colorAt(NSPoint const& point) const {
    if (!isDrawable()) return {};
    auto const position = positionAt(point);
    if (!position) return {};
    auto const sorted = sortedStops();
    auto const after =
        std::upper_bound(sorted.begin(), sorted.end(), *position, [](double at, auto const& stop) { return at < stop.position; });
    if (after == sorted.begin()) return sorted.front().color;
    auto const& before = after[-1];
    if (after == sorted.end()) return before.color;
    return before.color.interpolated(after->color, (*position - before.position) / (after->position - before.position));
}

} // namespace Tessarin
