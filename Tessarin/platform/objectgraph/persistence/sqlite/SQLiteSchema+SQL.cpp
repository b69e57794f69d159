// The schema as SQL statements: tables, join tables, indexes.
#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSchemaPrivate.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace Tessarin {
namespace {

char const* typeName(CellType type) {
    switch (type) {
    case CellType::Real: return "REAL";
    case CellType::Text: return "TEXT";
    case CellType::Bytes: return "BLOB";
    case CellType::Integer:
    case CellType::Reference: break;
    }
    return "INTEGER";
}

std::string plain(std::string_view name) {
    std::string text(name);
    std::erase(text, '"');
    return text;
}

} // namespace

std::string SQLiteSchema::createTable(Table const& table) {
    auto sql = fmt::format("CREATE TABLE {} (id INTEGER PRIMARY KEY", table.name);
    if (table.hasEntityColumn) sql += ", entity INTEGER NOT NULL";
    sql += ", version INTEGER NOT NULL";
    for (auto const& column : table.columns) sql += fmt::format(", {} {}", column.name, typeName(column.type));
    return sql + ")";
}

std::string SQLiteSchema::addColumn(Table const& table, Column const& column) {
    return fmt::format("ALTER TABLE {} ADD COLUMN {} {}", table.name, column.name, typeName(column.type));
}

std::string SQLiteSchema::createJoinTable(Link const& link, Link const* inverse) {
    auto sql = fmt::format("CREATE TABLE {} (owner INTEGER NOT NULL, member INTEGER NOT NULL", link.table);
    if (!link.position.empty()) sql += ", position INTEGER";
    if (inverse && !inverse->position.empty()) sql += ", owner_position INTEGER";
    return sql + ", PRIMARY KEY (owner, member)) WITHOUT ROWID";
}

void SQLiteSchema::addIndex(Names& names, Index index, std::string_view label, std::string const& columns,
                            std::string const& condition) {
    index.name = quoted(names.take((plain(index.table) += '.').append(label)));
    index.statement = index.isUnique ? "CREATE UNIQUE INDEX " : "CREATE INDEX "; // each opening makes them: no formats
    (((index.statement += index.name) += " ON ").append(index.table) += " (").append(columns) += ')';
    if (!condition.empty()) index.statement += " WHERE " + (index.condition = condition);
    indexes_.push_back(std::move(index));
}

void SQLiteSchema::addIndexes(Names& names) {
    std::unordered_set<std::string> seen; // table and columns; an index that exists under another name is not made again
    auto const isNew = [&](std::string const& table, std::string const& columns) { return seen.insert(table + columns).second; };
    auto const columnsOf = [&](auto const& properties) {
        std::vector<std::string> columns;
        for (auto const* property : properties)
            if (auto const& column = columnOf(*property); !column.empty()) columns.push_back(column);
        return columns;
    };

    for (auto const& entity : space_.model().entities())
        for (auto const& constraint : entity->uniquenessConstraints()) {
            Index index{.table = tableOf(*entity).name, .isUnique = true, .entity = entity.get(), .properties = constraint};
            index.columns = columnsOf(constraint);
            if (index.columns.empty() || index.columns.size() != constraint.size()) continue;
            auto const columns = fmt::format("{}", fmt::join(index.columns, ", "));
            // Below the root, a constraint binds that entity's own tree only.
            auto const condition =
                entity->superentity() ? fmt::format("entity IN ({})", numbersInTreeOf(*entity)) : std::string();
            if (!isNew(index.table, columns + condition)) continue;
            std::string label = "unique";
            for (auto const& column : index.columns) label += "." + plain(column);
            addIndex(names, std::move(index), label, columns, condition);
        }

    for (auto const& entity : space_.model().entities()) {
        auto const& table = tableOf(*entity).name;
        for (auto const* property : entity->properties()) {
            auto const& column = columnOf(*property);
            if (property->entity() != entity.get() || column.empty()) continue;
            auto const* attribute = property->asAttribute();
            if (attribute && !attribute->isIndexed()) continue;
            if (isNew(table, column)) addIndex(names, {.table = table}, plain(column), column);
        }
        for (auto const& index : entity->indexes()) {
            std::vector<std::string> parts;
            for (auto const& element : index.elements)
                if (auto const& column = columnOf(*element.property); !column.empty())
                    parts.push_back(column + (element.ascending ? "" : " DESC"));
            auto const columns = fmt::format("{}", fmt::join(parts, ", "));
            if (!parts.empty() && isNew(table, columns))
                addIndex(names, {.table = table}, index.name.empty() ? plain(parts[0]) : index.name, columns);
        }
    }

    // The other direction of a join table; its own is the primary key.
    for (auto const& link : links_)
        if (link.isJoinTable && link.isWrittenHere) addIndex(names, {.table = link.table}, "member", "member");
}

void SQLiteSchema::addSearches() {
    for (auto const& table : tables_) {
        Search search{.table = &table};
        for (auto const& column : table.columns) {
            auto const* attribute = column.property ? column.property->asAttribute() : nullptr;
            if (!attribute || !attribute->isFullText()) continue;
            search.attributes.push_back(attribute);
            search.columns.push_back(column.name);
        }
        if (search.columns.empty()) continue;
        search.name = quoted(fmt::format("tessarin_search_{}", numberOf(*table.root))); // a number is no other name's beginning
        auto const columns = fmt::format("{}", fmt::join(search.columns, ", "));
        search.statement =
            fmt::format("CREATE VIRTUAL TABLE {} USING fts5({}, content={}, content_rowid=\"id\", tokenize=\"tessarin\")",
                        search.name, columns, table.name);
        std::string values = "?1";
        for (std::size_t at = 0; at < search.columns.size(); ++at) values += fmt::format(", ?{}", at + 2);
        search.insertion = fmt::format("INSERT INTO {} (rowid, {}) VALUES ({})", search.name, columns, values);
        search.deletion = fmt::format("INSERT INTO {0} ({0}, rowid, {1}) VALUES ('delete', {2})", search.name, columns, values);
        searches_.push_back(std::move(search));
    }
}

std::vector<std::string> SQLiteSchema::createStatements() const {
    std::vector<std::string> statements;
    for (auto const& table : tables_) statements.push_back(createTable(table));
    for (auto const& link : links_)
        if (link.isJoinTable && link.isWrittenHere) statements.push_back(createJoinTable(link, inverseOf(link)));
    for (auto const& index : indexes_) statements.push_back(index.statement);
    for (auto const& search : searches_) statements.push_back(search.statement);
    return statements;
}

} // namespace Tessarin
