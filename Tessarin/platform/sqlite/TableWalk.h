#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/sqlite/BTreePage.h"
#include "Tessarin/platform/sqlite/RecordFormat.h"
#include <bit>
#include <optional>
#include <string_view>

namespace Tessarin::SQLite {

/// A record as its page holds it. Valid until the walk goes on.
class TESSARIN_API TableRecord {
public:
    enum class Kind : std::uint8_t { Missing, Null, Integer, Real, Text, Bytes };

    std::int64_t key() const noexcept { return key_; }
    /// Columns from there on are `Missing`: the record was written before the table had them.
    std::size_t columnCount() const noexcept { return count_; }
    Kind kindOf(std::size_t column) const noexcept { return column < count_ ? cells_[column].kind : Kind::Missing; }
    // Of a column of that kind.
    std::int64_t integer(std::size_t column) const noexcept;
    double real(std::size_t column) const noexcept {
        return std::bit_cast<double>(bigEndian<std::uint64_t>(start_ + cells_[column].offset));
    }
    /// A text or bytes.
    std::string_view content(std::size_t column) const noexcept {
        return {reinterpret_cast<char const*>(start_ + cells_[column].offset), cells_[column].size};
    }

private:
    friend class TableWalk;
    struct Cell {
        std::uint32_t offset;
        std::uint32_t size;
        Kind kind;
        std::uint8_t type; // SQLite's serial type, of a number
    };
    static constexpr std::size_t most = 128; // columns that are looked at
    bool parse(std::int64_t key, std::span<std::byte const> payload);

    std::int64_t key_ = 0;
    std::byte const* start_ = nullptr;
    std::size_t count_ = 0;
    Cell cells_[most];
};

inline std::int64_t TableRecord::integer(std::size_t column) const noexcept {
    return integerOfType(start_ + cells_[column].offset, cells_[column].type);
}

/// Walks through a table with integer keys, from page to page. All of it is said of the transaction that `pages` sees.
class TESSARIN_API TableWalk {
public:
    static constexpr std::size_t mostColumns = TableRecord::most;

    TableWalk(SnapshotPages& pages, SnapshotPages::Number root) : pages_(pages), root_(root) {}

    /// Hands over the records with keys from `first` to `last`, by key, until `take` answers false. Answers false, too, where the
    /// pages are not as those of such a table should be: SQLite may know what is wrong with them.
    bool read(std::int64_t first, std::int64_t last, FunctionRef<bool(TableRecord const&)> take);
    /// The record with that key, until the next is asked for; null when there is none. Absent where the pages are not as they should
    /// be. It keeps the pages that it reads, see `SnapshotPages::trim`.
    std::optional<TableRecord const*> find(std::int64_t key);

private:
    using Page = SnapshotPages::Page;
    enum class End { OfPage, OfSpan, Broken };
    struct Walk;
    struct Cell;
    End visit(SnapshotPages::Number number, int depth, Walk& walk);
    End visitInner(BTreePage const& page, int depth, Walk& walk);
    End visitLeaf(BTreePage page, Walk& walk, bool isPassing);
    static std::optional<std::size_t> placeIn(BTreePage const& leaf, std::int64_t key);
    std::optional<TableRecord const*> findIn(BTreePage const& leaf, std::int64_t key);
    bool payloadOf(Cell const& cell, BTreePage const& page, std::span<std::byte const>& payload);
    bool followOverflow(SnapshotPages::Number next, std::uint64_t size);

    SnapshotPages& pages_;
    SnapshotPages::Number const root_;
    TableRecord record_;
    std::vector<std::byte> gathered_; // a record that is longer than its page
    std::vector<std::byte> leaf_; // kept while its overflow is read
};

} // namespace Tessarin::SQLite
