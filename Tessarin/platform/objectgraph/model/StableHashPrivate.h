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
    /// Its eight bytes, the lowest first. Those that are zero at the end only multiply, at once: most numbers are small.
    StableHash& add(std::uint64_t number) {
        std::size_t left = 8;
        for (; number != 0; number >>= 8, --left) mix(static_cast<unsigned char>(number));
        state_ *= powers[left];
        return *this;
    }

    using Digits = std::array<char, 32>; // hexadecimal, in small letters
    Digits digits() const {
        Digits digits{};
        auto half = static_cast<std::uint64_t>(state_ >> 64);
        for (std::size_t at = 0; at < digits.size(); ++at, half <<= 4) {
            if (at == digits.size() / 2) half = static_cast<std::uint64_t>(state_);
            digits[at] = "0123456789abcdef"[half >> 60];
        }
        return digits;
    }
    std::string hex() const {
        auto const all = digits();
        return {all.data(), all.size()};
    }

private:
    __extension__ using Wide = unsigned __int128;
    static constexpr Wide wide(std::uint64_t high, std::uint64_t low) { return (Wide{high} << 64) | low; }
    static constexpr Wide prime = (Wide{1} << 88) + 0x13B;
    static constexpr std::array<Wide, 9> powers = [] {
        std::array<Wide, 9> all{1};
        for (std::size_t at = 1; at < all.size(); ++at) all[at] = all[at - 1] * prime;
        return all;
    }();
    void mix(unsigned char byte) { state_ = (state_ ^ byte) * prime; }

    Wide state_ = wide(0x6c62272e07bb0142, 0x62b821756295c58d);
};

} // namespace Tessarin
