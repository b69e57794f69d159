#pragma once
#include "Tessarin/platform/foundation/geometry/NSColor.h"
#include "Tessarin/platform/foundation/geometry/NSRect.h"
#include <QColor>
#include <QMarginsF>
#include <QRectF>
#include <algorithm>
#include <cmath>
#include <optional>

// Points, sizes, rectangles, insets and colours as Qt has them, and back. Needs Qt's Gui module for colours.
namespace Tessarin {

inline NSPoint fromQt(QPointF const& point) { return {point.x(), point.y()}; }
inline NSPoint fromQt(QPoint const& point) { return {double(point.x()), double(point.y())}; }
inline NSSize fromQt(QSizeF const& size) { return {size.width(), size.height()}; }
inline NSSize fromQt(QSize const& size) { return {double(size.width()), double(size.height())}; }
inline NSRect fromQt(QRectF const& rect) { return {fromQt(rect.topLeft()), fromQt(rect.size())}; }
inline NSRect fromQt(QRect const& rect) { return {fromQt(rect.topLeft()), fromQt(rect.size())}; }
inline NSEdgeInsets fromQt(QMarginsF const& margins) {
    return {.top = margins.top(), .left = margins.left(), .bottom = margins.bottom(), .right = margins.right()};
}
/// Of any colour model, in sRGB; absent for a colour that is not valid.
inline std::optional<NSColor> fromQt(QColor const& color) {
    if (!color.isValid()) return {};
    auto const rgb = color.spec() == QColor::ExtendedRgb ? color : color.toRgb();
    return NSColor{rgb.redF(), rgb.greenF(), rgb.blueF(), rgb.alphaF()};
}

inline QPointF toQt(NSPoint const& point) { return {point.x, point.y}; }
inline QSizeF toQt(NSSize const& size) { return {size.width, size.height}; }
/// Standardized: Qt takes a negative size as an empty rectangle.
inline QRectF toQt(NSRect const& rect) { return {rect.minX(), rect.minY(), rect.width(), rect.height()}; }
inline QMarginsF toQt(NSEdgeInsets const& insets) { return {insets.left, insets.top, insets.right, insets.bottom}; }
/// Qt keeps 16 bits of each part.
inline QColor toQt(NSColor const& color) {
    auto const shown = color.clamped();
    return QColor::fromRgbF(float(shown.red), float(shown.green), float(shown.blue), float(shown.alpha));
}

/// The smallest one around it. What does not fit an int ends below 2³⁰; what is no number is 0.
inline QRect toQtInt(NSRect const& rect) {
    auto const whole = [](double number) {
        constexpr double most = (1 << 30) - 1; // so that its width and height fit, too
        return std::isnan(number) ? 0 : static_cast<int>(std::clamp(number, -most, most));
    };
    auto const around = rect.integralOutward();
    return {QPoint(whole(around.minX()), whole(around.minY())), QPoint(whole(around.maxX()) - 1, whole(around.maxY()) - 1)};
}

} // namespace Tessarin
