#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/RowBlockWriterPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowBuilderPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteRowFeedPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSchemaPrivate.h"
#include "Tessarin/platform/sqlite/TableWalk.h"
#include <optional>

namespace Tessarin {

/// Which columns a query reads for an entity (and its sub-entities), and how they become rows. Used by one thread at a time.
class TESSARIN_API SQLiteRowDecoder {
public:
    /// `asOf`: which commits the connection sees, at any time.
    SQLiteRowDecoder(SQLiteSchema const& schema, NSEntityDescription const& entity, bool includesSubentities,
                     RowCache::Moment const& asOf);

    /// The list of columns of the table, which the query calls `t0`: id and version first.
    std::string const& columns() const noexcept { return columns_; }
    /// The same for a statement that orders by the key at most: as values, of which SQLite does not note from where they are. That
    /// makes a tenth of what a short one costs to prepare.
    std::string const& values() const noexcept { return valueTexts_; }
    /// What a query without order and limit selects instead, to be read with a feed.
    std::string selection() const { return isFed() ? SQLiteRowFeed::selecting(columns_) : columns_; }

    /// The row on which the statement stands: the cached one when it is as new, else a new one, which the cache then knows.
    RowRef row(SQLite::Statement const& statement);
    /// All rows that are left, of those that `wants` accepts; whether all of them are new, and so follow one another in blocks
    /// of their own.
    using Wants = FunctionRef<bool(RecordKey key)>;
    bool readAll(SQLiteRowFeed& feed, SQLite::Statement& statement, std::vector<RowRef>& rows, Wants wants);
    bool readAll(SQLiteRowFeed& feed, SQLite::Statement& statement, std::vector<RowRef>& rows);
    bool readAll(SQLite::Statement& statement, std::vector<RowRef>& rows);
    /// The first of the records with keys from `first` to `last`, right from their pages. `places`: where the columns stand in the
    /// table, see `placesOf`. Absent, with `rows` as they were, where a record is not as this library writes it: then SQLite has to
    /// say what it means.
    std::optional<bool> readAll(SQLite::TableWalk& walk, std::span<std::size_t const> places, RecordKey first, RecordKey last,
                                std::vector<RowRef>& rows, Wants wants);
    /// Adds the row of a record that was found in its page: the cached one when it is as new. None of an entity that is not read.
    /// False, and nothing is added, where the record is odd.
    bool add(SQLite::TableRecord const& record, std::span<std::size_t const> places, std::vector<RowRef>& rows);
    /// What `readAll` reads, of the keys alone. False, with `keys` as they were, where that cannot be told.
    bool readKeys(SQLite::TableWalk& walk, std::span<std::size_t const> places, RecordKey first, RecordKey last,
                  std::vector<RecordKey>& keys);
    /// Where `columns` stand among a table's. Empty when one is missing.
    std::vector<std::size_t> placesOf(std::span<std::string const> columnsOfTable) const;

    /// Whether a query like the last one will probably find most of its rows in the cache. Reading only keys and versions is
    /// then four times as fast.
    bool expectsCached() const { return lastCount_ >= manyRows && space_.cache().size() >= lastCount_; }
    void noteCount(std::size_t count) noexcept { lastCount_ = count; }

private:
    static constexpr std::size_t manyRows = 200;
    static constexpr std::size_t usualText = 64; // of all texts of a row together; with more, the row may be made twice
    static constexpr std::size_t usualSize = 512; // of a row; with more, it is measured first
    struct Cell {
        std::size_t cell;
        int column;
        CellType type;
        RowLayout::Packing::Place place;
    };
    struct Plan {
        RowLayout const* layout = nullptr;
        std::vector<Cell> cells;
    };
    template <class Values> class Filling;
    bool isFed() const noexcept { return names_.size() <= SQLiteRowFeed::mostColumns; }
    void run(SQLiteRowFeed& feed, SQLite::Statement& statement, SQLiteRowFeed::Take take);
    SQLiteRowFeed::Values valuesOf(SQLite::Statement const& statement);
    // Of a record whose values come from a statement or from a page, see SQLitePagedValuesPrivate.h:
    /// how to read it; null for an entity that this model does not know.
    template <class Values> Plan const* planOf(Values const& values) const noexcept;
    template <class Values>
    RowRef decoded(Values const& values, Plan const& plan, RecordKey key, std::uint32_t version, RowBlockWriter* blocks);
    template <class Values> RowRef single(Values const& values, Plan const& plan, RecordKey key, std::uint32_t version);
    template <class Values>
    static bool packInto(RowBlockWriter::Room room, Values const& values, Plan const& plan, std::size_t& size);
    void addPlans(SQLiteSchema const& schema, NSEntityDescription const& entity, bool includesSubentities);

    RowSpace& space_;
    RowCache::Moment const& asOf_;
    bool hasEntityColumn_;
    std::string columns_, valueTexts_;
    std::vector<std::string> names_; // of the columns
    std::vector<sqlite3_value*> values_; // of the record on which a statement stands
    std::vector<std::pair<std::int64_t, Plan>> plans_; // by number of the entity
    RowBuilder builder_;
    RowBlockWriter blocks_;
    std::size_t lastCount_ = 0;
};

} // namespace Tessarin
