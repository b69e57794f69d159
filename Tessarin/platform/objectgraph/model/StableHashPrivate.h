#pragma once
#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace Tessarin {

/// A hash of 128 bits that is the same in every process and version of the library: FNV-1a over length-prefixed fields.
class StableHash {
public:
    StableHash& add(std::string_view field) {
        add(std::uint64_t{field.size()});
        for (auto const character : field) mix(static_cast<unsigned char>(character));
        return *this;
    }
    StableHash& add(std::uint64_t number) {
        for (int shift = 0; shift < 64; shift += 8) mix(static_cast<unsigned char>(number >> shift));
        return *this;
    }

    using Digits = std::array<char, 32>; // hexadecimal, in small letters
    Digits digits() const {
        Digits digits{};
        for (std::size_t at = 0; at < digits.size(); ++at)
            digits[at] = "0123456789abcdef"[static_cast<unsigned>(state_ >> (124 - 4 * at)) & 15];
        return digits;
    }
    std::string hex() const {
        auto const all = digits();
        return {all.data(), all.size()};
    }

private:
    __extension__ using Wide = unsigned __int128;
    static constexpr Wide wide(std::uint64_t high, std::uint64_t low) { return (Wide{high} << 64) | low; }
    void mix(unsigned char byte) { state_ = (state_ ^ byte) * wide(0x0000000001000000, 0x000000000000013B); }

    Wide state_ = wide(0x6c62272e07bb0142, 0x62b821756295c58d);
};

} // namespace Tessarin
