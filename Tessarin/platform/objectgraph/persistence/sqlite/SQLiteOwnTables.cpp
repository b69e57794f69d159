#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteOwnTablesPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSchemaPrivate.h"

#include <algorithm>

namespace Tessarin {
namespace {

bool hasTable(SQLite::Connection& connection, std::string_view name) {
    auto const query = connection.use("SELECT 1 FROM sqlite_schema WHERE type = 'table' AND name = ? COLLATE NOCASE");
    query->bind(1, name);
    return query->step();
}

/// The first versions wrote quotation marks in a table's name twice here. Where there is no such table, but one with single ones, that
/// is meant.
std::string tableMeant(SQLite::Connection& connection, std::string name) {
    if (name.find("\"\"") == std::string::npos || hasTable(connection, name)) return name;
    auto meant = unquoted('"' + name + '"');
    return hasTable(connection, meant) ? meant : name;
}

} // namespace

SQLiteOwnTables SQLiteOwnTables::readFrom(SQLite::Connection& connection) {
    SQLiteOwnTables own;
    // With a sign, they are no mere columns, of which SQLite notes from where they are: a sixth of what each statement costs.
    auto const entities = connection.use("SELECT +number, +name, +\"table\" FROM tessarin_entity");
    while (entities->step())
        own.entities.push_back({entities->integer(0), std::string(entities->text(1)), std::string(entities->text(2))});
    for (auto& entity : own.entities) entity.table = tableMeant(connection, std::move(entity.table));
    auto const facts = connection.use("SELECT +key, +value FROM tessarin_store");
    while (facts->step()) {
        auto const key = facts->text(0);
        if (key == "model") own.model = facts->text(1);
        if (key == "search") own.search = facts->text(1);
        if (key == "modelGeneration") own.modelGeneration = facts->integer(1);
    }
    return own;
}

std::optional<std::vector<std::int64_t>> SQLiteOwnTables::numbersOf(NSManagedObjectModel const& wanted) const {
    std::vector<std::int64_t> numbers(wanted.entities().size());
    std::size_t found = 0;
    for (auto const& [number, name, table] : entities)
        if (auto const* entity = wanted.entityNamed(name)) {
            numbers[entity->index()] = number;
            ++found;
        }
    if (found != numbers.size()) return {};
    return numbers;
}

std::vector<std::string> SQLiteOwnTables::tables() const {
    std::vector<std::string> names;
    for (auto const& entity : entities) names.push_back(quoted(entity.table));
    std::ranges::sort(names);
    auto const surplus = std::ranges::unique(names);
    names.erase(surplus.begin(), surplus.end());
    return names;
}

} // namespace Tessarin
