#pragma once
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Tessarin::SQLite {

/// A number as SQLite's files hold it.
template <class Number> Number bigEndian(std::byte const* at) noexcept {
    Number number{};
    std::memcpy(&number, at, sizeof number);
    if constexpr (std::endian::native == std::endian::little) {
        if constexpr (sizeof number == 2) return static_cast<Number>(__builtin_bswap16(number));
        if constexpr (sizeof number == 4) return static_cast<Number>(__builtin_bswap32(number));
        if constexpr (sizeof number == 8) return static_cast<Number>(__builtin_bswap64(number));
    }
    return number;
}

[[gnu::noinline]] inline std::byte const* readLongVariable(std::byte const* at, std::byte const* end,
                                                           std::uint64_t& number) noexcept {
    number = 0;
    for (int each = 0; each < 9 && at < end; ++each) {
        auto const next = static_cast<unsigned char>(*at++);
        if (each == 8) return number = number << 8 | next, at;
        number = number << 7 | (next & 0x7FU);
        if (next < 0x80) return at;
    }
    return nullptr;
}

/// The same of as many bytes as it takes, seven bits in each but a ninth. The bytes end before `end`; null when they do not.
inline std::byte const* readVariable(std::byte const* at, std::byte const* end, std::uint64_t& number) noexcept {
    if (end - at < 3) return readLongVariable(at, end, number);
    auto const first = std::to_integer<unsigned>(at[0]), second = std::to_integer<unsigned>(at[1]),
               third = std::to_integer<unsigned>(at[2]);
    if (first < 0x80) return number = first, at + 1;
    if (second < 0x80) return number = (first & 0x7FU) << 7 | second, at + 2;
    if (third < 0x80) return number = (first & 0x7FU) << 14 | (second & 0x7FU) << 7 | third, at + 3;
    return readLongVariable(at, end, number);
}

} // namespace Tessarin::SQLite
