#include "Tessarin/platform/foundation/time/TimeZoneFilePrivate.h"

namespace Tessarin {
namespace {

constexpr std::size_t headerSize = 44;
constexpr std::int32_t widestOffset = 26 * 3600; // exclusive, as the standard has it
constexpr std::int64_t latestTime = std::int64_t{1} << 60;

std::uint64_t bigEndian(std::string_view bytes) {
    std::uint64_t value = 0;
    for (char const byte : bytes) value = value << 8 | static_cast<unsigned char>(byte);
    return value;
}

struct Header {
    char version = 0;
    std::uint64_t universalFlags = 0, standardFlags = 0, leapSeconds = 0, changes = 0, types = 0, characters = 0;

    std::uint64_t dataSize(std::uint64_t timeSize) const {
        return changes * (timeSize + 1) + types * 6 + characters + leapSeconds * (timeSize + 4) + standardFlags + universalFlags;
    }
};

std::optional<Header> readHeader(std::string_view content) {
    if (content.size() < headerSize || !content.starts_with("TZif")) return {};
    auto const count = [&](std::size_t index) { return bigEndian(content.substr(20 + index * 4, 4)); };
    return Header{content[4], count(0), count(1), count(2), count(3), count(4), count(5)};
}

/// One data block: times, types of changes, types, abbreviations; what follows these is of no use here.
std::optional<TimeZoneFile> readBlock(std::string_view block, Header const& header, std::size_t timeSize) {
    auto const takeBytes = [&](std::uint64_t size) {
        auto const part = block.substr(0, size);
        block.remove_prefix(size);
        return part;
    };
    auto const times = takeBytes(header.changes * timeSize);
    auto const kinds = takeBytes(header.changes);
    auto const types = takeBytes(header.types * 6);
    auto const names = takeBytes(header.characters);

    TimeZoneFile file;
    for (std::size_t at = 0; at < types.size(); at += 6) {
        auto const offset = static_cast<std::int32_t>(bigEndian(types.substr(at, 4)));
        auto const name = static_cast<unsigned char>(types[at + 5]);
        if (offset <= -widestOffset || offset >= widestOffset || name >= names.size()) return {};
        file.types.push_back({offset, types[at + 4] != 0, std::string{names.substr(name, names.find('\0', name) - name)}});
    }
    for (std::size_t at = 0; at < kinds.size(); ++at) {
        auto const bits = bigEndian(times.substr(at * timeSize, timeSize));
        auto const time = timeSize == 4 ? static_cast<std::int32_t>(bits) : static_cast<std::int64_t>(bits);
        auto const kind = static_cast<std::uint8_t>(kinds[at]);
        if (kind >= file.types.size() || time < -latestTime || time > latestTime || (at > 0 && time <= file.changes.back().time))
            return {};
        file.changes.push_back({time, kind});
    }
    if (file.types.empty()) return {};
    return file;
}

} // namespace

std::optional<TimeZoneFile> TimeZoneFile::fromContent(std::string_view content) {
    auto header = readHeader(content);
    if (!header) return {};
    std::size_t timeSize = 4;
    content.remove_prefix(headerSize);
    if (header->version >= '2') { // the first block is for readers of long ago
        if (content.size() < header->dataSize(4)) return {};
        content.remove_prefix(header->dataSize(4));
        header = readHeader(content);
        if (!header) return {};
        content.remove_prefix(headerSize);
        timeSize = 8;
    }
    auto const size = header->dataSize(timeSize);
    if (content.size() < size || header->changes > 20'000) return {};
    auto file = readBlock(content.substr(0, size), *header, timeSize);
    content.remove_prefix(size);
    if (file && timeSize == 8 && content.starts_with('\n')) {
        auto const end = content.find('\n', 1);
        if (end != content.npos) file->footer = content.substr(1, end - 1);
    }
    return file;
}

} // namespace Tessarin
