#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLitePagedTablesPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteRowDecoderPrivate.h"

#include <algorithm>

namespace Tessarin {
namespace {

constexpr std::size_t mostKept = std::size_t{8} << 20; // bytes of pages, as many as SQLite's own cache takes

} // namespace

SQLitePagedTables::SQLitePagedTables(SQLite::Connection& connection) : connection_(connection), pages_(connection, mostKept) {}

SQLite::IndexWalk* SQLitePagedTables::Table::indexOf(std::string_view column) noexcept {
    auto const found = std::ranges::find(indexes, column, [](auto const& each) -> std::string_view { return each.first; });
    return found == indexes.end() ? nullptr : &found->second;
}

std::span<std::size_t const> SQLitePagedTables::Table::placesFor(SQLiteRowDecoder const& decoder) {
    auto const known = std::ranges::find(places_, &decoder, [](auto const& each) { return each.first; });
    return known != places_.end() ? known->second : places_.emplace_back(&decoder, decoder.placesOf(columns)).second;
}

SQLitePagedTables::Table* SQLitePagedTables::find(std::string const& name) {
    if (!seesPages()) return nullptr;
    auto [known, isNew] = tables_.try_emplace(name);
    if (isNew) known->second = looked(name);
    auto* const table = known->second.get();
    return table && table->avoided_ != transaction_ ? table : nullptr;
}

void SQLitePagedTables::forget() noexcept {
    ++transaction_;
    seesPages_.reset();
}

bool SQLitePagedTables::seesPages() {
    if (seesPages_) {
        pages_.trim();
        return *seesPages_;
    }
    connection_.integer("PRAGMA schema_version"); // the least that settles what is seen
    seesPages_ = pages_.see();
    if (!*seesPages_) return false;
    if (schemaVersion_ != pages_.schemaVersion()) tables_.clear();
    schemaVersion_ = pages_.schemaVersion();
    return true;
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
    auto table = std::make_unique<Table>(SQLite::TableWalk(pages_, first), std::move(columns));
    addIndexes(plain, *table);
    return table;
}

/// Those of all records by one column, which compare its bytes.
void SQLitePagedTables::addIndexes(std::string const& plainName, Table& table) {
    auto const indexes = connection_.use(
        "SELECT column.name, entry.rootpage FROM pragma_index_list(?) AS list "
        "JOIN sqlite_schema AS entry ON entry.name = list.name JOIN pragma_index_xinfo(list.name) AS column "
        "WHERE entry.type = 'index' AND NOT list.partial AND column.seqno = 0 AND column.cid >= 0 AND NOT column.desc "
        "AND column.coll = 'BINARY' AND (SELECT count(*) FROM pragma_index_xinfo(list.name) WHERE key) = 1");
    indexes->bind(1, plainName);
    while (indexes->step()) {
        auto const root = static_cast<SQLite::SnapshotPages::Number>(indexes->integer(1));
        table.indexes.emplace_back(quoted(indexes->text(0)), SQLite::IndexWalk(pages_, root));
    }
}

} // namespace Tessarin
