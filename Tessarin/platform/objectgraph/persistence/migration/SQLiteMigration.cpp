#include "Tessarin/platform/objectgraph/persistence/migration/SQLiteMigrationPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/ValueConversionPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSearchTablesPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteStoredModelPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreMetadataPrivate.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace Tessarin {

std::vector<std::int64_t> SQLiteMigration::run() {
    registerValueConversion(connection_);
    auto const conditions = conditionsOf(mapping_);
    for (auto const& condition : conditions) checkBefore(condition);
    findKept();
    dropIndexes();
    keptSearches_ = SQLiteSearchTables(connection_).dropOthers(schema_, [&](SQLiteSchema::Search const& search) {
        return isKept(search.table->name);
    });
    expectSteps();
    moveOldTables();
    auto families = this->families();
    for (auto& family : families)
        if (!stays(family)) collect(family);
    for (auto const& family : families)
        if (family.isCollected()) writeToOnes(family);
    for (auto const& [name, place] : moved_) connection_.execute("DROP TABLE " + place);
    if (mapping_.dropsEntities()) forgetLinksToNobody();
    for (auto const& family : families) checkDestinations(family);
    for (auto const& condition : conditions) checkAfter(condition);
    makeIndexes();
    makeSearches();

    std::vector<std::int64_t> numbers;
    for (auto const& entity : space_.model().entities()) numbers.push_back(schema_.numberOf(*entity));
    writeModel(numbers);
    return numbers;
}

/// What takes long: copying records, adding columns to them, collecting links, making indexes.
void SQLiteMigration::expectSteps() {
    for (auto const& table : schema_.tables()) progress_.expect(countIn(&table));
    for (auto const& family : families())
        if (!stays(family)) progress_.expect(countIn(&schema_.tableOf(*family.written->entity())));
    for (auto const& index : schema_.indexes())
        if (!keptIndexes_.contains(index.statement)) progress_.expect(countIn(tableNamed(index.table)));
    for (auto const& search : schema_.searches())
        if (!isKept(search)) progress_.expect(countIn(search.table));
}

/// How many records it gets.
std::int64_t SQLiteMigration::countIn(Table const* table) const {
    std::int64_t count = 0;
    if (table)
        for (auto const* entity : entitiesOf(*table))
            if (auto const* source = mapping_.sourceOf(*entity)) count += countOf(*source);
    return count;
}

/// Null for a table of links.
SQLiteMigration::Table const* SQLiteMigration::tableNamed(std::string const& name) const {
    auto const found = std::ranges::find(schema_.tables(), name, &Table::name);
    return found == schema_.tables().end() ? nullptr : &*found;
}

void SQLiteMigration::findKept() {
    for (auto const& table : schema_.tables())
        if (auto const* old = unchanged(table)) kept_.emplace_back(&table, old), keptNames_.push_back(old->name);
    for (auto const& link : schema_.links())
        if (link.isJoinTable && link.isWrittenHere && unchanged(link)) keptNames_.push_back(link.table);
}

bool SQLiteMigration::isKept(SQLiteSchema::Search const& search) const {
    return std::ranges::find(keptSearches_, search.name) != keptSearches_.end();
}

void SQLiteMigration::makeSearches() {
    SQLiteSearchTables tables(connection_);
    for (auto const& search : schema_.searches()) {
        if (isKept(search)) continue;
        progress_.begin(StoreProgress::Stage::MakingIndex, search.table->root->name(), countIn(search.table));
        tables.make(search);
        tables.fill(search);
    }
    tables.writeVersion(schema_);
}

bool SQLiteMigration::isKept(std::string const& table) const { return std::ranges::find(keptNames_, table) != keptNames_.end(); }

/// Afterwards the new tables have all records with what stands in their columns.
void SQLiteMigration::moveOldTables() {
    for (auto const& table : oldSchema_.tables())
        if (!isKept(table.name)) moveAway(table.name);
    for (auto const& link : oldSchema_.links())
        if (link.isJoinTable && link.isWrittenHere && !isKept(link.table)) moveAway(link.table);
    for (auto const& table : schema_.tables())
        if (!isKept(table.name)) connection_.execute(SQLiteSchema::createTable(table));
    for (auto const& link : schema_.links())
        if (link.isJoinTable && link.isWrittenHere && !isKept(link.table))
            connection_.execute(SQLiteSchema::createJoinTable(link, schema_.inverseOf(link)));

    for (auto const& [table, old] : kept_) addColumns(*table, *old);
    for (auto const& table : schema_.tables())
        if (!isKept(table.name)) fill(table);
}

void SQLiteMigration::writeModel(std::vector<std::int64_t> const& numbers) {
    writeStoredModel(connection_, space_, numbers);
    connection_.execute("UPDATE tessarin_store SET value = value + 1 WHERE key = 'modelGeneration'");
    StoreMetadata metadata;
    metadata.read(connection_);
    auto content = metadata.get();
    content.set("NSStoreModelVersionHashes", modelHashes(space_.model()));
    metadata.set(std::move(content));
    metadata.write(connection_);
}

