#pragma once
#include "Tessarin/platform/foundation/values/Hexadecimal.h"
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

    /// 32 hexadecimal digits.
    std::string hex() const {
        std::array<std::byte, 16> bytes{};
        for (std::size_t at = 0; at < bytes.size(); ++at) bytes[at] = static_cast<std::byte>(state_ >> (120 - 8 * at));
        return hexadecimalFromBytes(bytes);
    }

private:
    __extension__ using Wide = unsigned __int128;
    static constexpr Wide wide(std::uint64_t high, std::uint64_t low) { return (Wide{high} << 64) | low; }
    void mix(unsigned char byte) { state_ = (state_ ^ byte) * wide(0x0000000001000000, 0x000000000000013B); }

    Wide state_ = wide(0x6c62272e07bb0142, 0x62b821756295c58d);
};

} // namespace Tessarin
