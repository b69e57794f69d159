// Salvage, after the records: the links among them, what is missing, and the next key.
#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteFileChecksPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSalvagePrivate.h"

#include <algorithm>
#include <iterator>
#include <fmt/format.h>
#include <sqlite3.h>

namespace Tessarin {

bool SQLiteSalvage::readLinks(std::string const& insertion, std::string const& rows) {
    auto const statement = fresh_.use(insertion);
    try {
        SQLite::Statement from(damaged_, rows);
        while (from.step()) {
            for (int at = 0; at < from.columnCount(); ++at)
                sqlite3_bind_value(statement->handle(), at + 1, sqlite3_column_value(from.handle(), at));
            statement->run();
        }
        return true;
    } catch (SQLite::Failure const& failure) {
        if (auto const code = failure.primaryCode(); code != SQLITE_CORRUPT && code != SQLITE_ERROR && code != SQLITE_IOERR)
            throw;
    }
    return false;
}

/// A join table from both ends, then the pairs that its index knows; those have lost their places.
void SQLiteSalvage::readLinks(SQLiteSchema::Link const& link) {
    auto const* inverse = schema_.inverseOf(link);
    std::string columns = "owner, member", parameters = "?, ?";
    for (auto const* end : {&link, inverse})
        if (end && !end->position.empty()) {
            columns += ", " + end->position;
            parameters += ", ?";
        }
    bool const isOrdered = columns != "owner, member";
    auto const rows = fmt::format("SELECT {} FROM {} ORDER BY owner", columns, link.table);
    auto const insertion = fmt::format("INSERT OR IGNORE INTO {} ({}) VALUES ({})", link.table, columns, parameters);
    if (readLinks(insertion, rows + ", member")) return;
    readLinks(insertion, rows + " DESC, member DESC");
    auto const count = fmt::format("SELECT count(*) FROM {}", link.table);
    auto const before = fresh_.integer(count);
    for (auto const& index : schema_.indexes())
        if (index.table == link.table)
            readLinks(fmt::format("INSERT OR IGNORE INTO {} (owner, member) VALUES (?, ?)", link.table),
                      fmt::format("SELECT owner, member FROM {} INDEXED BY {}", link.table, index.name));
    if (isOrdered) report_.lostPlaces += static_cast<std::size_t>(fresh_.integer(count) - before);
}

/// Keys that an index of the table or a saved link names, and that no saved record has.
void SQLiteSalvage::noteMissing(Table& table) {
    auto const& name = table.schema.name;
    fresh_.execute("CREATE TEMP TABLE IF NOT EXISTS named (id INTEGER PRIMARY KEY); DELETE FROM named");
    table.report.mayMissMore = true;
    for (auto const& index : schema_.indexes())
        if (index.table == name &&
            readLinks("INSERT OR IGNORE INTO named VALUES (?)", fmt::format("SELECT id FROM {} INDEXED BY {}", name, index.name)))
            table.report.mayMissMore = false; // it could be read wholly
    auto const addFrom = [&](std::string const& from, std::string const& column) {
        fresh_.execute(fmt::format("INSERT OR IGNORE INTO named SELECT {0} FROM {1} WHERE {0} > 0", column, from));
    };
    auto const isOfTable = [&](NSEntityDescription const& entity) { return entity.rootEntity() == table.schema.root; };
    for (auto const& other : schema_.tables())
        for (auto const& column : other.columns)
            if (column.property && column.property->asRelationship() &&
                isOfTable(*column.property->asRelationship()->destinationEntity()))
                addFrom(other.name, column.name);
    for (auto const& link : schema_.links()) {
        if (!link.isJoinTable || !link.isWrittenHere) continue;
        if (isOfTable(*link.relationship->entity())) addFrom(link.table, link.owner);
        if (isOfTable(*link.relationship->destinationEntity())) addFrom(link.table, link.member);
    }
    auto const query =
        fresh_.use(fmt::format("SELECT count(*), max(id) FROM named WHERE id > 0 AND id NOT IN (SELECT id FROM {})", name));
    query->step();
    table.report.missing = static_cast<std::size_t>(query->integer(0));
    largestMissing_ = std::max(largestMissing_, query->integer(1));
}

std::string SQLiteSalvage::isMissing(NSEntityDescription const& destination, std::string const& column) const {
    auto const& table = schema_.tableOf(destination);
    auto const entity =
        destination.superentity() ? fmt::format(" AND entity IN ({})", schema_.numbersInTreeOf(destination)) : std::string();
    return fmt::format("{0} IS NOT NULL AND {0} NOT IN (SELECT id FROM {1} WHERE id > 0{2})", column, table.name, entity);
}

SalvageReport::Entity& SQLiteSalvage::reportOf(NSEntityDescription const& entity) {
    return std::ranges::find(tables_, entity.rootEntity(), [](Table const& table) { return table.schema.root; })->report;
}

void SQLiteSalvage::cutLinks() {
    for (auto& table : tables_)
        for (auto column = table.schema.columns.begin(); column != table.schema.columns.end(); ++column) {
            auto const* relationship = column->property ? column->property->asRelationship() : nullptr;
            if (!relationship) continue;
            auto const next = std::next(column);
            auto const place =
                next != table.schema.columns.end() && !next->property ? fmt::format(", {} = NULL", next->name) : std::string();
            table.report.cutLinks += static_cast<std::size_t>(
                fresh_
                    .use(fmt::format("UPDATE {} SET {} = NULL{} WHERE {}", table.schema.name, column->name, place,
                                     isMissing(*relationship->destinationEntity(), column->name)))
                    ->run());
        }
    for (auto const& link : schema_.links()) {
        if (!link.isJoinTable || !link.isWrittenHere) continue;
        auto const& relationship = *link.relationship;
        reportOf(*relationship.entity()).cutLinks += static_cast<std::size_t>(
            fresh_
                .use(fmt::format("DELETE FROM {} WHERE {} OR {}", link.table, isMissing(*relationship.entity(), link.owner),
                                 isMissing(*relationship.destinationEntity(), link.member)))
                ->run());
    }
}

/// Behind every key that was ever given, as far as anything tells.
void SQLiteSalvage::keepNextKey() {
    std::int64_t next = 0;
    try {
        next = damaged_.integer("SELECT value FROM tessarin_store WHERE key = 'nextKey'");
    } catch (SQLite::Failure const&) { // its page, too, is damaged
    }
    auto const largest = std::max(largestKey(fresh_, schema_), largestMissing_);
    next = std::max(next, largest == INT64_MAX ? largest : largest + 1);
    auto const statement = fresh_.use("UPDATE tessarin_store SET value = ? WHERE key = 'nextKey'");
    statement->bind(1, next);
    statement->run();
}

} // namespace Tessarin
