#pragma once
#include "Tessarin/platform/foundation/geometry/NSSize.h"

namespace Tessarin {

/// A place on a plane, or a step from one place to another: a value. Any numbers may stand in it. Equality is that of the
/// numbers, so a point with a NaN equals nothing.
///
///     auto const middle = press.midpoint(release);
///     if (press.distance(release) > 4) drag(release - press);
struct TESSARIN_API NSPoint {
    double x = 0, y = 0;

    /// "{1, 2}": each number as the shortest text that reads back, "inf" and "nan" among them.
    std::string description() const;
    /// Reads that text, with blanks wherever they separate; absent for anything else, a number beyond double's range included.
    static std::optional<NSPoint> fromString(std::string_view text);

    friend constexpr bool operator==(NSPoint const&, NSPoint const&) = default;
    friend TESSARIN_API std::ostream& operator<<(std::ostream& out, NSPoint const& point);

    // What the room geometry adds. An aggregate can have no base to be extended by, so its operations stand here.

    /// From {0, 0}. What fits a double does not overflow on the way, nor below.
    double length() const noexcept;
    double distance(NSPoint const& other) const noexcept;
    constexpr double dot(NSPoint const& other) const noexcept { return x * other.x + y * other.y; }
    NSPoint midpoint(NSPoint const& other) const noexcept;
    /// This point at 0, `end` at 1, both exactly; before and beyond them for other fractions.
    NSPoint interpolated(NSPoint const& end, double fraction) const noexcept;
    /// From the x axis towards the y axis, in radians: clockwise to the eye where y grows downward. Whole quarters of a turn are
    /// only as exact as the sine of their number.
    NSPoint rotated(double radians, NSPoint const& about) const noexcept;
    NSPoint rotated(double radians) const noexcept; // about {0, 0}

    friend constexpr NSPoint operator+(NSPoint const& a, NSPoint const& b) noexcept { return {a.x + b.x, a.y + b.y}; }
    friend constexpr NSPoint operator-(NSPoint const& a, NSPoint const& b) noexcept { return {a.x - b.x, a.y - b.y}; }
    friend constexpr NSPoint operator+(NSPoint const& a, NSSize const& b) noexcept { return {a.x + b.width, a.y + b.height}; }
    friend constexpr NSPoint operator-(NSPoint const& a, NSSize const& b) noexcept { return {a.x - b.width, a.y - b.height}; }
    friend constexpr NSPoint operator-(NSPoint const& a) noexcept { return {-a.x, -a.y}; }
    friend constexpr NSPoint operator*(NSPoint const& a, double factor) noexcept { return {a.x * factor, a.y * factor}; }
    friend constexpr NSPoint operator*(double factor, NSPoint const& a) noexcept { return {a.x * factor, a.y * factor}; }
    friend constexpr NSPoint operator/(NSPoint const& a, double divisor) noexcept { return {a.x / divisor, a.y / divisor}; }
    constexpr NSPoint& operator+=(NSPoint const& other) noexcept { return *this = *this + other; }
    constexpr NSPoint& operator-=(NSPoint const& other) noexcept { return *this = *this - other; }
};

} // namespace Tessarin

template <> struct std::hash<Tessarin::NSPoint> {
    TESSARIN_API std::size_t operator()(Tessarin::NSPoint const& point) const noexcept;
};