/// All but those that are wanted again, as they are, on tables that stay.
void SQLiteMigration::dropIndexes() {
    std::vector<std::string> names;
    {
        auto const query = connection_.use("SELECT name, sql FROM sqlite_schema WHERE type = 'index' AND sql IS NOT NULL");
        while (query->step()) {
            auto const same = std::ranges::find(schema_.indexes(), query->text(1), &SQLiteSchema::Index::statement);
            if (same != schema_.indexes().end() && isKept(same->table))
                keptIndexes_.insert(same->statement);
            else
                names.emplace_back(query->text(0));
        }
    }
    for (auto const& name : names) connection_.execute("DROP INDEX " + quoted(name));
}

void SQLiteMigration::moveAway(std::string const& table) {
    auto const place = fmt::format("tessarin_old_{}", moved_.size());
    connection_.execute(fmt::format("ALTER TABLE {} RENAME TO {}", table, place));
    moved_.emplace(table, place);
}

void SQLiteMigration::addColumns(Table const& table, Table const& old) {
    progress_.begin(StoreProgress::Stage::Migrating, table.root->name(), countIn(&table));
    auto const isOld = [&](std::string const& name) {
        return std::ranges::find(old.columns, name, &SQLiteSchema::Column::name) != old.columns.end();
    };
    for (auto const& column : table.columns)
        if (!isOld(column.name)) connection_.execute(SQLiteSchema::addColumn(table, column));
    for (auto const* entity : entitiesOf(table)) {
        if (!mapping_.sourceOf(*entity)) continue;
        std::vector<std::string> settings;
        for (auto const& [column, expression] : expressionsFor(*entity))
            if (!isOld(column) && expression != "NULL") settings.push_back(column + " = " + expression);
        if (settings.empty()) continue;
        connection_.execute(
            fmt::format("UPDATE {} SET {}{}", table.name, fmt::join(settings, ", "), whereEntity(schema_, *entity)));
    }
}

void SQLiteMigration::fill(Table const& table) {
    progress_.begin(StoreProgress::Stage::Migrating, table.root->name(), countIn(&table));
    for (auto const* entity : entitiesOf(table)) {
        auto const* source = mapping_.sourceOf(*entity);
        if (!source) continue;
        auto const& old = oldSchema_.tableOf(*source);
        std::string columns = "id, version", values = columns;
        if (table.hasEntityColumn) {
            columns += ", entity";
            values += fmt::format(", {}", schema_.numberOf(*entity));
        }
        for (auto const& [column, expression] : expressionsFor(*entity)) {
            columns += ", " + column;
            values += ", " + expression;
        }
        connection_.execute(fmt::format("INSERT INTO {} ({}) SELECT {} FROM {}{}", table.name, columns, values,
                                        currentName(old.name), whereEntity(oldSchema_, *source)));
    }
}

void SQLiteMigration::forgetLinksToNobody() {
    for (auto const& table : schema_.tables())
        for (auto const& column : table.columns) {
            auto const* toOne = column.property ? column.property->asRelationship() : nullptr;
            if (!toOne) continue;
            connection_.execute(fmt::format("UPDATE {0} SET {1} = NULL WHERE {1} IS NOT NULL AND {1} NOT IN (SELECT id FROM {2})",
                                            table.name, column.name, schema_.tableOf(*toOne->destinationEntity()).name));
        }
    for (auto const& link : schema_.links())
        if (link.isJoinTable && link.isWrittenHere) forgetLinksToNobody(link.table, *link.relationship);
}

void SQLiteMigration::forgetLinksToNobody(std::string const& table, Relationship const& relationship) {
    connection_.execute(fmt::format("DELETE FROM {} WHERE owner NOT IN (SELECT id FROM {}) OR member NOT IN (SELECT id FROM {})",
                                    table, schema_.tableOf(*relationship.entity()).name,
                                    schema_.tableOf(*relationship.destinationEntity()).name));
}

void SQLiteMigration::makeIndexes() {
    for (auto const& index : schema_.indexes()) {
        if (keptIndexes_.contains(index.statement)) continue;
        auto const* table = tableNamed(index.table);
        progress_.begin(StoreProgress::Stage::MakingIndex, table ? table->root->name() : std::string(), countIn(table));
        try {
            connection_.execute(index.statement);
        } catch (SQLite::Failure const&) {
            if (!index.isUnique) throw;
            std::string rows = fmt::format("SELECT id, {} AS value FROM {}",
                                           index.columns.size() == 1 ? "quote(" + index.columns[0] + ")" : "NULL", index.table);
            rows += fmt::format(" WHERE ({0}) IN (SELECT {0} FROM {1} WHERE {2}", fmt::join(index.columns, ", "), index.table,
                                index.condition);
            rows += fmt::format(" GROUP BY {} HAVING count(*) > 1) AND {}", fmt::join(index.columns, ", "), index.condition);
            requireNone(index.entity->name(), index.properties.front()->name(),
                        "it must be unique now, and some records share a value", rows);
            throw;
        }
    }
}

} // namespace Tessarin
