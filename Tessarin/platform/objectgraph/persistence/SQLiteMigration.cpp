#include "Tessarin/platform/objectgraph/persistence/SQLiteMigrationPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/ModelMappingPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/RowBuilder.h"
#include "Tessarin/platform/objectgraph/persistence/SQLiteSchemaPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/SQLiteStoredModelPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/SQLiteVerdictPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/StoreMetadataPrivate.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <map>

namespace Tessarin {
namespace {

/// Tables that are the same in both models stay, with columns added where that is all; the others are made anew under the
/// new names and filled from the old ones, which were moved out of the way.
class Migration {
public:
    Migration(SQLite::Connection& connection, StoredModel const& stored, RowSpace& space)
        : connection_(connection), mapping_(*stored.model, space.model()), oldSpace_(stored.model), oldSchema_(oldSpace_, stored.entityNumbers),
          space_(space), schema_(space, numbersAfter(stored)) {}

    std::vector<std::int64_t> run();

private:
    using Link = SQLiteSchema::Link;
    using Table = SQLiteSchema::Table;
    /// The columns that a new record gets, and the expression for each over the old record's table.
    using Expressions = std::map<std::string, std::string>;
    /// Links as they stand in the old tables.
    struct Pairs {
        std::string table, owner, member, position = "NULL", ownerPosition = "NULL";
    };

    std::vector<std::int64_t> numbersAfter(StoredModel const& stored) const;
    std::vector<NSEntityDescription const*> entitiesOf(Table const& table) const;
    Expressions expressionsFor(NSEntityDescription const& entity) const;
    std::string expressionFor(NSEntityDescription const& entity, NSPropertyDescription const& property, NSPropertyDescription const* source) const;
    std::string literalOfDefault(NSEntityDescription const& entity, NSAttributeDescription const& attribute) const;
    Table const* unchanged(Table const& table) const;
    Link const* unchanged(Link const& link) const;

    void dropIndexes();
    void moveAway(std::string const& table);
    void addColumns(Table const& table, Table const& old);
    void fill(Table const& table);
    void fill(Link const& link);
    void fillFromMembers(NSRelationshipDescription const& toOne);
    void makeIndexes();
    void forgetLinksToNobody();
    std::string const& currentName(std::string const& oldTable) const;
    Pairs pairsOf(NSRelationshipDescription const& old) const;
    Pairs swapped(Pairs pairs) const;

