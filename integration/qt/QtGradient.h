#pragma once
#include "Tessarin/geometry/RadialGradient.h"
#include "Tessarin/integration/qt/QtGeometry.h"
#include <QPainter>
#include <QPainterPath>
#include <QRadialGradient>

namespace Tessarin {

/// Whether one circle touches the other from inside, or nearly: there the equation that Qt solves has no second answer.
inline bool circlesTouch(RadialGradient const& gradient) {
    auto const way = gradient.startCenter.distance(gradient.endCenter), growth = gradient.endRadius - gradient.startRadius;
    return way > 0 && std::abs(way - std::abs(growth)) < 1e-4 * way;
}

/// Qt's gradient of the same circles and colours, extended; one without stops when there is no picture. Qt knows no gradients
/// that end at their circles, nor the straight edge beyond circles that touch: `draw` cuts those.
inline QRadialGradient toQt(RadialGradient const& gradient) {
    auto start = gradient.startCenter, end = gradient.endCenter;
    auto startRadius = gradient.startRadius, endRadius = gradient.endRadius;
    auto const way = start.distance(end);
    bool const isTouching = circlesTouch(gradient);
    // Of the two circles through a point Qt knows only the later one: where that has a negative radius, it draws nothing. With
    // circles inside of each other, the first must be the inner one.
    bool const isReversed = startRadius > endRadius && (isTouching || startRadius - endRadius > way);
    if (isReversed) std::swap(start, end), std::swap(startRadius, endRadius);
    if (isTouching) endRadius = startRadius + way * (1 + 2e-4); // it would divide by zero

    QRadialGradient brush(toQt(end), endRadius, toQt(start), startRadius);
    brush.setInterpolationMode(QGradient::ComponentInterpolation);
    if (!gradient.isDrawable()) return brush;
    QGradientStops stops;
    for (auto const& [color, position] : gradient.sortedStops()) // of two at the same position Qt would forget one
        stops.push_back({position * (1 - 1e-6) + 1e-9 * double(stops.size()), toQt(color)});
    if (isReversed) {
        std::reverse(stops.begin(), stops.end());
        for (auto& stop : stops) stop.first = 1 - stop.first;
    }
    brush.setStops(stops);
    return brush;
}

namespace gradients {

/// The side of the line on which touching circles touch that any circle reaches, as far as `over` needs it.
inline QPainterPath reachedSide(RadialGradient const& gradient, NSRect const& over) {
    bool const isGrowing = gradient.endRadius > gradient.startRadius;
    auto const inner = isGrowing ? gradient.startCenter : gradient.endCenter;
    auto const outer = isGrowing ? gradient.endCenter : gradient.startCenter;
    auto const inward = (outer - inner) / outer.distance(inner), along = NSPoint{-inward.y, inward.x};
    auto const touch = inner - inward * std::min(gradient.startRadius, gradient.endRadius);
    auto const far = touch.distance(over.center()) + over.width() + over.height();
    QPainterPath side;
    side.addPolygon(QPolygonF{toQt(touch - along * far), toQt(touch + along * far), toQt(touch + (along + inward) * far),
                              toQt(touch + (inward - along) * far)});
    return side;
}

inline QPainterPath circle(NSPoint const& center, double radius) {
    QPainterPath path;
    path.addEllipse(toQt(center), radius, radius);
    return path;
}

/// What the circles from first to last pass over: both, and what lies between their tangents.
inline QPainterPath hull(RadialGradient const& gradient) {
    auto path = circle(gradient.startCenter, gradient.startRadius);
    path.setFillRule(Qt::WindingFill);
    path.addPath(circle(gradient.endCenter, gradient.endRadius));
    auto const way = gradient.endCenter - gradient.startCenter;
    auto const growth = gradient.endRadius - gradient.startRadius;
    if (way.length() <= std::abs(growth)) return path; // one lies in the other
    auto const axis = std::atan2(way.y, way.x), lean = std::acos(-growth / way.length());
    auto const at = [](NSPoint const& center, double radius, double angle) {
        return toQt(center + NSPoint{std::cos(angle), std::sin(angle)} * radius);
    };
    auto const first = at(gradient.startCenter, gradient.startRadius, axis - lean);
    path.addPolygon(QPolygonF{first, at(gradient.endCenter, gradient.endRadius, axis - lean),
                              at(gradient.endCenter, gradient.endRadius, axis + lean),
                              at(gradient.startCenter, gradient.startRadius, axis + lean), first});
    return path;
}

/// The same circles from last to first.
inline RadialGradient turned(RadialGradient const& gradient) {
    RadialGradient other{gradient.endCenter,   gradient.endRadius,     gradient.startCenter,
                         gradient.startRadius, gradient.sortedStops(), gradient.extent};
    std::reverse(other.stops.begin(), other.stops.end());
    for (auto& stop : other.stops) stop.position = 1 - stop.position;
    return other;
}

/// Fills what of the shape lies outside the circle, without smoothing its rim: the parts that are drawn one by one leave no seam.
inline void fill(QPainter& painter, QRectF const& over, QPainterPath const& shape, QPainterPath const& without,
                 RadialGradient const& with) {
    QPainterPath outside; // odd and even
    outside.addRect(over.united(shape.boundingRect()).adjusted(-1, -1, 1, 1));
    outside.addPath(without);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing, false);
    painter.setClipRect(over, Qt::IntersectClip);
    painter.setClipPath(outside, Qt::IntersectClip);
    painter.fillPath(shape, toQt(with));
    painter.restore();
}

} // namespace gradients

/// Draws the gradient over a rectangle, in the painter's coordinates, composition mode and clip; nothing when it has no picture.
/// The painter's state is afterwards what it was.
inline void draw(RadialGradient const& gradient, NSRect const& over, QPainter& painter) {
    if (!gradient.isDrawable()) return;
    if (gradient.extent == GradientExtent::Clip) {
        // In the last circle alone, a point lies on an earlier one: the later one of the gradient turned round.
        auto const start = gradients::circle(gradient.startCenter, gradient.startRadius);
        auto const end = gradients::circle(gradient.endCenter, gradient.endRadius);
        gradients::fill(painter, toQt(over), gradients::hull(gradient), end, gradient);
        gradients::fill(painter, toQt(over), end, start, gradients::turned(gradient));
        return;
    }
    painter.save();
    if (circlesTouch(gradient)) painter.setClipPath(gradients::reachedSide(gradient, over), Qt::IntersectClip);
    painter.fillRect(toQt(over), toQt(gradient));
    painter.restore();
}

} // namespace Tessarin
