#pragma once
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace Tessarin::clusters {

/// The end of the cluster that begins at `at`; `at` must be a beginning, and less than the size.
std::size_t endOf(std::string_view text, std::size_t at) noexcept;

std::size_t count(std::string_view text) noexcept;
/// Where the cluster of that index begins; the size where there are fewer.
std::size_t offsetOf(std::string_view text, std::size_t index) noexcept;

/// How many bytes from `at` on are ASCII and no carriage return.
inline std::size_t plainRun(std::string_view text, std::size_t at) noexcept {
    constexpr std::uint64_t ones = 0x0101010101010101U, highs = 0x8080808080808080U;
    auto const from = at;
    for (; at + 8 <= text.size(); at += 8) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, text.data() + at, 8);
        auto const differences = eight ^ (ones * '\r');
        if (((eight | ((differences - ones) & ~differences)) & highs) != 0) break;
    }
    for (; at < text.size(); ++at)
        if (static_cast<unsigned char>(text[at]) >= 0x80 || text[at] == '\r') break;
    return at - from;
}

/// Calls `each(offset, count)` for all clusters in their order, as long as it gives true: `count` of them, of one byte each,
/// begin at `offset`; or one of any length. A run of ASCII is one call.
template <class Each> void forEachRun(std::string_view text, Each const& each) noexcept {
    for (std::size_t at = 0; at < text.size();) {
        auto plain = plainRun(text, at);
        auto const end = at + plain;
        // What follows may be an accent of the last one.
        if (end < text.size() && text[end] != '\r' && plain > 0) --plain;
        if (plain > 0) {
            if (!each(at, plain)) return;
            at += plain;
        } else {
            if (!each(at, 1)) return;
            at = endOf(text, at);
        }
    }
}

} // namespace Tessarin::clusters
