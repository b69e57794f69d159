#include "Tessarin/platform/foundation/geometry/NSColor.h"

#include <array>
#include <cmath>

namespace Tessarin {
namespace {

int digitOf(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

} // namespace

std::string NSColor::hexText() const {
    static constexpr char digits[] = "0123456789abcdef";
    auto const color = clamped();
    std::string text = "#";
    for (double const part : {color.red, color.green, color.blue, color.alpha}) {
        auto const byte = static_cast<unsigned>(std::lround(part * 255));
        if (text.size() == 7 && byte == 255) break; // opaque
        text += {digits[byte / 16], digits[byte % 16]};
    }
    return text;
}

std::optional<NSColor> NSColor::fromHexText(std::string_view text) {
    if (text.starts_with('#')) text.remove_prefix(1);
    bool const isShort = text.size() == 3 || text.size() == 4;
    if (!isShort && text.size() != 6 && text.size() != 8) return {};
    std::array<double, 4> parts{0, 0, 0, 1};
    std::size_t const digitsEach = isShort ? 1 : 2;
    for (std::size_t at = 0; at < text.size(); at += digitsEach) {
        auto const high = digitOf(text[at]), low = digitOf(text[at + digitsEach - 1]);
        if (high < 0 || low < 0) return {};
        parts[at / digitsEach] = (high * 16 + low) / 255.0;
    }
    return NSColor{parts[0], parts[1], parts[2], parts[3]};
}

NSColor NSColor::interpolated(NSColor const& end, double fraction) const noexcept {
    auto const at = unit(fraction);
    return {std::lerp(red, end.red, at), std::lerp(green, end.green, at), std::lerp(blue, end.blue, at),
            std::lerp(alpha, end.alpha, at)};
}

} // namespace Tessarin
