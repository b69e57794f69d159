#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLitePagedTablesPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSchemaPrivate.h"
#include "Tessarin/platform/sqlite/Connection.h"

#include <utility>

namespace Tessarin {

SQLitePagedTables::Table* SQLitePagedTables::find(std::string const& name) {
    auto [known, isNew] = tables_.try_emplace(name);
    if (isNew) known->second = looked(name);
    return known->second.get();
}

void SQLitePagedTables::forget() noexcept {
    tables_.clear();
    pages_.reset();
    isLookedAt_ = false;
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
    if (!std::exchange(isLookedAt_, true)) pages_ = SQLite::SnapshotPages::of(connection_);
    if (!pages_) return {};
    auto const first = static_cast<SQLite::SnapshotPages::Number>(root->integer(0));
    return std::make_unique<Table>(SQLite::TableWalk(*pages_, first), std::move(columns));
}

} // namespace Tessarin
