#pragma once
#include "Tessarin/platform/sqlite/IndexWalk.h"
#include "Tessarin/platform/sqlite/TableWalk.h"
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Tessarin {

class SQLiteRowDecoder;

/// Tables as a connection's read transaction sees them, to be read right from their pages. Used by the connection's thread.
class SQLitePagedTables {
public:
    explicit SQLitePagedTables(SQLite::Connection& connection);

    /// Until tables are changed, and to be used until the transaction ends.
    struct Table {
        Table(SQLite::TableWalk walk, std::vector<std::string> columns) : walk(std::move(walk)), columns(std::move(columns)) {}

        SQLite::TableWalk walk;
        std::vector<std::string> columns; // in quotes, as they stand in a record
        std::vector<std::pair<std::string, SQLite::IndexWalk>> indexes = {}; // of one column each, which they find by equality

        /// Null without one.
        SQLite::IndexWalk* indexOf(std::string_view column) noexcept;
        /// Where the columns stand that a decoder reads. Empty when one is missing.
        std::span<std::size_t const> placesFor(SQLiteRowDecoder const& decoder);

    private:
        friend SQLitePagedTables;
        std::vector<std::pair<SQLiteRowDecoder const*, std::vector<std::size_t>>> places_;
        std::uint64_t avoided_ = 0; // in that transaction
    };
    /// Null where SQLite has to read it.
    Table* find(std::string const& name);
    /// The same for who looks up a few records by their keys: null for a connection's first times, too. What must be known of a table
    /// beforehand costs as much as a few statements.
    Table* findForFew(std::string const& name) { return lookUps_++ < firstLookUps ? nullptr : find(name); }
    /// Its pages are not what they should be: until the transaction ends.
    void avoid(Table& table) const noexcept { table.avoided_ = transaction_; }
    /// Frees pages, when many were looked at: between look-ups.
    void trim() { pages_.trim(); }
    /// The transaction has ended.
    void forget() noexcept;
    /// Frees all pages, since nobody has looked at any for a while: the transaction has ended.
    void rest() noexcept {
        forget();
        pages_.forget();
    }

private:
    static constexpr std::uint64_t firstLookUps = 8;

    bool seesPages();
    std::unique_ptr<Table> looked(std::string const& name);
    void addIndexes(std::string const& plainName, Table& table);

    SQLite::Connection& connection_;
    SQLite::SnapshotPages pages_;
    std::uint64_t transaction_ = 1;
    std::optional<bool> seesPages_; // in this one, once it is known
    std::uint32_t schemaVersion_ = 0;
    std::uint64_t lookUps_ = 0;
    std::map<std::string, std::unique_ptr<Table>> tables_; // those that were asked for; null where SQLite has to
};

} // namespace Tessarin
