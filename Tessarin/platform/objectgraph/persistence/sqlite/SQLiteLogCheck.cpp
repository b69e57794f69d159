#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteLogCheckPrivate.h"

#include <array>
#include <fstream>

namespace Tessarin {
namespace {

constexpr std::streamoff headerSize = 32, frameHeaderSize = 24;

/// A big-endian number of the log; 0 behind its end.
std::uint32_t numberAt(std::ifstream& log, std::streamoff place) {
    std::array<unsigned char, 4> bytes{};
    log.clear();
    if (!log.seekg(place) || !log.read(reinterpret_cast<char*>(bytes.data()), bytes.size())) return 0;
    return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 | std::uint32_t{bytes[2]} << 8 | bytes[3];
}

} // namespace

bool hasUnreadableCommits(std::string const& databasePath, std::uint32_t readable, std::uint32_t pageSize) {
    std::ifstream log(databasePath + "-wal", std::ios::binary | std::ios::ate);
    auto const size = log ? static_cast<std::streamoff>(log.tellg()) : 0;
    if (size <= headerSize) return false;
    static constexpr std::uint32_t magic = 0x377F0682; // the lowest bit tells the order of bytes in checksums
    bool const isHeaderWhole = (numberAt(log, 0) & ~1U) == magic;
    if (pageSize == 0) pageSize = isHeaderWhole ? numberAt(log, 8) : 0;
    if (!isHeaderWhole || pageSize < 512 || pageSize > 65536) return readable == 0;
    auto const step = frameHeaderSize + static_cast<std::streamoff>(pageSize);
    // A page that ends a commit bears the size of the database after it.
    for (auto at = headerSize + readable * step; at + step <= size; at += step)
        if (numberAt(log, at + 4) != 0) return true;
    return false;
}

} // namespace Tessarin
