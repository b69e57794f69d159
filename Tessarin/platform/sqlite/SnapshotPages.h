#pragma once
#include "Tessarin/Export.h"
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

struct sqlite3_file;

namespace Tessarin::SQLite {

class Connection;

/// The pages of a database as the read transaction of a connection sees them, those of the log included, past SQLite's own cache:
/// for who reads a table from one end to the other. Used by the connection's thread for as long as the transaction lasts; what
/// fails throws Failure. The formats are described at sqlite.org/fileformat2.html and sqlite.org/walformat.html.
///
/// What stands in the file while the transaction lasts is what it sees, but for pages that the log has: its lock keeps a checkpoint
/// from copying newer ones there, and the log from being begun anew.
class TESSARIN_API SnapshotPages {
public:
    using Number = std::uint32_t; // from 1

    /// Null where it is not known for certain what the transaction sees (somebody has committed since it began, or there is no
    /// log), and where more pages of the log than `mostLogged` would have to be looked at beforehand. Ask after the transaction's
    /// first read.
    static std::unique_ptr<SnapshotPages> of(Connection& connection, std::uint32_t mostLogged);

    /// A page's content, until the next call. Empty where there is no such page.
    std::span<std::byte const> page(Number number);
    /// How much of each page is content: some files keep bytes at the end of each for something else.
    std::size_t usableSize() const noexcept { return usableSize_; }
    /// Bytes of all pages.
    std::uint64_t size() const noexcept { return std::uint64_t{count_} * pageSize_; }

private:
    struct Log; // its shared index, as far as one must know it
    SnapshotPages(sqlite3_file* file, std::size_t pageSize) : file_(file), pageSize_(pageSize) {}
    bool readLog(sqlite3_file* log, Log const& index);
    bool readHeader(std::uint32_t logged);
    void read(sqlite3_file* from, std::int64_t offset, std::span<std::byte> into);

    sqlite3_file* const file_;
    sqlite3_file* log_ = nullptr; // null: no page is there
    std::unordered_map<Number, std::int64_t> inLog_; // where the newest that the transaction sees stands
    std::size_t const pageSize_;
    std::size_t usableSize_ = 0;
    Number count_ = 0; // pages of the file
    std::vector<std::byte> window_; // neighbours that were read together
    Number first_ = 0; // of them
    std::vector<std::byte> logged_; // the last that came from the log
};

} // namespace Tessarin::SQLite
