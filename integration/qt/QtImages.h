#pragma once
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/integration/qt/QtGeometry.h"
#include <QImage>
#include <QPainter>

namespace Tessarin {

/// Larger images Qt's painters do not draw on.
inline constexpr int largestQtSide = 32767;

/// Draws an image into a rectangle: placed there by the mode, as `NSRect::placedIn` says, smoothly scaled, and cut where it would
/// stick out. Its size is that in units, pixels divided by its device pixel ratio; with `None` its origin is the rectangle's. The
/// painter's state is afterwards what it was.
inline void draw(QImage const& image, NSRect const& into, RectContentMode mode, QPainter& painter) {
    NSRect const whole{into.topLeft(), fromQt(image.deviceIndependentSize())};
    auto const place = whole.placedIn(into, mode);
    if (whole.isEmpty() || place.isEmpty()) return;
    painter.save();
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.setClipRect(toQt(into), Qt::IntersectClip);
    painter.drawImage(toQt(place), image);
    painter.restore();
}

/// A smaller image of the same ratio whose longer side has so many pixels; the shorter has at least one. An image that is no
/// larger is given as it is. A null image for a null image, and for less than one pixel.
inline QImage thumbnail(QImage const& image, int longestSide) {
    if (image.isNull() || longestSide < 1) return {};
    if (std::max(image.width(), image.height()) <= longestSide) return image;
    auto const fitted = fromQt(image.size()).fittedIn({double(longestSide), double(longestSide)});
    auto small = image.scaled(std::max(1, int(std::lround(fitted.width))), std::max(1, int(std::lround(fitted.height))),
                              Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    small.setDevicePixelRatio(1);
    return small;
}

/// An image of what `draw` draws, `scale` pixels a unit, transparent where it draws nothing. A null image when the size in
/// pixels is empty or more than Qt draws on.
inline QImage snapshot(NSSize const& size, double scale, FunctionRef<void(QPainter&)> draw) {
    auto const pixels = size.scaled(scale);
    if (pixels.isEmpty() || !(pixels.width <= largestQtSide && pixels.height <= largestQtSide)) return {};
    QImage image(int(std::ceil(pixels.width)), int(std::ceil(pixels.height)), QImage::Format_ARGB32_Premultiplied);
    if (image.isNull()) return {};
    image.setDevicePixelRatio(scale);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    draw(painter);
    return image;
}

} // namespace Tessarin
