#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLitePagedTablesPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSchemaPrivate.h"
#include "Tessarin/platform/sqlite/Connection.h"

#include <algorithm>

namespace Tessarin {

SQLitePagedTables::Table* SQLitePagedTables::find(std::string const& name, std::uint64_t records) {
    if (!hasPages(records)) return nullptr;
    auto [known, isNew] = tables_.try_emplace(name);
    if (isNew) known->second = looked(name);
    return known->second.get();
}

void SQLitePagedTables::forget() noexcept {
    tables_.clear();
    pages_.reset();
    mostLogged_.reset();
}

/// To look through the log costs more than SQLite does where few records are wanted.
bool SQLitePagedTables::hasPages(std::uint64_t records) {
    static constexpr std::uint64_t recordsForEach = 8, longestLog = 4096; // in pages
    if (pages_) return true;
    auto const mostLogged = static_cast<std::uint32_t>(std::min(records / recordsForEach, longestLog));
    if (mostLogged_ && mostLogged <= *mostLogged_) return false;
    if (!mostLogged_) connection_.integer("SELECT rootpage FROM sqlite_schema LIMIT 1"); // what is seen is settled by now
    mostLogged_ = mostLogged;
    pages_ = SQLite::SnapshotPages::of(connection_, mostLogged);
    return pages_ != nullptr;
}

/// None for a table with columns that are not in its records, or that older records have without holding them.
std::unique_ptr<SQLitePagedTables::Table> SQLitePagedTables::looked(std::string const& name) {
    auto const plain = unquoted(name);
    std::vector<std::string> columns;
    auto const shape = connection_.use("SELECT name, hidden, dflt_value FROM pragma_table_xinfo(?)");
    shape->bind(1, plain);
    while (shape->step()) {
        if (shape->integer(1) != 0 || !shape->isNull(2)) return {};
        columns.push_back(quoted(shape->text(0)));
    }
    auto const root = connection_.use("SELECT rootpage FROM sqlite_schema WHERE type = 'table' AND name = ? COLLATE NOCASE");
    root->bind(1, plain);
    if (!root->step()) return {};
    auto const first = static_cast<SQLite::SnapshotPages::Number>(root->integer(0));
    return std::make_unique<Table>(SQLite::TableWalk(*pages_, first), std::move(columns));
}

} // namespace Tessarin
