#pragma once
#include <algorithm>
#include <cstddef>

namespace Tessarin {

/// A range of indices as an application gives it, brought into a text of `length` characters.
struct CharacterRange {
    std::size_t from, to;

    static CharacterRange within(std::size_t length, std::ptrdiff_t from, std::ptrdiff_t to) {
        auto const end = static_cast<std::ptrdiff_t>(length);
        auto const clamped = [&](std::ptrdiff_t index) {
            return static_cast<std::size_t>(std::clamp<std::ptrdiff_t>(index < 0 ? index + end : index, 0, end));
        };
        auto const first = clamped(from);
        return {first, std::max(first, clamped(to))};
    }
};

} // namespace Tessarin
