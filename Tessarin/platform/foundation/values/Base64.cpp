#include "Tessarin/platform/foundation/values/Base64.h"

#include <algorithm>
#include <cstdint>

namespace Tessarin {
namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

} // namespace

std::string base64FromBytes(std::span<std::byte const> bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        auto const count = std::min<std::size_t>(bytes.size() - at, 3);
        std::uint32_t group = 0;
        for (std::size_t i = 0; i < 3; ++i) group = group << 8 | (i < count ? std::to_integer<std::uint32_t>(bytes[at + i]) : 0);
        for (std::size_t i = 0; i < 4; ++i) text += i <= count ? alphabet[group >> (18 - 6 * i) & 63] : '=';
    }
    return text;
}

std::optional<std::vector<std::byte>> bytesFromBase64(std::string_view text) {
    std::vector<std::byte> bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t group = 0;
    int digits = 0, padding = 0;
    for (char const c : text) {
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n') continue;
        auto const digit = alphabet.find(c);
        bool const isPadding = c == '=';
        if (isPadding ? ++padding > 2 : digit == alphabet.npos || padding > 0) return {};
        group = group << 6 | (isPadding ? 0 : static_cast<std::uint32_t>(digit));
        if (++digits < 4) continue;
        for (int i = 0; i < 3 - padding; ++i) bytes.push_back(static_cast<std::byte>(group >> (16 - 8 * i) & 255));
        group = 0;
        digits = 0;
        if (padding > 0) padding = 3; // nothing but blanks may follow
    }
    if (digits != 0) return {};
    return bytes;
}

} // namespace Tessarin
