// What becomes of each table, column and link: looked up, nothing is written.
#include "Tessarin/platform/objectgraph/persistence/migration/SQLiteMigrationPrivate.h"

#include "Tessarin/platform/foundation/values/Hexadecimal.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowBuilderPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ValueConversionPrivate.h"

#include <algorithm>
#include <fmt/format.h>

namespace Tessarin {

std::string whereEntity(SQLiteSchema const& schema, NSEntityDescription const& entity) {
    return schema.tableOf(entity).hasEntityColumn ? fmt::format(" WHERE entity = {}", schema.numberOf(entity)) : " WHERE true";
}

std::vector<std::int64_t> recordCounts(SQLite::Connection& connection, StoredModel const& stored) {
    RowSpace space(stored.model);
    SQLiteSchema const schema(space, stored.entityNumbers);
    std::vector<std::int64_t> counts;
    for (auto const& entity : stored.model->entities()) {
        auto const& table = schema.tableOf(*entity); // without a condition SQLite counts pages at a time
        auto const condition = table.hasEntityColumn ? whereEntity(schema, *entity) : std::string();
        counts.push_back(connection.integer(fmt::format("SELECT count(*) FROM {}{}", table.name, condition)));
    }
    return counts;
}

std::vector<std::int64_t> SQLiteMigration::numbersAfter(StoredModel const& stored) const {
    auto next = stored.entityNumbers.empty() ? 0 : std::ranges::max(stored.entityNumbers);
    std::vector<std::int64_t> numbers;
    for (auto const& entity : space_.model().entities()) {
        auto const* source = mapping_.sourceOf(*entity);
        numbers.push_back(source ? stored.entityNumbers[source->index()] : ++next);
    }
    return numbers;
}

std::vector<NSEntityDescription const*> SQLiteMigration::entitiesOf(Table const& table) const {
    std::vector<NSEntityDescription const*> found;
    for (auto const& entity : table.root->managedObjectModel()->entities())
        if (entity->rootEntity() == table.root) found.push_back(entity.get());
    return found;
}

std::string SQLiteMigration::literalOfDefault(NSEntityDescription const& entity, NSAttributeDescription const& attribute) const {
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
    auto const hexadecimal = hexadecimalFromBytes(row->bytes(cell));
    return layout.cells()[cell].type == CellType::Text ? "CAST(X'" + hexadecimal + "' AS TEXT)" : "X'" + hexadecimal + "'";
}

std::string SQLiteMigration::expressionFor(NSEntityDescription const& entity, NSPropertyDescription const& property,
                                           NSPropertyDescription const* source) const {
    auto old = source ? oldSchema_.columnOf(*source) : std::string();
    auto const* attribute = property.asAttribute();
    if (!attribute) return old.empty() || !source->asRelationship() ? "NULL" : old;
    auto const byDefault = literalOfDefault(entity, *attribute);
    auto const* was = source ? source->asAttribute() : nullptr;
    if (old.empty() || !was) return byDefault;
    auto const before = was->attributeType(), now = attribute->attributeType();
    if (conversionBetween(before, now) == ValueConversion::Never) return byDefault; // there are no values
    CellType oldCell{}, cell{};
    if (cellTypeOf(before, oldCell) && cellTypeOf(now, cell) && oldCell != cell)
        old = fmt::format("tessarin_converted({}, {}, {})", old, static_cast<int>(before), static_cast<int>(now));
    return attribute->isOptional() || byDefault == "NULL" ? old : fmt::format("coalesce({}, {})", old, byDefault);
}

SQLiteMigration::Expressions SQLiteMigration::expressionsFor(NSEntityDescription const& entity) const {
    Expressions expressions;
    for (auto const& cell : space_.layoutOf(entity).cells()) {
        auto const* source = mapping_.sourceOf(entity, *cell.property);
        expressions[schema_.columnOf(*cell.property)] = expressionFor(entity, *cell.property, source);
        // The position in the ordered relationship that this to-one is the inverse of.
        auto const* toOne = cell.property->asRelationship();
        auto const* many = toOne && toOne->isReciprocal() ? schema_.linkOf(*toOne->inverseRelationship()) : nullptr;
        auto const* oldToOne = source ? source->asRelationship() : nullptr;
        auto const* oldMany =
            oldToOne && oldToOne->isReciprocal() ? oldSchema_.linkOf(*oldToOne->inverseRelationship()) : nullptr;
        if (!many || many->position.empty()) continue;
        expressions[many->position] = oldMany && !oldMany->isJoinTable && !oldMany->position.empty() ? oldMany->position : "NULL";
    }
    return expressions;
}

/// The old table when the new one is the same, but perhaps for further columns.
SQLiteMigration::Table const* SQLiteMigration::unchanged(Table const& table) const {
    auto const found = std::ranges::find(oldSchema_.tables(), table.name, &Table::name);
    if (found == oldSchema_.tables().end() || found->hasEntityColumn != table.hasEntityColumn) return nullptr;
    std::size_t sources = 0;
    for (auto const* entity : entitiesOf(table)) {
        auto const* source = mapping_.sourceOf(*entity);
        if (!source) continue;
        if (source->rootEntity() != found->root) return nullptr;
        ++sources;
        auto const expressions = expressionsFor(*entity);
        for (auto const& column : found->columns) {
            auto const expression = expressions.find(column.name);
            // What the record had and has no more must not come back with a later model.
            if (expression == expressions.end() && column.property && source->isKindOf(column.property->entity())) return nullptr;
            if (expression != expressions.end() && expression->second != column.name) return nullptr;
        }
    }
    if (sources != entitiesOf(*found).size()) return nullptr;
    for (auto const& column : found->columns) {
        auto const same = std::ranges::find(table.columns, column.name, &SQLiteSchema::Column::name);
        if (same == table.columns.end() || same->type != column.type) return nullptr;
    }
    return &*found;
}

SQLiteMigration::Link const* SQLiteMigration::unchanged(Link const& link) const {
    auto const& relationship = *link.relationship;
    auto const* inverse = storedInverseOf(relationship);
    auto const sources = mapping_.sourcesOf(relationship);
    auto const* old = sources.size() == 1 ? oldSchema_.linkOf(*sources.front()) : nullptr;
    if (!old || !old->isJoinTable || !old->isWrittenHere || old->table != link.table) return nullptr;
    if (!mapping_.takesAllOf(*sources.front(), relationship)) return nullptr;
    if (inverse == &relationship ? storedInverseOf(*sources.front()) != sources.front()
                                 : inverse && !includes(relationship, *inverse))
        return nullptr;
    auto const statement = SQLiteSchema::createJoinTable(*old, oldSchema_.inverseOf(*old));
    return statement == SQLiteSchema::createJoinTable(link, schema_.inverseOf(link)) ? old : nullptr;
}

std::string const& SQLiteMigration::currentName(std::string const& oldTable) const {
    auto const found = moved_.find(oldTable);
    return found == moved_.end() ? oldTable : found->second;
}

} // namespace Tessarin
