#pragma once
#include "integration/cairo/CairoGradient.h"
#include "integration/cairo/CairoImages.h"
#include "integration/qt/QtGradient.h"
#include "integration/qt/QtImages.h"
#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

// Pictures of both toolkits in one form: each pixel a word of alpha, red, green, blue, multiplied by alpha.
namespace Tessarin::tests {

struct Picture {
    int width = 0, height = 0;
    std::vector<std::uint32_t> pixels = {};

    std::uint32_t at(double x, double y) const { return pixels.at(std::size_t(y) * std::size_t(width) + std::size_t(x)); }
    friend bool operator==(Picture const&, Picture const&) = default;
};

inline std::uint32_t pixel(NSColor const& color) {
    auto const byte = [&](double part) { return std::uint32_t(std::lround(part * 255)); };
    return byte(color.alpha) << 24 | byte(color.red * color.alpha) << 16 | byte(color.green * color.alpha) << 8 |
           byte(color.blue * color.alpha);
}
inline int part(std::uint32_t pixel, int at) { return int(pixel >> (8 * at) & 255); }

/// The mean difference of the channel that differs most.
inline double meanDifference(Picture const& a, Picture const& b) {
    double most = 0;
    for (int channel = 0; channel < 4; ++channel) {
        double sum = 0;
        for (std::size_t at = 0; at < a.pixels.size(); ++at)
            sum += std::abs(part(a.pixels[at], channel) - part(b.pixels.at(at), channel));
        most = std::max(most, sum / double(a.pixels.size()));
    }
    return most;
}

struct WithCairo {
    using Image = CairoSurface;
    static Picture picture(Image const& image) {
        if (!image) return {};
        Picture picture{cairo_image_surface_get_width(image.get()), cairo_image_surface_get_height(image.get())};
        copy(picture, image.get(), true);
        return picture;
    }
    static Image image(Picture picture) {
        Image image(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, picture.width, picture.height));
        copy(picture, image.get(), false);
        cairo_surface_mark_dirty(image.get());
        return image;
    }
    template <class Draw> static Picture drawn(NSSize const& size, double scale, Draw draw) {
        return picture(snapshot(size, scale, [&](cairo_t* cairo) { draw(cairo); }));
    }
    static void fill(cairo_t* cairo, NSRect const& rect, NSColor const& color) {
        setSource(cairo, color);
        addRectangle(cairo, rect);
        cairo_fill(cairo);
    }
    static void drawImage(Image const& image, NSRect const& into, RectContentMode mode, cairo_t* cairo) {
        draw(image.get(), into, mode, cairo);
    }
    static Image small(Image const& image, int side) { return thumbnail(image.get(), side); }

private:
    static void copy(Picture& picture, cairo_surface_t* image, bool isRead) {
        auto const bytes = std::size_t(picture.width) * 4;
        picture.pixels.resize(std::size_t(picture.width) * std::size_t(picture.height));
        for (int y = 0; y < picture.height; ++y) {
            auto* const line = cairo_image_surface_get_data(image) + y * cairo_image_surface_get_stride(image);
            auto* const own = picture.pixels.data() + std::ptrdiff_t(y) * picture.width;
            isRead ? std::memcpy(own, line, bytes) : std::memcpy(line, own, bytes);
        }
    }
};

struct WithQt {
    using Image = QImage;
    static Picture picture(Image const& image) {
        auto const same = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
        Picture picture{same.width(), same.height()};
        for (int y = 0; y < picture.height; ++y)
            for (int x = 0; x < picture.width; ++x)
                picture.pixels.push_back(reinterpret_cast<QRgb const*>(same.constScanLine(y))[x]);
        return picture;
    }
    static Image image(Picture const& picture) {
        return QImage(reinterpret_cast<uchar const*>(picture.pixels.data()), picture.width, picture.height,
                      QImage::Format_ARGB32_Premultiplied)
            .copy();
    }
    template <class Draw> static Picture drawn(NSSize const& size, double scale, Draw draw) {
        return picture(snapshot(size, scale, [&](QPainter& painter) { draw(painter); }));
    }
    static void fill(QPainter& painter, NSRect const& rect, NSColor const& color) { painter.fillRect(toQt(rect), toQt(color)); }
    static void drawImage(Image const& image, NSRect const& into, RectContentMode mode, QPainter& painter) {
        draw(image, into, mode, painter);
    }
    static Image small(Image const& image, int side) { return thumbnail(image, side); }
};

} // namespace Tessarin::tests
