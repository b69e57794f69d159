#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSalvagePrivate.h"

#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSearchTablesPrivate.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sqlite3.h>

namespace Tessarin {
namespace {

/// Anything else (memory, space) has nothing to do with the damage, and ends the salvage.
void requireDamage(SQLite::Failure const& failure) {
    switch (failure.primaryCode()) {
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    case SQLITE_ERROR: // a table or an index is missing
    case SQLITE_IOERR:
    case SQLITE_TOOBIG: return;
    default: throw failure;
    }
}

std::string asText(std::string_view text) { // in SQL
    std::string literal = "'";
    for (auto const c : text) literal.append(c == '\'' ? 2 : 1, c);
    return literal + "'";
}

bool isUnique(SQLiteSchema const& schema, std::string const& table, std::string_view columnInList) {
    return std::ranges::any_of(schema.indexes(), [&](auto const& index) {
        return index.isUnique && index.table == table && std::ranges::find(index.columns, columnInList) != index.columns.end();
    });
}

} // namespace

SQLiteSalvage::SQLiteSalvage(std::string const& damagedPath, SQLite::Connection& damaged, SQLite::Connection& fresh,
                             SQLiteSchema const& schema)
    : damaged_(damaged), fresh_(fresh), schema_(schema), pages_(damagedPath) {
    sqlite3_db_config(damaged_.handle(), SQLITE_DBCONFIG_DEFENSIVE, 0, nullptr); // to point a table at one of its pages
    damaged_.execute("PRAGMA writable_schema = ON");                            // reads what is left of a damaged schema, too
    report_.entities.reserve(schema.tables().size());
    tables_.reserve(schema.tables().size());
    for (auto const& table : schema.tables()) openTable(table);
}

SalvageReport SQLiteSalvage::run() {
    for (auto& table : tables_) table.isDamaged = !readRows(table, rowsOf(table));
    if (std::ranges::any_of(tables_, &Table::isDamaged)) readPages();
    for (auto const& link : schema_.links())
        if (link.isJoinTable && link.isWrittenHere) readLinks(link);
    for (auto& table : tables_)
        if (table.isDamaged) noteMissing(table);
    cutLinks();
    keepNextKey();
    for (auto const& search : schema_.searches()) SQLiteSearchTables(fresh_).fill(search);
    for (auto& table : tables_)
        table.report.saved = static_cast<std::size_t>(fresh_.integer("SELECT count(*) FROM " + table.schema.name));
    return report_;
}

void SQLiteSalvage::openTable(SQLiteSchema::Table const& schema) {
    Table table{schema, report_.entities.emplace_back(SalvageReport::Entity{.name = schema.root->name()})};
    std::vector<std::string> wanted{"\"id\"", "\"version\""}, found;
    if (schema.hasEntityColumn) wanted.emplace_back("\"entity\"");
    for (auto const& column : schema.columns) wanted.push_back(column.name);
    try {
        SQLite::Statement columns(damaged_, fmt::format("PRAGMA table_info({})", schema.name));
        while (columns.step()) {
            found.push_back(quoted(columns.text(1)));
            auto const type = columns.text(2);
            table.kinds += columns.integer(5) != 0 ? 'K' : type.empty() ? 'B' : type.front();
        }
    } catch (SQLite::Failure const& failure) {
        requireDamage(failure);
    }
    for (auto const& name : wanted)
        if (std::ranges::find(found, name) != found.end()) table.columns.push_back(name);
    tables_.push_back(std::move(table));
}

std::string SQLiteSalvage::rowsOf(Table const& table) {
    return fmt::format("SELECT {} FROM {} NOT INDEXED", fmt::join(table.columns, ", "), table.schema.name);
}

bool SQLiteSalvage::readRows(Table& table, std::string const& sql) {
    if (table.columns.size() < 2) return false; // the file does not have this table
    try {
        SQLite::Statement rows(damaged_, sql);
        while (rows.step()) add(table, rows);
        return true;
    } catch (SQLite::Failure const& failure) {
        requireDamage(failure);
    }
    return false;
}

/// What is no record of the model is left out, and so is a record that is there: the soundest pages are read first.
void SQLiteSalvage::add(Table& table, SQLite::Statement const& from) {
    if (from.integer(0) <= 0) return;
    if (table.schema.hasEntityColumn && !schema_.entityNumbered(from.integer(2))) return;
    auto const version = std::clamp<std::int64_t>(from.integer(1), 1, UINT32_MAX - 1);
    auto const insert = [&](bool withUniqueValues) {
        auto const statement =
            fresh_.use(fmt::format("INSERT INTO {} ({}) VALUES ({})", table.schema.name, fmt::join(table.columns, ", "),
                                   fmt::join(std::vector(table.columns.size(), '?'), ", ")));
        for (std::size_t at = 0; at < table.columns.size(); ++at) {
            auto const place = static_cast<int>(at);
            if (at == 1)
                statement->bind(2, version);
            else if (withUniqueValues || !isUnique(schema_, table.schema.name, table.columns[at]))
                sqlite3_bind_value(statement->handle(), place + 1, sqlite3_column_value(from.handle(), place));
            else
                statement->bindNull(place + 1);
        }
        statement->run();
    };
    try {
        insert(true);
    } catch (SQLite::Failure const& failure) {
        if (failure.primaryCode() != SQLITE_CONSTRAINT) throw ErrorException(failure.error());
        if (failure.code() != SQLITE_CONSTRAINT_UNIQUE) return;
        insert(false);
        ++table.report.clearedRecords;
    }
}

/// In the order of trust: pages that their table leads to, then pages to which nothing leads, each wholly before those with
/// faults.
void SQLiteSalvage::readPages() {
    std::vector<std::pair<Table*, SQLiteSalvagePages::Page>> reached, strays;
    for (auto const& [name, root] : rootPages()) {
        auto const tree = pages_.treeAt(root);
        auto const table =
            std::ranges::find_if(tables_, [&, table = quoted(name)](auto const& each) { return each.schema.name == table; });
        if (table == tables_.end() || !table->isDamaged) continue;
        table->isBroken = !tree.isWhole;
        for (auto const page : tree.leaves) reached.emplace_back(&*table, page);
    }
    for (auto const page : pages_.strays()) {
        auto const types = pages_.firstRecord(page);
        std::vector<Table*> fitting;
        for (auto& table : tables_)
            if (table.isBroken && fits(table, types)) fitting.push_back(&table);
        if (fitting.size() == 1) strays.emplace_back(fitting.front(), page);
        if (fitting.size() > 1) ++report_.unplacedPages;
    }
    for (auto* pages : {&reached, &strays})
        std::erase_if(*pages, [&](auto const& each) { return readPage(*each.first, each.second); });
    damaged_.execute("PRAGMA cell_size_check = OFF");
    for (auto const* pages : {&reached, &strays})
        for (auto const& [table, page] : *pages) readPage(*table, page);
}

std::vector<std::pair<std::string, SQLiteSalvagePages::Page>> SQLiteSalvage::rootPages() {
    std::vector<std::pair<std::string, SQLiteSalvagePages::Page>> roots;
    SQLite::Statement tables(damaged_, "SELECT name, rootpage FROM sqlite_schema WHERE type = 'table'");
    while (tables.step()) roots.emplace_back(tables.text(0), static_cast<SQLiteSalvagePages::Page>(tables.integer(1)));
    return roots;
}

/// Every page of records is a table of its own, if only it is called one.
bool SQLiteSalvage::readPage(Table& table, SQLiteSalvagePages::Page page) {
    damaged_.execute("BEGIN");
    damaged_.execute(fmt::format(
        "UPDATE sqlite_schema SET rootpage = {} WHERE type = 'table' AND '\"' || replace(name, '\"', '\"\"') || '\"' = {}", page,
        asText(table.schema.name)));
    damaged_.execute("PRAGMA writable_schema = RESET; PRAGMA writable_schema = ON");
    bool const isRead = readRows(table, rowsOf(table));
    if (!isRead) readRows(table, rowsOf(table) + " ORDER BY id DESC");
    damaged_.execute("ROLLBACK; PRAGMA writable_schema = RESET; PRAGMA writable_schema = ON");
    return isRead;
}

/// Whether a record of these serial types could be one of the table.
bool SQLiteSalvage::fits(Table const& table, std::vector<std::uint64_t> const& types) {
    if (types.size() < 2 || types.size() > table.kinds.size()) return false;
    for (std::size_t at = 0; at < types.size(); ++at) {
        auto const type = types[at];
        bool const isInteger = (type >= 1 && type <= 6) || type == 8 || type == 9;
        switch (table.kinds[at]) {
        case 'K':
            if (type != 0) return false;
            break;
        case 'I':
            if (type != 0 && !isInteger) return false;
            break;
        case 'R':
            if (type != 0 && type != 7 && !isInteger) return false;
            break;
        default:
            if (type != 0 && (type < 12 || (type % 2 == 1) != (table.kinds[at] == 'T'))) return false;
        }
    }
    return true;
}

} // namespace Tessarin
