#include "Tessarin/platform/objectgraph/persistence/SQLiteMigrationPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/SQLiteStoredModelPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/SQLiteVerdictPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/StoreMetadataPrivate.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace Tessarin {

std::vector<std::int64_t> SQLiteMigration::run() {
    dropIndexes();
    std::vector<std::pair<Table const*, Table const*>> kept;
    std::vector<std::string> keptNames;
    for (auto const& table : schema_.tables())
        if (auto const* old = unchanged(table)) kept.emplace_back(&table, old), keptNames.push_back(old->name);
    for (auto const& link : schema_.links())
        if (auto const* old = unchanged(link)) keptNames.push_back(old->table);
    auto const isKept = [&](std::string const& name) { return std::ranges::find(keptNames, name) != keptNames.end(); };

    for (auto const& table : oldSchema_.tables())
        if (!isKept(table.name)) moveAway(table.name);
    for (auto const& link : oldSchema_.links())
        if (link.isJoinTable && link.isWrittenHere && !isKept(link.table)) moveAway(link.table);
    for (auto const& table : schema_.tables())
        if (!isKept(table.name)) connection_.execute(SQLiteSchema::createTable(table));
    for (auto const& link : schema_.links())
        if (link.isJoinTable && link.isWrittenHere && !isKept(link.table))
            connection_.execute(SQLiteSchema::createJoinTable(link, schema_.inverseOf(link)));

    for (auto const& [table, old] : kept) addColumns(*table, *old);
    for (auto const& table : schema_.tables())
        if (!isKept(table.name)) fill(table);
    for (auto const& link : schema_.links())
        if (link.isJoinTable && link.isWrittenHere && !isKept(link.table)) fill(link);
    for (auto const& entity : space_.model().entities())
        for (auto const* relationship : entity->relationships())
            if (relationship->entity() == entity.get() && !relationship->isToMany() && !relationship->isTransient())
                fillFromMembers(*relationship);
    for (auto const& [name, place] : moved_) connection_.execute("DROP TABLE " + place);
    if (mapping_.dropsEntities()) forgetLinksToNobody();
    makeIndexes();

    std::vector<std::int64_t> numbers;
    for (auto const& entity : space_.model().entities()) numbers.push_back(schema_.numberOf(*entity));
    writeStoredModel(connection_, space_, numbers);
    connection_.execute("UPDATE tessarin_store SET value = value + 1 WHERE key = 'modelGeneration'");
    StoreMetadata metadata;
    metadata.read(connection_);
    auto content = metadata.get();
    content.set("NSStoreModelVersionHashes", modelHashes(space_.model()));
    metadata.set(std::move(content));
    metadata.write(connection_);
    return numbers;
}

void SQLiteMigration::dropIndexes() {
    std::vector<std::string> names;
    {
        auto const query = connection_.use("SELECT name FROM sqlite_schema WHERE type = 'index' AND sql IS NOT NULL");
        while (query->step()) names.emplace_back(query->text(0));
    }
    for (auto const& name : names) connection_.execute("DROP INDEX " + quoted(name));
}

void SQLiteMigration::moveAway(std::string const& table) {
    auto const place = fmt::format("tessarin_old_{}", moved_.size());
    connection_.execute(fmt::format("ALTER TABLE {} RENAME TO {}", table, place));
    moved_.emplace(table, place);
}

void SQLiteMigration::addColumns(Table const& table, Table const& old) {
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
        auto const condition =
            table.hasEntityColumn ? fmt::format(" WHERE entity = {}", schema_.numberOf(*entity)) : std::string();
        connection_.execute(fmt::format("UPDATE {} SET {}{}", table.name, fmt::join(settings, ", "), condition));
    }
}

void SQLiteMigration::fill(Table const& table) {
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
        auto const condition =
            old.hasEntityColumn ? fmt::format(" WHERE entity = {}", oldSchema_.numberOf(*source)) : std::string();
        connection_.execute(fmt::format("INSERT INTO {} ({}) SELECT {} FROM {}{}", table.name, columns, values,
                                        currentName(old.name), condition));
    }
}

void SQLiteMigration::fill(Link const& link) {
    std::vector<Pairs> sources;
    for (auto const* old : mapping_.sourcesOf(*link.relationship)) sources.push_back(pairsOf(*old));
    auto const* inverse = schema_.inverseOf(link);
    if (sources.empty() && inverse)
        for (auto const* old : mapping_.sourcesOf(*inverse->relationship)) sources.push_back(swapped(pairsOf(*old)));
    for (auto const& pairs : sources) {
        std::string columns = "owner, member", values = pairs.owner + ", " + pairs.member;
        if (!link.position.empty()) columns += ", position", values += ", " + pairs.position;
        if (inverse && !inverse->position.empty()) columns += ", owner_position", values += ", " + pairs.ownerPosition;
        connection_.execute(
            fmt::format("INSERT OR IGNORE INTO {} ({}) SELECT {} FROM {} WHERE {} IS NOT NULL AND {} IS NOT NULL ORDER BY 1, 2",
                        link.table, columns, values, pairs.table, pairs.owner, pairs.member));
    }
}

/// A to-one that is new, at the other end of a to-many that is not: its values are the owners.
void SQLiteMigration::fillFromMembers(NSRelationshipDescription const& toOne) {
    auto const* many =
        toOne.isReciprocal() && toOne.inverseRelationship()->isToMany() ? schema_.linkOf(*toOne.inverseRelationship()) : nullptr;
    if (!many || !mapping_.sourcesOf(toOne).empty()) return;
    for (auto const* old : mapping_.sourcesOf(*many->relationship)) {
        auto const pairs = pairsOf(*old);
        if (connection_
                .use(fmt::format("SELECT 1 FROM {0} WHERE {1} IS NOT NULL GROUP BY {1} HAVING count(*) > 1", pairs.table,
                                 pairs.member))
                ->step())
            throw Refused::noRule(toOne.entity()->name(), toOne.name(), "some records would have several");
        auto const value = [&](std::string const& column) {
            return fmt::format("(SELECT {} FROM {} WHERE {} = {}.id)", column, pairs.table, pairs.member, many->table);
        };
        auto settings = fmt::format("{} = {}", many->owner, value(pairs.owner));
        if (!many->position.empty() && pairs.position != "NULL")
            settings += fmt::format(", {} = {}", many->position, value(pairs.position));
        connection_.execute(
            fmt::format("UPDATE {} SET {} WHERE id IN (SELECT {} FROM {})", many->table, settings, pairs.member, pairs.table));
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
    for (auto const& link : schema_.links()) {
        if (!link.isJoinTable || !link.isWrittenHere) continue;
        connection_.execute(fmt::format(
            "DELETE FROM {} WHERE owner NOT IN (SELECT id FROM {}) OR member NOT IN (SELECT id FROM {})", link.table,
            schema_.tableOf(*link.relationship->entity()).name, schema_.tableOf(*link.relationship->destinationEntity()).name));
    }
}

void SQLiteMigration::makeIndexes() {
    for (auto const& index : schema_.indexes()) {
        try {
            connection_.execute(index.statement);
        } catch (SQLite::Failure const&) {
            if (!index.isUnique) throw;
            throw Refused::noRule(index.entity->name(), index.properties.front()->name(),
                                  "it must be unique now, and some records share a value");
        }
    }
}

} // namespace Tessarin
