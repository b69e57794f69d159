#pragma once
#include "Tessarin/Export.h"
#include <iosfwd>
#include <memory> // std::hash
#include <optional>
#include <string>
#include <string_view>

namespace Tessarin {

enum class AspectRatioType;

/// A width and a height, in whatever unit the application draws in: a value. Any numbers may stand in it; a size with a side that
/// is zero, negative or no number is empty. Equality is that of the numbers, so a size with a NaN equals nothing.
///
///     auto const shown = photo.size.fittedIn({640, 480});   // as large as it can be with its own ratio
///     if (shown.aspectRatioType() == AspectRatioType::Portrait) turn();
struct TESSARIN_API NSSize {
    double width = 0, height = 0;

    /// "{10, 20}": each number as the shortest text that reads back, "inf" and "nan" among them.
    std::string description() const;
    /// Reads that text, with blanks wherever they separate; absent for anything else, a number beyond double's range included.
    static std::optional<NSSize> fromString(std::string_view text);

    friend constexpr bool operator==(NSSize const&, NSSize const&) = default;
    friend TESSARIN_API std::ostream& operator<<(std::ostream& out, NSSize const& size);

    // What the room geometry adds. An aggregate can have no base to be extended by, so its operations stand here.

    constexpr bool isEmpty() const noexcept;
    /// Zero when empty, even beside an infinite side.
    constexpr double area() const noexcept;
    /// Width divided by height; absent for a zero height, and where the quotient is no number.
    constexpr std::optional<double> aspectRatio() const noexcept;
    /// Portrait when it is higher than wide; a square is Landscape, and so is what cannot be compared.
    constexpr AspectRatioType aspectRatioType() const noexcept;

    constexpr NSSize scaled(double factor) const noexcept { return {width * factor, height * factor}; }
    constexpr NSSize scaled(double across, double down) const noexcept { return {width * across, height * down}; }
    /// The largest size of this ratio that fits into `bounds`, one of whose sides it shares: it grows as well as shrinks. A
    /// side of the bounds that is negative or no number counts as zero. `{0, 0}` when this size has no ratio: empty, or a side
    /// infinite.
    constexpr NSSize fittedIn(NSSize const& bounds) const noexcept;
    /// The smallest size of this ratio that covers `bounds`; for the rest as above.
    constexpr NSSize filling(NSSize const& bounds) const noexcept;

    friend constexpr NSSize operator+(NSSize const& a, NSSize const& b) noexcept {
        return {a.width + b.width, a.height + b.height};
    }
    friend constexpr NSSize operator-(NSSize const& a, NSSize const& b) noexcept {
        return {a.width - b.width, a.height - b.height};
    }
    friend constexpr NSSize operator*(NSSize const& a, double factor) noexcept { return a.scaled(factor); }
    friend constexpr NSSize operator*(double factor, NSSize const& a) noexcept { return a.scaled(factor); }
    friend constexpr NSSize operator/(NSSize const& a, double divisor) noexcept {
        return {a.width / divisor, a.height / divisor};
    }

private:
    constexpr bool hasRatio() const noexcept;
};

} // namespace Tessarin

template <> struct std::hash<Tessarin::NSSize> {
    TESSARIN_API std::size_t operator()(Tessarin::NSSize const& size) const noexcept;
};

#include "Tessarin/geometry/NSSize+Operations.inl"