    SQLite::Connection& connection_;
    ModelMapping const mapping_;
    RowSpace oldSpace_;
    SQLiteSchema const oldSchema_;
    RowSpace& space_;
    SQLiteSchema const schema_;
    std::map<std::string, std::string> moved_; // old table → where it is now
};

std::vector<std::int64_t> Migration::numbersAfter(StoredModel const& stored) const {
    auto next = stored.entityNumbers.empty() ? 0 : std::ranges::max(stored.entityNumbers);
    std::vector<std::int64_t> numbers;
    for (auto const& entity : space_.model().entities()) {
        auto const* source = mapping_.sourceOf(*entity);
        numbers.push_back(source ? stored.entityNumbers[source->index()] : ++next);
    }
    return numbers;
}

std::vector<std::int64_t> Migration::run() {
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
        if (link.isJoinTable && link.isWrittenHere && !isKept(link.table)) connection_.execute(SQLiteSchema::createJoinTable(link, schema_.inverseOf(link)));

    for (auto const& [table, old] : kept) addColumns(*table, *old);
    for (auto const& table : schema_.tables())
        if (!isKept(table.name)) fill(table);
    for (auto const& link : schema_.links())
        if (link.isJoinTable && link.isWrittenHere && !isKept(link.table)) fill(link);
    for (auto const& entity : space_.model().entities())
        for (auto const* relationship : entity->relationships())
            if (relationship->entity() == entity.get() && !relationship->isToMany() && !relationship->isTransient()) fillFromMembers(*relationship);
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

std::vector<NSEntityDescription const*> Migration::entitiesOf(Table const& table) const {
    std::vector<NSEntityDescription const*> found;
    for (auto const& entity : table.root->managedObjectModel()->entities())
        if (entity->rootEntity() == table.root) found.push_back(entity.get());
    return found;
}

std::string Migration::literalOfDefault(NSEntityDescription const& entity, NSAttributeDescription const& attribute) const {
    RowBuilder builder;
    auto const& layout = space_.layoutOf(entity);
    auto const cell = static_cast<std::size_t>(layout.cellOf(attribute.index()));
    builder.begin(layout, 1, 1);
    builder.setValue(cell, attribute.defaultValue());
    auto const row = builder.finish();
    if (!row->isPresent(cell)) return "NULL";
    switch (layout.cells()[cell].type) {
    case CellType::Integer:
    case CellType::Reference: return std::to_string(row->integer(cell));
    case CellType::Real: return fmt::format("{:.17e}", row->real(cell));
    case CellType::Text:
    case CellType::Bytes: break;
    }
    std::string hexadecimal;
    for (auto const byte : row->bytes(cell)) hexadecimal += fmt::format("{:02x}", std::to_integer<int>(byte));
    return layout.cells()[cell].type == CellType::Text ? "CAST(X'" + hexadecimal + "' AS TEXT)" : "X'" + hexadecimal + "'";
}

std::string Migration::expressionFor(NSEntityDescription const& entity, NSPropertyDescription const& property, NSPropertyDescription const* source) const {
    auto old = source ? oldSchema_.columnOf(*source) : std::string();
    auto const* attribute = property.asAttribute();
    if (!attribute) return old.empty() || !source->asRelationship() ? "NULL" : old;
    auto const byDefault = literalOfDefault(entity, *attribute);
    if (old.empty()) return byDefault;
    bool const isSameType = source->asAttribute()->attributeType() == attribute->attributeType();
    if (!isSameType && attribute->attributeType() == NSAttributeType::Decimal) old = fmt::format("CAST({} AS TEXT)", old);
    return attribute->isOptional() || byDefault == "NULL" ? old : fmt::format("coalesce({}, {})", old, byDefault);
}

Migration::Expressions Migration::expressionsFor(NSEntityDescription const& entity) const {
    Expressions expressions;
    for (auto const& cell : space_.layoutOf(entity).cells()) {
        auto const* source = mapping_.sourceOf(entity, *cell.property);
        expressions[schema_.columnOf(*cell.property)] = expressionFor(entity, *cell.property, source);
        // The position in the ordered relationship that this to-one is the inverse of.
        auto const* toOne = cell.property->asRelationship();
        auto const* many = toOne && toOne->isReciprocal() ? schema_.linkOf(*toOne->inverseRelationship()) : nullptr;
        auto const* oldToOne = source ? source->asRelationship() : nullptr;
        auto const* oldMany = oldToOne && oldToOne->isReciprocal() ? oldSchema_.linkOf(*oldToOne->inverseRelationship()) : nullptr;
        if (!many || many->position.empty()) continue;
        expressions[many->position] = oldMany && !oldMany->isJoinTable && !oldMany->position.empty() ? oldMany->position : "NULL";
    }
    return expressions;
}

/// The old table when the new one is the same, but perhaps for further columns.
Migration::Table const* Migration::unchanged(Table const& table) const {
    auto const found = std::ranges::find(oldSchema_.tables(), table.name, &Table::name);
    if (found == oldSchema_.tables().end() || found->hasEntityColumn != table.hasEntityColumn) return nullptr;
    std::size_t sources = 0;
    for (auto const* entity : entitiesOf(table)) {
        auto const* source = mapping_.sourceOf(*entity);
        if (!source) continue;
        if (source->rootEntity() != found->root) return nullptr;
        ++sources;
        auto const expressions = expressionsFor(*entity);
        for (auto const& column : found->columns)
            if (auto const expression = expressions.find(column.name); expression != expressions.end() && expression->second != column.name) return nullptr;
    }
    if (sources != entitiesOf(*found).size()) return nullptr;
    for (auto const& column : found->columns) {
        auto const same = std::ranges::find(table.columns, column.name, &SQLiteSchema::Column::name);
        if (same == table.columns.end() || same->type != column.type) return nullptr;
    }
    return &*found;
}

Migration::Link const* Migration::unchanged(Link const& link) const {
    if (!link.isJoinTable || !link.isWrittenHere) return nullptr;
    auto const sources = mapping_.sourcesOf(*link.relationship);
    auto const* old = sources.size() == 1 ? oldSchema_.linkOf(*sources.front()) : nullptr;
    if (!old || !old->isJoinTable || !old->isWrittenHere || old->table != link.table) return nullptr;
    auto const statement = SQLiteSchema::createJoinTable(*old, oldSchema_.inverseOf(*old));
    return statement == SQLiteSchema::createJoinTable(link, schema_.inverseOf(link)) ? old : nullptr;
}

void Migration::dropIndexes() {
    std::vector<std::string> names;
    {
        auto const query = connection_.use("SELECT name FROM sqlite_schema WHERE type = 'index' AND sql IS NOT NULL");
        while (query->step()) names.emplace_back(query->text(0));
    }
    for (auto const& name : names) connection_.execute("DROP INDEX " + quoted(name));
}

void Migration::moveAway(std::string const& table) {
    auto const place = fmt::format("tessarin_old_{}", moved_.size());
    connection_.execute(fmt::format("ALTER TABLE {} RENAME TO {}", table, place));
    moved_.emplace(table, place);
}

std::string const& Migration::currentName(std::string const& oldTable) const {
    auto const found = moved_.find(oldTable);
    return found == moved_.end() ? oldTable : found->second;
}

void Migration::addColumns(Table const& table, Table const& old) {
    auto const isOld = [&](std::string const& name) { return std::ranges::find(old.columns, name, &SQLiteSchema::Column::name) != old.columns.end(); };
    for (auto const& column : table.columns)
        if (!isOld(column.name)) connection_.execute(SQLiteSchema::addColumn(table, column));
    for (auto const* entity : entitiesOf(table)) {
        if (!mapping_.sourceOf(*entity)) continue;
        std::vector<std::string> settings;
        for (auto const& [column, expression] : expressionsFor(*entity))
            if (!isOld(column) && expression != "NULL") settings.push_back(column + " = " + expression);
        if (settings.empty()) continue;
        auto const condition = table.hasEntityColumn ? fmt::format(" WHERE entity = {}", schema_.numberOf(*entity)) : std::string();
        connection_.execute(fmt::format("UPDATE {} SET {}{}", table.name, fmt::join(settings, ", "), condition));
    }
}

void Migration::fill(Table const& table) {
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
        auto const condition = old.hasEntityColumn ? fmt::format(" WHERE entity = {}", oldSchema_.numberOf(*source)) : std::string();
        connection_.execute(fmt::format("INSERT INTO {} ({}) SELECT {} FROM {}{}", table.name, columns, values, currentName(old.name), condition));
    }
}

Migration::Pairs Migration::pairsOf(NSRelationshipDescription const& old) const {
    auto const* link = oldSchema_.linkOf(old);
    if (!link) return {.table = currentName(oldSchema_.tableOf(*old.entity()).name), .owner = "id", .member = oldSchema_.columnOf(old)};
    Pairs pairs{.table = currentName(link->table), .owner = link->owner, .member = link->member};
    if (!link->position.empty()) pairs.position = link->position;
    if (auto const* inverse = link->isJoinTable ? oldSchema_.inverseOf(*link) : nullptr; inverse && !inverse->position.empty())
        pairs.ownerPosition = inverse->position;
    return pairs;
}

Migration::Pairs Migration::swapped(Pairs pairs) const {
    std::swap(pairs.owner, pairs.member);
    std::swap(pairs.position, pairs.ownerPosition);
    return pairs;
}

void Migration::fill(Link const& link) {
    std::vector<Pairs> sources;
    for (auto const* old : mapping_.sourcesOf(*link.relationship)) sources.push_back(pairsOf(*old));
    auto const* inverse = schema_.inverseOf(link);
    if (sources.empty() && inverse)
        for (auto const* old : mapping_.sourcesOf(*inverse->relationship)) sources.push_back(swapped(pairsOf(*old)));
    for (auto const& pairs : sources) {
        std::string columns = "owner, member", values = pairs.owner + ", " + pairs.member;
        if (!link.position.empty()) columns += ", position", values += ", " + pairs.position;
        if (inverse && !inverse->position.empty()) columns += ", owner_position", values += ", " + pairs.ownerPosition;
        connection_.execute(fmt::format("INSERT OR IGNORE INTO {} ({}) SELECT {} FROM {} WHERE {} IS NOT NULL AND {} IS NOT NULL ORDER BY 1, 2", link.table, columns,
                                        values, pairs.table, pairs.owner, pairs.member));
    }
}

/// A to-one that is new, at the other end of a to-many that is not: its values are the owners.
void Migration::fillFromMembers(NSRelationshipDescription const& toOne) {
    auto const* many = toOne.isReciprocal() && toOne.inverseRelationship()->isToMany() ? schema_.linkOf(*toOne.inverseRelationship()) : nullptr;
    if (!many || !mapping_.sourcesOf(toOne).empty()) return;
    for (auto const* old : mapping_.sourcesOf(*many->relationship)) {
        auto const pairs = pairsOf(*old);
        if (connection_.use(fmt::format("SELECT 1 FROM {0} WHERE {1} IS NOT NULL GROUP BY {1} HAVING count(*) > 1", pairs.table, pairs.member))->step())
            throw Refused::noRule(toOne.entity()->name(), toOne.name(), "some records would have several");
        auto const value = [&](std::string const& column) {
            return fmt::format("(SELECT {} FROM {} WHERE {} = {}.id)", column, pairs.table, pairs.member, many->table);
        };
        auto settings = fmt::format("{} = {}", many->owner, value(pairs.owner));
        if (!many->position.empty() && pairs.position != "NULL") settings += fmt::format(", {} = {}", many->position, value(pairs.position));
        connection_.execute(fmt::format("UPDATE {} SET {} WHERE id IN (SELECT {} FROM {})", many->table, settings, pairs.member, pairs.table));
    }
}

void Migration::forgetLinksToNobody() {
    for (auto const& table : schema_.tables())
        for (auto const& column : table.columns) {
            auto const* toOne = column.property ? column.property->asRelationship() : nullptr;
            if (!toOne) continue;
            connection_.execute(fmt::format("UPDATE {0} SET {1} = NULL WHERE {1} IS NOT NULL AND {1} NOT IN (SELECT id FROM {2})", table.name, column.name,
                                            schema_.tableOf(*toOne->destinationEntity()).name));
        }
    for (auto const& link : schema_.links()) {
        if (!link.isJoinTable || !link.isWrittenHere) continue;
        connection_.execute(fmt::format("DELETE FROM {} WHERE owner NOT IN (SELECT id FROM {}) OR member NOT IN (SELECT id FROM {})", link.table,
                                        schema_.tableOf(*link.relationship->entity()).name, schema_.tableOf(*link.relationship->destinationEntity()).name));
    }
}

void Migration::makeIndexes() {
    for (auto const& index : schema_.indexes()) {
        try {
            connection_.execute(index.statement);
        } catch (SQLite::Failure const&) {
            if (!index.isUnique) throw;
            throw Refused::noRule(index.entity->name(), index.properties.front()->name(), "it must be unique now, and some records share a value");
        }
    }
}

} // namespace

std::vector<std::int64_t> migrate(SQLite::Connection& connection, StoredModel const& stored, RowSpace& space) {
    return Migration(connection, stored, space).run();
}

} // namespace Tessarin
