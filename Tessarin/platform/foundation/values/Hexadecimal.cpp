#include "Tessarin/platform/foundation/values/Hexadecimal.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fmt/format.h>
#include <iterator>

namespace Tessarin {
namespace {

// The compiler's own vectors, which it turns into whatever the processor has (benchmark "system", hexadecimal).
using Bytes [[gnu::vector_size(16)]] = unsigned char;
constexpr std::size_t wide = sizeof(Bytes);

Bytes loaded(void const* from) {
    Bytes bytes;
    std::memcpy(&bytes, from, wide);
    return bytes;
}
/// All bits of each byte that is less than `bound`.
Bytes below(Bytes bytes, unsigned char bound) { return reinterpret_cast<Bytes>(bytes < (Bytes{} + bound)); }

/// What lies between '9' and the letters.
constexpr unsigned char gapOf(HexadecimalDigits digits) { return (digits == HexadecimalDigits::Upper ? 'A' : 'a') - '0' - 10; }

Bytes digitsOf(Bytes nibbles, unsigned char gap) { return nibbles + '0' + (~below(nibbles, 10) & gap); }

/// The values of sixteen digits; what is none sets bits of `bad`.
Bytes valuesOf(Bytes text, Bytes& bad) {
    Bytes const digit = text - '0';
    Bytes const letter = (text | 0x20) - 'a';
    Bytes const isDigit = below(digit, 10), isLetter = below(letter, 6);
    bad |= ~(isDigit | isLetter);
    return (digit & isDigit) | ((letter + 10) & isLetter);
}

/// False when a character is no digit; `text` holds two for each byte.
bool read(char const* text, std::byte* to, std::size_t count) {
    Bytes bad{};
    for (; count >= wide; count -= wide, to += wide, text += 2 * wide) {
        auto const first = valuesOf(loaded(text), bad), second = valuesOf(loaded(text + wide), bad);
        Bytes const high = __builtin_shufflevector(first, second, 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
        Bytes const low = __builtin_shufflevector(first, second, 1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31);
        Bytes const bytes = high << 4 | low;
        std::memcpy(to, &bytes, wide);
    }
    std::uint64_t halves[2];
    std::memcpy(halves, &bad, sizeof halves);
    if (halves[0] | halves[1]) return false;
    for (; count > 0; --count, text += 2) {
        int const high = hexadecimalValue(text[0]), low = hexadecimalValue(text[1]);
        if (high < 0 || low < 0) return false;
        *to++ = static_cast<std::byte>(high << 4 | low);
    }
    return true;
}

} // namespace

void writeHexadecimal(char* to, std::span<std::byte const> bytes, HexadecimalDigits digits) {
    auto const gap = gapOf(digits);
    auto const* from = bytes.data();
    auto count = bytes.size();
    for (; count >= wide; count -= wide, from += wide, to += 2 * wide) {
        auto const all = loaded(from);
        auto const high = digitsOf(all >> 4, gap), low = digitsOf(all & 15, gap);
        Bytes const first = __builtin_shufflevector(high, low, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
        Bytes const second = __builtin_shufflevector(high, low, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31);
        std::memcpy(to, &first, wide);
        std::memcpy(to + wide, &second, wide);
    }
    auto const digit = [gap](unsigned value) { return static_cast<char>('0' + value + (value < 10 ? 0U : gap)); };
    for (; count > 0; --count, ++from) {
        *to++ = digit(std::to_integer<unsigned>(*from) >> 4);
        *to++ = digit(std::to_integer<unsigned>(*from) & 15);
    }
}

std::string hexadecimalFromBytes(std::span<std::byte const> bytes, HexadecimalStyle const& style) {
    if (style.separator.empty()) {
        std::string text(bytes.size() * 2, '\0');
        writeHexadecimal(text.data(), bytes, style.digits);
        return text;
    }
    auto const group = std::max<std::size_t>(style.groupedBy, 1);
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += group) {
        if (at > 0) text += style.separator;
        auto const part = bytes.subspan(at, std::min(group, bytes.size() - at));
        text.resize(text.size() + part.size() * 2);
        writeHexadecimal(text.data() + text.size() - part.size() * 2, part, style.digits);
    }
    return text;
}

std::optional<std::vector<std::byte>> bytesFromHexadecimal(std::string_view text, HexadecimalStyle const& style) {
    std::vector<std::byte> bytes;
    if (style.separator.empty()) {
        if (text.size() % 2 != 0) return {};
        bytes.resize(text.size() / 2);
        if (!read(text.data(), bytes.data(), bytes.size())) return {};
        return bytes;
    }
    auto const group = std::max<std::size_t>(style.groupedBy, 1);
    while (!text.empty()) {
        auto const digits = group > text.size() / 2 ? text.size() : group * 2; // the last group may be shorter
        auto const known = bytes.size();
        bytes.resize(known + digits / 2);
        if (digits % 2 != 0 || !read(text.data(), bytes.data() + known, digits / 2)) return {};
        text.remove_prefix(digits);
        if (text.empty()) break;
        if (!text.starts_with(style.separator) || text.size() == style.separator.size()) return {};
        text.remove_prefix(style.separator.size());
    }
    return bytes;
}

std::string hexadecimalDump(std::span<std::byte const> bytes, std::size_t from) {
    constexpr std::size_t perLine = 16;
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += perLine) {
        auto const line = bytes.subspan(at, std::min(perLine, bytes.size() - at));
        auto const half = std::min(line.size(), perLine / 2);
        auto const left = hexadecimalFromBytes(line.first(half), {.separator = " "});
        auto const right = hexadecimalFromBytes(line.subspan(half), {.separator = " "});
        fmt::format_to(std::back_inserter(text), "{:08x}  {:<23}  {:<23}  |", from + at, left, right);
        for (auto const byte : line) {
            auto const character = std::to_integer<char>(byte);
            text += character >= ' ' && character <= '~' ? character : '.';
        }
        text += "|\n";
    }
    return text;
}

} // namespace Tessarin
