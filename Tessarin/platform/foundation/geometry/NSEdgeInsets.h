#pragma once
#include "Tessarin/Export.h"
#include <iosfwd>
#include <memory> // std::hash
#include <optional>
#include <string>
#include <string_view>

namespace Tessarin {

/// Distances from the four edges of a rectangle, inward; negative ones lead outward. A value. The top is where y is smallest.
///
///     auto const text = bubble.frame.inset(NSEdgeInsets{.top = 4, .left = 8, .bottom = 4, .right = 8});
struct TESSARIN_API NSEdgeInsets {
    double top = 0, left = 0, bottom = 0, right = 0;

    /// What they take off a width and a height.
    constexpr double horizontal() const noexcept { return left + right; }
    constexpr double vertical() const noexcept { return top + bottom; }

    /// "{1, 2, 3, 4}", in the order of the fields: each number as the shortest text that reads back.
    std::string description() const;
    /// Reads that text, with blanks wherever they separate; absent for anything else.
    static std::optional<NSEdgeInsets> fromString(std::string_view text);

    friend constexpr bool operator==(NSEdgeInsets const&, NSEdgeInsets const&) = default;
    friend constexpr NSEdgeInsets operator-(NSEdgeInsets const& a) noexcept { return {-a.top, -a.left, -a.bottom, -a.right}; }
    friend TESSARIN_API std::ostream& operator<<(std::ostream& out, NSEdgeInsets const& insets);
};

} // namespace Tessarin

template <> struct std::hash<Tessarin::NSEdgeInsets> {
    TESSARIN_API std::size_t operator()(Tessarin::NSEdgeInsets const& insets) const noexcept;
};
