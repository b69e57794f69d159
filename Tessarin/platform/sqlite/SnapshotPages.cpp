#include "Tessarin/platform/sqlite/SnapshotPages.h"

#include "Tessarin/platform/sqlite/BigEndian.h"

#include <sqlite3.h>

#include <algorithm>

namespace Tessarin::SQLite {
namespace {

constexpr std::size_t windowSize = std::size_t{64} << 10;
constexpr std::int64_t logHeader = 32;
constexpr std::size_t frameHeader = 24, smallestPage = 512;

sqlite3_file* fileOf(Connection const& connection, int which) {
    sqlite3_file* file = nullptr;
    bool const isThere = sqlite3_file_control(connection.handle(), nullptr, which, &file) == SQLITE_OK && file && file->pMethods;
    return isThere ? file : nullptr;
}

/// What is missing at the end reads as zeros, which no page of a table is.
void read(sqlite3_file* from, std::int64_t offset, std::span<std::byte> into) {
    auto const code = from->pMethods->xRead(from, into.data(), static_cast<int>(into.size()), offset);
    if (code != SQLITE_OK && code != SQLITE_IOERR_SHORT_READ) throw Failure::of(nullptr, code, {});
}

} // namespace

SnapshotPages::SnapshotPages(Connection& connection, std::size_t mostKept)
    : connection_(connection), index_(connection), mostKept_(mostKept) {}

bool SnapshotPages::see() {
    window_.clear();
    auto const state = connection_.seenState();
    if (!state || sqlite3_txn_state(connection_.handle(), "main") != SQLITE_TXN_READ) return false;
    LogIndex::State const now(*state);
    // Once all of the log is in the file the transaction may have no hold on it. Before that it has.
    isInLog_ = now.frames > connection_.logPagesInFile();
    if (seen_ == state) return true;
    if (!now.isKnown || !dropChanged(now)) forget();
    frames_ = now.frames;
    salts_ = now.salts;
    file_ = fileOf(connection_, SQLITE_FCNTL_FILE_POINTER);
    log_ = fileOf(connection_, SQLITE_FCNTL_JOURNAL_POINTER);
    if (!now.isKnown || !file_ || !log_ || !readHeader()) return forget(), false;
    seen_ = state;
    return true;
}

/// Of the pages that are kept, those that were written since. False where that cannot be told.
bool SnapshotPages::dropChanged(LogIndex::State const& now) {
    if (!seen_ || now.salts != salts_ || now.frames < frames_) return false;
    if (now.frames - frames_ > kept_.size() + older_.size() + 64) return false; // all of them, rather than looking at so many
    recent_ = {};
    return index_.eachPage(frames_, now.frames, [&](Number page) {
        kept_.erase(page);
        older_.erase(page);
    });
}

/// False for texts that are not UTF-8, and for more pages than there can be.
bool SnapshotPages::readHeader() {
    std::array<std::byte, 18> start{};
    if (pageSize_ == 0) { // which never changes in a file with a log
        read(file_, 0, start);
        auto const size = bigEndian<std::uint16_t>(start.data() + 16);
        pageSize_ = size == 1 ? 65536 : size;
    }
    if (pageSize_ < smallestPage) return false;
    count_ = 1;
    auto const first = kept(1);
    if (first.empty()) return false;
    auto const kept = std::to_integer<std::size_t>(first[20]);
    usableSize_ = pageSize_ - kept;
    count_ = bigEndian<std::uint32_t>(first.data() + 28);
    schemaVersion_ = bigEndian<std::uint32_t>(first.data() + 40);
    auto const encoding = bigEndian<std::uint32_t>(first.data() + 56);
    sqlite3_int64 bytes = 0;
    bool const isKnown = file_->pMethods->xFileSize(file_, &bytes) == SQLITE_OK;
    auto const most = static_cast<std::uint64_t>(bytes) / pageSize_ + frames_;
    return encoding == 1 && usableSize_ >= 480 && isKnown && count_ <= most;
}

SnapshotPages::Page SnapshotPages::passing(Number number) {
    if (number == 0 || number > count_) return {};
    auto const frame = isInLog_ ? index_.frameOf(number, frames_) : 0;
    if (!frame) return {};
    if (*frame != 0) return readFrame(*frame, number);
    if (auto const ready = window_.size() / pageSize_; number < first_ || number - first_ >= ready) {
        auto const wanted = std::min<std::size_t>(std::max<std::size_t>(windowSize / pageSize_, 1), count_ - number + 1);
        window_.resize(wanted * pageSize_);
        first_ = number;
        readFile(number, window_);
    }
    return std::span<std::byte const>(window_).subspan((number - first_) * pageSize_, pageSize_);
}

SnapshotPages::Page SnapshotPages::noted(Number number, std::byte const* content) noexcept {
    recent_[number % recent_.size()] = {number, content};
    return {content, pageSize_};
}

SnapshotPages::Page SnapshotPages::knownLong(Number number) {
    auto found = kept_.find(number);
    if (found == kept_.end()) {
        auto older = older_.extract(number);
        if (older.empty()) return {};
        found = kept_.insert(std::move(older)).position;
    }
    return noted(number, found->second.get());
}

SnapshotPages::Page SnapshotPages::kept(Number number) {
    if (auto const page = known(number); !page.empty()) return page;
    if (number == 0 || number > count_) return {};
    auto content = room();
    return readNew(number, {content.get(), pageSize_}) ? add(number, std::move(content)) : Page();
}

void SnapshotPages::keep(Number number, Page page) {
    if (kept_.size() * pageSize_ >= mostKept_ / 2) return;
    auto content = room();
    std::ranges::copy(page, content.get());
    add(number, std::move(content));
}

SnapshotPages::Page SnapshotPages::add(Number number, Content content) {
    return noted(number, kept_.insert_or_assign(number, std::move(content)).first->second.get());
}

void SnapshotPages::trim() {
    if (kept_.size() * pageSize_ <= mostKept_ / 2) return;
    for (auto& [number, content] : older_) spare_.push_back(std::move(content));
    older_.clear();
    older_.swap(kept_);
    recent_ = {};
}

SnapshotPages::Content SnapshotPages::room() {
    if (spare_.empty()) return std::make_unique_for_overwrite<std::byte[]>(pageSize_);
    auto content = std::move(spare_.back());
    spare_.pop_back();
    return content;
}

bool SnapshotPages::readNew(Number number, std::span<std::byte> into) {
    auto const frame = isInLog_ ? index_.frameOf(number, frames_) : 0;
    if (!frame) return false;
    if (*frame == 0) return readFile(number, into), true;
    auto const page = readFrame(*frame, number);
    std::ranges::copy(page, into.begin());
    return !page.empty();
}

/// Empty for a frame that is not what the index says.
SnapshotPages::Page SnapshotPages::readFrame(Number frame, Number number) {
    auto const size = frameHeader + pageSize_;
    frame_.resize(size);
    read(log_, logHeader + static_cast<std::int64_t>(frame - 1) * static_cast<std::int64_t>(size), frame_);
    bool const isIt =
        bigEndian<std::uint32_t>(frame_.data()) == number && std::equal(salts_.begin(), salts_.end(), frame_.begin() + 8);
    return isIt ? Page(frame_).subspan(frameHeader) : Page();
}

void SnapshotPages::readFile(Number number, std::span<std::byte> into) {
    try {
        read(file_, static_cast<std::int64_t>(number - 1) * static_cast<std::int64_t>(pageSize_), into);
    } catch (...) {
        window_.clear();
        throw;
    }
}

void SnapshotPages::forget() noexcept {
    window_ = {};
    seen_.reset();
    kept_.clear();
    older_.clear();
    spare_.clear();
    recent_ = {};
}

} // namespace Tessarin::SQLite
