#pragma once
#include "Tessarin/platform/foundation/geometry/NSRect.h"
#include <cmath>
#include <limits>
#include <random>

namespace Tessarin::tests {

inline constexpr double infinity = std::numeric_limits<double>::infinity(), nan = std::numeric_limits<double>::quiet_NaN();

/// Rectangles of all sizes: lengths from a millionth to a million, at places from there, half of them on whole numbers.
class RandomRects {
public:
    double length() {
        auto const value = std::pow(10, std::uniform_real_distribution(-6.0, 6.0)(random_));
        return random_() % 2 ? value : std::ceil(value);
    }
    double coordinate() { return random_() % 2 ? length() : -length(); }
    NSRect operator()() { return {{coordinate(), coordinate()}, {length(), length()}}; }
    /// One that often meets `other`.
    NSRect near(NSRect const& other) {
        auto const along = [&](double start, double side) {
            return start + side * std::uniform_real_distribution(-1.0, 1.5)(random_);
        };
        return {{along(other.origin.x, other.size.width), along(other.origin.y, other.size.height)},
                {other.size.width * length() / 1000, other.size.height * length() / 1000}};
    }

private:
    std::mt19937_64 random_{20};
};

} // namespace Tessarin::tests
