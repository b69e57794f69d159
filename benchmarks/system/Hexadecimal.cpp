#include "Tessarin/platform/foundation/values/Hexadecimal.h"
#include "benchmarks/system/Groups.h"

#include <array>
#include <cstdint>
#include <cstdlib>

namespace Tessarin::benchmarks {
namespace {

constexpr std::size_t size = 1'000'000;

/// The loop that everybody writes.
std::string byTable(std::span<std::byte const> bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text(bytes.size() * 2, '\0');
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        text[2 * at] = digits[std::to_integer<unsigned>(bytes[at]) >> 4];
        text[2 * at + 1] = digits[std::to_integer<unsigned>(bytes[at]) & 15];
    }
    return text;
}

constexpr auto values = [] {
    std::array<std::int8_t, 256> all{};
    for (int c = 0; c < 256; ++c)
        all[static_cast<std::size_t>(c)] = static_cast<std::int8_t>(hexadecimalValue(static_cast<char>(c)));
    return all;
}();

std::optional<std::vector<std::byte>> fromTable(std::string_view text) {
    if (text.size() % 2) return {};
    std::vector<std::byte> bytes(text.size() / 2);
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        int const high = values[static_cast<unsigned char>(text[2 * at])],
                  low = values[static_cast<unsigned char>(text[2 * at + 1])];
        if ((high | low) < 0) return {};
        bytes[at] = static_cast<std::byte>(high << 4 | low);
    }
    return bytes;
}

} // namespace

void benchHexadecimal(Report& report) {
    constexpr int count = 100;
    std::vector<std::byte> bytes(size);
    for (std::size_t at = 0; at < size; ++at) bytes[at] = static_cast<std::byte>(at * 2654435761U >> 13);
    auto const text = hexadecimalFromBytes(bytes);
    if (text != byTable(bytes) || fromTable(text) != bytesFromHexadecimal(text)) std::abort();
    auto const measure = [](auto const& work) { // nanoseconds a byte
        return [&work] {
            return nanoseconds(count,
                               [&] {
                                   auto result = work();
                                   touch(result);
                               }) /
                   size;
        };
    };
    auto const add = [&](char const* row, auto const& ours, auto const& theirs) {
        if (!report.wants("hexadecimal", row)) return;
        auto const result = medians(runs, measure(ours), measure(theirs));
        report.add({.group = "hexadecimal",
                    .row = row,
                    .unit = "ns a byte",
                    .ours = result.ours,
                    .peer = "table loop",
                    .theirs = result.theirs,
                    .target = 0.3});
    };
    add(
        "1 MB written", [&] { return hexadecimalFromBytes(bytes); }, [&] { return byTable(bytes); });
    add(
        "1 MB read", [&] { return bytesFromHexadecimal(text); }, [&] { return fromTable(text); });
}

} // namespace Tessarin::benchmarks
