#pragma once
#include "Tessarin/Export.h"
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin {

enum class HexadecimalDigits { Lower, Upper };

/// How bytes are written: the digits, and what stands between groups of so many bytes; nothing while it is empty.
struct HexadecimalStyle {
    HexadecimalDigits digits = HexadecimalDigits::Lower;
    std::string_view separator = {};
    std::size_t groupedBy = 1; // bytes; 0 counts as 1
};

/// Two digits a byte: "00ff", or "00:FF" with a separator.
TESSARIN_API std::string hexadecimalFromBytes(std::span<std::byte const> bytes, HexadecimalStyle const& style = {});
/// The same to where there is room for two digits a byte, without a separator. What does not come to a std::string is written so.
TESSARIN_API void writeHexadecimal(char* to, std::span<std::byte const> bytes,
                                   HexadecimalDigits digits = HexadecimalDigits::Lower);
/// Digits of either case, two a byte. With a separator, that stands between each two groups and nowhere else. Absent otherwise:
/// an odd digit, a blank, a sign, a group that is too short unless it is the last.
TESSARIN_API std::optional<std::vector<std::byte>> bytesFromHexadecimal(std::string_view text,
                                                                        HexadecimalStyle const& style = {});

/// The digit's value; -1 for any other character.
constexpr int hexadecimalValue(char c) noexcept {
    if (c >= '0' && c <= '9') return c - '0';
    char const small = static_cast<char>(c | 0x20);
    return small >= 'a' && small <= 'f' ? small - 'a' + 10 : -1;
}

/// Lines of sixteen bytes for people to read: the offset of the first in eight digits, the bytes, and what they are as ASCII, a
/// dot for what cannot be shown. The offsets begin with `from`.
///
///     00000000  48 65 6c 6c 6f 0a 00                              |Hello..|
TESSARIN_API std::string hexadecimalDump(std::span<std::byte const> bytes, std::size_t from = 0);

} // namespace Tessarin
