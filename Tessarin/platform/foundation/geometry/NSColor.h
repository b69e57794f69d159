#pragma once
#include "Tessarin/Export.h"
#include <iosfwd>
#include <memory> // std::hash
#include <optional>
#include <string>
#include <string_view>

namespace Tessarin {

/// A colour in sRGB: red, green, blue and opacity, each from 0 to 1, not multiplied by the opacity. A value. Nothing keeps
/// numbers outside that range out; whoever draws or writes the colour as text takes the nearest inside, and 0 for what is no
/// number.
///
///     auto const link = NSColor::fromHexText("#1a5fb4").value_or(NSColor{});
///     label.setColour(link.withAlpha(0.5).hexText()); // "#1a5fb480"
struct TESSARIN_API NSColor {
    double red = 0, green = 0, blue = 0, alpha = 1;

    /// "#rrggbb", with the opacity behind it, "#rrggbbaa", unless that is "ff". Lower case, each part rounded to the nearest.
    std::string hexText() const;
    /// Reads "#rgb", "#rgba", "#rrggbb" and "#rrggbbaa" in either case, also without the "#"; absent for anything else.
    static std::optional<NSColor> fromHexText(std::string_view text);

    /// "{0.1, 0.5, 1, 1}", in the order of the fields: each number as the shortest text that reads back.
    std::string description() const;
    /// Reads that text, with blanks wherever they separate; absent for anything else.
    static std::optional<NSColor> fromString(std::string_view text);

    constexpr NSColor withAlpha(double opacity) const noexcept { return {red, green, blue, opacity}; }
    /// Every part brought into 0 … 1.
    constexpr NSColor clamped() const noexcept { return {unit(red), unit(green), unit(blue), unit(alpha)}; }
    /// This colour at 0, `end` at 1, and a straight line between their parts; fractions outside stop there.
    NSColor interpolated(NSColor const& end, double fraction) const noexcept;

    friend constexpr bool operator==(NSColor const&, NSColor const&) = default;
    friend TESSARIN_API std::ostream& operator<<(std::ostream& out, NSColor const& color);

private:
    static constexpr double unit(double part) noexcept { return part > 0 ? part < 1 ? part : 1 : 0; }
};

} // namespace Tessarin

template <> struct std::hash<Tessarin::NSColor> {
    TESSARIN_API std::size_t operator()(Tessarin::NSColor const& color) const noexcept;
};
