#pragma once
#include "Tessarin/platform/sqlite/BigEndian.h"

namespace Tessarin::SQLite {

// Records as tables and indexes hold them: see sqlite.org/fileformat2.html, "Record Format".

/// Whether a value of that serial type is a whole number.
constexpr bool isIntegerType(std::uint64_t type) noexcept { return (type >= 1 && type <= 6) || type == 8 || type == 9; }

/// How many bytes a value of that serial type takes; 0 for those that SQLite keeps for itself.
constexpr std::uint64_t sizeOfType(std::uint64_t type) noexcept {
    constexpr std::uint8_t sizes[] = {0, 1, 2, 3, 4, 6, 8, 8, 0, 0, 0, 0};
    return type < std::size(sizes) ? sizes[type] : (type - 12) / 2;
}

/// A whole number of that serial type.
inline std::int64_t integerOfType(std::byte const* at, std::uint64_t type) noexcept {
    switch (type) {
    case 1: return static_cast<std::int8_t>(*at);
    case 2: return static_cast<std::int16_t>(bigEndian<std::uint16_t>(at));
    case 3: return static_cast<std::int8_t>(*at) * 65536 + bigEndian<std::uint16_t>(at + 1);
    case 4: return static_cast<std::int32_t>(bigEndian<std::uint32_t>(at));
    case 5:
        return static_cast<std::int16_t>(bigEndian<std::uint16_t>(at)) * (std::int64_t{1} << 32) +
               bigEndian<std::uint32_t>(at + 2);
    case 6: return static_cast<std::int64_t>(bigEndian<std::uint64_t>(at));
    default: return static_cast<std::int64_t>(type) - 8; // 0 and 1 take no bytes
    }
}

/// How much of a record that goes on in other pages stands in its own at least.
constexpr std::size_t leastInPage(std::size_t usableSize) noexcept { return (usableSize - 12) * 32 / 255 - 23; }

} // namespace Tessarin::SQLite
