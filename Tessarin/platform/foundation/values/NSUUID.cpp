#include "Tessarin/platform/foundation/values/NSUUID.h"

#include "Tessarin/platform/foundation/values/Random.h"

#include <charconv>

namespace Tessarin {

NSUUID NSUUID::UUID() {
    Bytes bytes;
    randomBytes(std::as_writable_bytes(std::span{bytes}));
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40); // version 4
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80); // the common variant
    return NSUUID{bytes};
}

std::optional<NSUUID> NSUUID::UUIDWithString(std::string_view text) {
    if (text.size() != 36) return {};
    Bytes bytes;
    std::size_t filled = 0;
    for (std::size_t at = 0; at < text.size();) {
        if (at == 8 || at == 13 || at == 18 || at == 23) {
            if (text[at++] != '-') return {};
            continue;
        }
        auto const* const pair = text.data() + at;
        auto const [end, error] = std::from_chars(pair, pair + 2, bytes[filled++], 16);
        if (error != std::errc{} || end != pair + 2) return {};
        at += 2;
    }
    return NSUUID{bytes};
}

std::string NSUUID::UUIDString() const { return Value::uuid(bytes_).description(); }

std::ostream& operator<<(std::ostream& out, NSUUID const& uuid) { return out << uuid.UUIDString(); }

} // namespace Tessarin
