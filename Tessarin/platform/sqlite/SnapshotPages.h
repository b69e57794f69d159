#pragma once
#include "Tessarin/platform/sqlite/LogIndex.h"
#include <memory>
#include <span>
#include <unordered_map>

struct sqlite3_file;

namespace Tessarin::SQLite {

/// The pages of a database as the read transaction of a connection sees them, those of the log included, past SQLite's own cache.
/// Used by the connection's thread; what fails throws Failure. The formats are described at sqlite.org/fileformat2.html and
/// sqlite.org/walformat.html.
///
/// What stands in the file while the transaction lasts is what it sees, but for pages that the log has: its lock keeps a checkpoint
/// from copying newer ones there, and the log from being begun anew. Pages that were kept outlast a transaction unless somebody
/// wrote them: the log's index names those.
class TESSARIN_API SnapshotPages {
public:
    using Number = LogIndex::Number; // from 1
    using Page = std::span<std::byte const>;

    /// `mostKept`: bytes.
    SnapshotPages(Connection& connection, std::size_t mostKept);

    /// Looks at what the connection's transaction sees: once for each, after its first read, and before any page. False where that
    /// is not known for certain (somebody has committed since it began, there is no log or no transaction), or where texts are not
    /// UTF-8.
    bool see();

    /// A page's content, for who reads a table from one end to the other: until the next is asked for. Empty where there is none.
    Page passing(Number number);
    /// The same, which is kept for the next time: until `trim`.
    Page kept(Number number);
    /// A page that is kept. Empty for others.
    Page known(Number number) {
        auto const& recent = recent_[number % recent_.size()];
        return recent.number == number ? Page(recent.content, pageSize_) : knownLong(number);
    }
    /// Keeps a page that was only passing, if there is room.
    void keep(Number number, Page page);
    /// Frees those that were not used for long, when there are too many.
    void trim();
    /// Frees all.
    void forget() noexcept;

    /// How much of each page is content: some files keep bytes at the end of each for something else.
    std::size_t usableSize() const noexcept { return usableSize_; }
    /// Bytes of all pages.
    std::uint64_t size() const noexcept { return std::uint64_t{count_} * pageSize_; }
    /// Another one whenever tables or indexes were made, changed or removed.
    std::uint32_t schemaVersion() const noexcept { return schemaVersion_; }

private:
    using Content = std::unique_ptr<std::byte[]>;
    bool dropChanged(LogIndex::State const& now);
    bool readHeader();
    bool readNew(Number number, std::span<std::byte> into);
    Page knownLong(Number number);
    Page add(Number number, Content content);
    Page noted(Number number, std::byte const* content) noexcept;
    Content room();
    Page readFrame(Number frame, Number number);
    void readFile(Number number, std::span<std::byte> into);

    Connection& connection_;
    LogIndex const index_;
    std::size_t const mostKept_;
    std::optional<Connection::LogState> seen_; // what the kept pages are of
    std::array<std::byte, 8> salts_{}; // of the log then
    Number frames_ = 0; // of the log then
    bool isInLog_ = false; // some of which are not in the file
    sqlite3_file* file_ = nullptr;
    sqlite3_file* log_ = nullptr;
    std::size_t pageSize_ = 0, usableSize_ = 0;
    Number count_ = 0; // pages of the file
    std::uint32_t schemaVersion_ = 0;
    std::vector<std::byte> window_; // neighbours that were read together
    Number first_ = 0; // of them
    std::vector<std::byte> frame_; // of the log, the last that was read: its header and the page
    using Kept = std::unordered_map<Number, Content>;
    Kept kept_;
    Kept older_; // not used since there were too many
    std::vector<Content> spare_;
    struct Recent {
        Number number = 0;
        std::byte const* content = nullptr;
    };
    std::array<Recent, 64> recent_; // of those in `kept_`
};

} // namespace Tessarin::SQLite
