// Inline, since lists and grids place thousands of pictures (benchmark "geometry"). Included at the end of NSRect.h.
#pragma once
#include "Tessarin/geometry/RectContentMode.h"

namespace Tessarin {

/// An edge of a rectangle: left and top are where x and y are smallest.
enum class RectEdge { Left, Top, Right, Bottom };

/// What `NSRect::divided` makes of a rectangle: side by side, they share an edge exactly.
struct RectDivision {
    NSRect slice, remainder;

    friend constexpr bool operator==(RectDivision const&, RectDivision const&) = default;
};

namespace geometry {

constexpr bool isNumber(double value) noexcept { return value == value; }
constexpr double nearEnd(double start, double length) noexcept { return start + lesser(0, length); }
/// Minus infinity and an infinite length end at plus infinity.
constexpr double farEnd(double start, double length) noexcept {
    if (!(length > 0)) return length < 0 ? start : start + length;
    auto const end = start + length;
    return isNumber(end) || !isNumber(start) ? end : length;
}
/// 0 of everything that there is.
constexpr double middle(double start, double length) noexcept {
    auto const place = start + length / 2;
    return isNumber(place) || !isNumber(start) || !isNumber(length) ? place : 0;
}
constexpr double distanceOf(double length) noexcept { return __builtin_fabs(length); }

struct Span {
    double start, length;
};

constexpr Span inset(double start, double length, double before, double after) noexcept {
    auto const rest = length - (before + after);
    if (rest >= 0) return {start + before, rest};
    auto const end = farEnd(start, length), meeting = (start + before + (end - after)) / 2;
    if (!isNumber(meeting)) return {start + length / 2, 0};
    return {lesser(greater(meeting, start), end), 0};
}

/// How much of the room that is left over in a container lies before what is placed there.
struct Share {
    double across, down;
};
inline constexpr Share shares[] = {{0.5, 0.5}, {0.5, 0.5}, {0.5, 0.5}, {0.5, 0.5}, {0.5, 0.5}, {0.5, 0}, {0.5, 1},
                                   {0, 0.5},   {1, 0.5},   {0, 0},     {1, 0},     {0, 1},     {1, 1}};
static_assert(sizeof shares / sizeof *shares == static_cast<std::size_t>(RectContentMode::BottomRight) + 1);

constexpr double placed(double start, double length, double side, double share) noexcept {
    auto const place = start + (length - side) * share;
    return isNumber(place) ? place : start;
}

} // namespace geometry

constexpr double NSRect::minX() const noexcept { return geometry::nearEnd(origin.x, size.width); }
constexpr double NSRect::maxX() const noexcept { return geometry::farEnd(origin.x, size.width); }
constexpr double NSRect::minY() const noexcept { return geometry::nearEnd(origin.y, size.height); }
constexpr double NSRect::maxY() const noexcept { return geometry::farEnd(origin.y, size.height); }
constexpr double NSRect::width() const noexcept { return geometry::distanceOf(size.width); }
constexpr double NSRect::height() const noexcept { return geometry::distanceOf(size.height); }
constexpr NSPoint NSRect::center() const noexcept {
    return {geometry::middle(origin.x, size.width), geometry::middle(origin.y, size.height)};
}
constexpr bool NSRect::isEmpty() const noexcept { return !(minX() < maxX() && minY() < maxY()); }
constexpr NSRect NSRect::standardized() const noexcept { return {{minX(), minY()}, {width(), height()}}; }

constexpr bool NSRect::contains(NSPoint const& point) const noexcept {
    return minX() <= point.x && point.x < maxX() && minY() <= point.y && point.y < maxY();
}
constexpr bool NSRect::containsRect(NSRect const& other) const noexcept {
    return !other.isEmpty() && minX() <= other.minX() && other.maxX() <= maxX() && minY() <= other.minY() &&
           other.maxY() <= maxY();
}
constexpr bool NSRect::intersects(NSRect const& other) const noexcept {
    return !isEmpty() && !other.isEmpty() && minX() < other.maxX() && other.minX() < maxX() && minY() < other.maxY() &&
           other.minY() < maxY();
}

constexpr NSRect NSRect::inset(NSEdgeInsets const& insets) const noexcept {
    auto const across = geometry::inset(minX(), width(), insets.left, insets.right);
    auto const down = geometry::inset(minY(), height(), insets.top, insets.bottom);
    return {{across.start, down.start}, {across.length, down.length}};
}

constexpr RectDivision NSRect::divided(double amount, RectEdge from) const noexcept {
    bool const isAcross = from == RectEdge::Left || from == RectEdge::Right;
    bool const isFirst = from == RectEdge::Left || from == RectEdge::Top;
    auto const whole = standardized();
    auto const length = isAcross ? whole.size.width : whole.size.height;
    auto const taken = geometry::lesser(geometry::notNegative(amount), length);
    auto const left = geometry::notNegative(length - taken); // of an infinite length, an infinite amount leaves nothing
    auto const first = isFirst ? taken : left, second = isFirst ? left : taken;
    RectDivision parts{whole, whole};
    auto& before = isFirst ? parts.slice : parts.remainder;
    auto& after = isFirst ? parts.remainder : parts.slice;
    (isAcross ? before.size.width : before.size.height) = first;
    (isAcross ? after.size.width : after.size.height) = second;
    (isAcross ? after.origin.x : after.origin.y) += first;
    return parts;
}

constexpr NSRect NSRect::placedIn(NSRect const& container, RectContentMode mode, VerticalAxis axis) const noexcept {
    if (mode == RectContentMode::None || static_cast<unsigned>(mode) >= sizeof geometry::shares / sizeof *geometry::shares)
        return *this;
    auto const room = container.standardized();
    if (mode == RectContentMode::ScaleToFill) return room;
    NSSize side{width(), height()};
    if (mode == RectContentMode::ScaleAspectFit) side = side.fittedIn(room.size);
    if (mode == RectContentMode::ScaleAspectFill) side = side.filling(room.size);
    auto const [across, down] = geometry::shares[static_cast<unsigned>(mode)];
    return {{geometry::placed(room.origin.x, room.size.width, side.width, across),
             geometry::placed(room.origin.y, room.size.height, side.height, axis == VerticalAxis::Flipped ? 1 - down : down)},
            side};
}
constexpr NSRect NSRect::placedIn(NSRect const& container, RectContentMode mode) const noexcept {
    return placedIn(container, mode, VerticalAxis::Downward);
}

} // namespace Tessarin
