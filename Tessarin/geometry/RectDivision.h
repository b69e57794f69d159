#pragma once
#include "Tessarin/platform/foundation/geometry/NSRect.h"

namespace Tessarin {

/// An edge of a rectangle: left and top are where x and y are smallest.
enum class RectEdge { Left, Top, Right, Bottom };

/// What `NSRect::divided` makes of a rectangle: side by side, they share an edge exactly.
struct RectDivision {
    NSRect slice, remainder;

    friend constexpr bool operator==(RectDivision const&, RectDivision const&) = default;
};

} // namespace Tessarin
