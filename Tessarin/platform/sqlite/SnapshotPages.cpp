#include "Tessarin/platform/sqlite/SnapshotPages.h"

#include "Tessarin/platform/sqlite/BigEndian.h"
#include "Tessarin/platform/sqlite/Connection.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace Tessarin::SQLite {
namespace {

constexpr std::size_t windowSize = std::size_t{64} << 10;
constexpr std::int64_t logHeader = 32, frameHeader = 24;

sqlite3_file* fileOf(Connection& connection, int which) {
    sqlite3_file* file = nullptr;
    bool const isThere = sqlite3_file_control(connection.handle(), nullptr, which, &file) == SQLITE_OK && file && file->pMethods;
    return isThere ? file : nullptr;
}

} // namespace

struct SnapshotPages::Log {
    explicit Log(Connection::LogState const& state) {
        auto const* bytes = reinterpret_cast<std::byte const*>(state.data());
        std::uint16_t size = 0; // in the machine's own order, as all but the salts
        std::memcpy(&size, bytes + 14, sizeof size);
        pageSize = size == 1 ? 65536 : size;
        std::memcpy(&frames, bytes + 16, sizeof frames);
        std::memcpy(salts.data(), bytes + 32, salts.size());
    }
    std::size_t pageSize = 0;
    std::uint32_t frames = 0; // that are committed
    std::array<std::byte, 8> salts{};
};

std::unique_ptr<SnapshotPages> SnapshotPages::of(Connection& connection, std::uint32_t mostLogged) {
    if (sqlite3_txn_state(connection.handle(), "main") != SQLITE_TXN_READ) return nullptr;
    auto const state = connection.seenState();
    auto* const file = fileOf(connection, SQLITE_FCNTL_FILE_POINTER);
    if (!state || !file) return nullptr;
    Log const index(*state);
    std::array<std::byte, 18> start{};
    if (file->pMethods->xRead(file, start.data(), start.size(), 0) != SQLITE_OK) return nullptr;
    auto const size = bigEndian<std::uint16_t>(start.data() + 16);
    auto const pageSize = size == 1 ? std::size_t{65536} : std::size_t{size};
    if (pageSize < 512 || (index.frames != 0 && index.pageSize != pageSize)) return nullptr;
    std::unique_ptr<SnapshotPages> pages(new SnapshotPages(file, pageSize));
    // Once all of the log is in the file the transaction may have no hold on it. Before that it has.
    bool const needsLog = index.frames > connection.logPagesInFile();
    if (needsLog && index.frames > mostLogged) return nullptr;
    if (needsLog && !pages->readLog(fileOf(connection, SQLITE_FCNTL_JOURNAL_POINTER), index)) return nullptr;
    return pages->readHeader(index.frames) ? std::move(pages) : nullptr;
}

bool SnapshotPages::readLog(sqlite3_file* log, Log const& index) {
    if (!log) return false;
    log_ = log;
    auto const step = frameHeader + static_cast<std::int64_t>(pageSize_);
    for (std::uint32_t frame = 0; frame < index.frames; ++frame) {
        std::array<std::byte, 16> header{};
        auto const at = logHeader + step * frame;
        if (log->pMethods->xRead(log, header.data(), header.size(), at) != SQLITE_OK) return false;
        if (!std::equal(index.salts.begin(), index.salts.end(), header.begin() + 8)) return false;
        inLog_[bigEndian<std::uint32_t>(header.data())] = at + frameHeader;
    }
    logged_.resize(pageSize_);
    return true;
}

/// False for texts that are not UTF-8, and for more pages than there can be.
bool SnapshotPages::readHeader(std::uint32_t logged) {
    count_ = 1;
    auto const first = page(1);
    usableSize_ = pageSize_ - std::to_integer<std::size_t>(first[20]);
    count_ = bigEndian<std::uint32_t>(first.data() + 28);
    auto const encoding = bigEndian<std::uint32_t>(first.data() + 56);
    first_ = 0; // read as if the file had one page
    window_.clear();
    sqlite3_int64 bytes = 0;
    bool const isKnown = file_->pMethods->xFileSize(file_, &bytes) == SQLITE_OK;
    auto const most = static_cast<std::uint64_t>(bytes) / pageSize_ + logged;
    return encoding == 1 && usableSize_ >= 480 && isKnown && count_ <= most;
}

std::span<std::byte const> SnapshotPages::page(Number number) {
    if (number == 0 || number > count_) return {};
    if (log_)
        if (auto const found = inLog_.find(number); found != inLog_.end()) {
            read(log_, found->second, logged_);
            return logged_;
        }
    auto const known = window_.size() / pageSize_;
    if (number < first_ || number - first_ >= known) {
        auto const wanted = std::min<std::size_t>(std::max<std::size_t>(windowSize / pageSize_, 1), count_ - number + 1);
        window_.resize(wanted * pageSize_);
        first_ = number;
        read(file_, static_cast<std::int64_t>(number - 1) * static_cast<std::int64_t>(pageSize_), window_);
    }
    return std::span<std::byte const>(window_).subspan((number - first_) * pageSize_, pageSize_);
}

/// What is missing at the end reads as zeros, which no page of a table is.
void SnapshotPages::read(sqlite3_file* from, std::int64_t offset, std::span<std::byte> into) {
    auto const code = from->pMethods->xRead(from, into.data(), static_cast<int>(into.size()), offset);
    if (code == SQLITE_OK || code == SQLITE_IOERR_SHORT_READ) return;
    first_ = 0;
    window_.clear();
    throw Failure::of(nullptr, code, {});
}

} // namespace Tessarin::SQLite
