#pragma once
#include "Tessarin/platform/sqlite/TableWalk.h"
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Tessarin {

/// Tables as a connection's read transaction sees them, to be read right from their pages. Used by the connection's thread.
class SQLitePagedTables {
public:
    explicit SQLitePagedTables(SQLite::Connection& connection) : connection_(connection) {}

    struct Table {
        Table(SQLite::TableWalk walk, std::vector<std::string> columns) : walk(std::move(walk)), columns(std::move(columns)) {}
        SQLite::TableWalk walk;
        std::vector<std::string> columns; // in quotes, as they stand in a record
    };
    /// For about so many records. Null where SQLite has to read it. Until the transaction ends.
    Table* find(std::string const& name, std::uint64_t records);
    /// Its pages are not what they should be.
    void avoid(std::string const& name) { tables_[name].reset(); }
    /// The transaction has ended.
    void forget() noexcept;

private:
    bool hasPages(std::uint64_t records);
    std::unique_ptr<Table> looked(std::string const& name);

    SQLite::Connection& connection_;
    std::optional<std::uint32_t> mostLogged_; // as far as was looked in vain
    std::unique_ptr<SQLite::SnapshotPages> pages_;
    std::map<std::string, std::unique_ptr<Table>> tables_; // those that were asked for; null where SQLite has to
};

} // namespace Tessarin
