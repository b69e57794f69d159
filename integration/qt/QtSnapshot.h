#pragma once
#include "Tessarin/integration/qt/QtImages.h"
#include <QWidget>

namespace Tessarin {

/// An image of a widget with all it holds, as it would look now, `scale` pixels a unit; it need not be shown, nor have a
/// display. A null image for a widget without a size. On the main thread. Needs Qt's Widgets module.
inline QImage snapshot(QWidget& widget, double scale = 1) {
    // A painter of one's own would have the widget drawn once more where it has an effect: the image is the device.
    auto image = snapshot(fromQt(widget.size()), scale, [](QPainter&) {});
    if (!image.isNull()) widget.render(&image);
    return image;
}

} // namespace Tessarin
