#pragma once

namespace Tessarin {

/// Where a rectangle goes in a container: see `NSRect::placedIn`. The first three scale; None leaves the rectangle where it is;
/// the others keep its size and put it to that side or corner, in the middle of what they do not name.
enum class RectContentMode {
    ScaleToFill, // takes the container's size, whatever becomes of the ratio
    ScaleAspectFit, // as large as it can be inside, in the middle
    ScaleAspectFill, // as small as it can be and leave nothing uncovered, in the middle
    None,
    Center,
    Top,
    Bottom,
    Left,
    Right,
    TopLeft,
    TopRight,
    BottomLeft,
    BottomRight,
};

/// Which way y grows. Downward, as windows and images have it, the top is where y is smallest; flipped, as on paper, where it is
/// largest.
enum class VerticalAxis { Downward, Flipped };

} // namespace Tessarin
