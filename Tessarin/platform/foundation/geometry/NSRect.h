#pragma once
#include "Tessarin/platform/foundation/geometry/NSEdgeInsets.h"
#include "Tessarin/platform/foundation/geometry/NSPoint.h"
#include "Tessarin/platform/foundation/geometry/NSSize.h"

namespace Tessarin {

enum class RectContentMode;
enum class RectEdge;
enum class VerticalAxis;
struct RectDivision;

/// A rectangle: a value. Any numbers may stand in it. A negative width or height means the same rectangle as the positive one
/// on the other side of the origin, and all operations take it so; `standardized` writes it so. One that holds no point is
/// empty: a width or height is zero, or a number is none. Left and top are where x and y are smallest. An infinite size that
/// begins at minus infinity reaches to plus infinity. Equality is that of the numbers, so a rectangle with a NaN equals
/// nothing.
///
///     auto const place = photo.placedIn(page.inset(20, 20), RectContentMode::ScaleAspectFit);
///     if (auto const both = place.intersection(visible)) draw(*both);
struct TESSARIN_API NSRect {
    NSPoint origin;
    NSSize size;

    /// "{{0, 0}, {10, 20}}": each number as the shortest text that reads back, "inf" and "nan" among them.
    std::string description() const;
    /// Reads that text, with blanks wherever they separate; absent for anything else, a number beyond double's range included.
    static std::optional<NSRect> fromString(std::string_view text);

    friend constexpr bool operator==(NSRect const&, NSRect const&) = default;
    friend TESSARIN_API std::ostream& operator<<(std::ostream& out, NSRect const& rect);

    // What the room geometry adds. An aggregate can have no base to be extended by, so its operations stand here.

    constexpr double minX() const noexcept;
    constexpr double maxX() const noexcept;
    constexpr double minY() const noexcept;
    constexpr double maxY() const noexcept;
    constexpr double width() const noexcept;
    constexpr double height() const noexcept;
    constexpr NSPoint center() const noexcept;
    constexpr NSPoint topLeft() const noexcept { return {minX(), minY()}; }
    constexpr NSPoint topRight() const noexcept { return {maxX(), minY()}; }
    constexpr NSPoint bottomLeft() const noexcept { return {minX(), maxY()}; }
    constexpr NSPoint bottomRight() const noexcept { return {maxX(), maxY()}; }
    constexpr bool isEmpty() const noexcept;
    /// The same rectangle with neither side negative.
    constexpr NSRect standardized() const noexcept;

    /// Half open, as toolkits do: the left and top edges belong to it, the right and bottom ones to its neighbours.
    constexpr bool contains(NSPoint const& point) const noexcept;
    /// Whether all of `other` lies in it, edges that coincide included; false for an empty one.
    constexpr bool containsRect(NSRect const& other) const noexcept;
    /// What both have in common; absent when that is nothing, as of neighbours, or when either is empty.
    std::optional<NSRect> intersection(NSRect const& other) const noexcept;
    constexpr bool intersects(NSRect const& other) const noexcept;
    /// The smallest that contains both. An empty one adds nothing: the result is the other one, or this one when both are.
    NSRect unionWith(NSRect const& other) const noexcept;

    constexpr NSRect offset(double dx, double dy) const noexcept { return {{origin.x + dx, origin.y + dy}, size}; }
    constexpr NSRect offset(NSPoint const& by) const noexcept { return {origin + by, size}; }
    /// Both edges inward by so much, outward for negative numbers. Edges that would pass each other meet
    /// halfway between, but inside.
    constexpr NSRect inset(double dx, double dy) const noexcept { return inset(NSEdgeInsets{dy, dx, dy, dx}); }
    constexpr NSRect inset(NSEdgeInsets const& insets) const noexcept;
    /// With whole numbers: the smallest such rectangle around it, and the largest inside it, which may be empty.
    NSRect integralOutward() const noexcept;
    NSRect integralInward() const noexcept;
    /// A slice `amount` thick along an edge, and what remains. The amount is taken within zero and the rectangle's own length.
    constexpr RectDivision divided(double amount, RectEdge from) const noexcept;

    /// Where this rectangle goes in `container`; modes without a scale keep its size even when it sticks out. `flipped` swaps
    /// Top and Bottom. What scales without a ratio (empty, or a side infinite) becomes `{0, 0}` in size; where infinite lengths
    /// leave no answer, it goes to the container's origin. An unknown mode is None. Cost: benchmark "geometry".
    constexpr NSRect placedIn(NSRect const& container, RectContentMode mode, VerticalAxis axis) const noexcept;
    constexpr NSRect placedIn(NSRect const& container, RectContentMode mode) const noexcept; // y grows downward
};

} // namespace Tessarin

template <> struct std::hash<Tessarin::NSRect> {
    TESSARIN_API std::size_t operator()(Tessarin::NSRect const& rect) const noexcept;
};

#include "Tessarin/geometry/NSRect+Operations.inl"
