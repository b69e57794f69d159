#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteFileChecksPrivate.h"

#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteEmptinessPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteVerdictPrivate.h"
#include "Tessarin/platform/sqlite/BigEndian.h"
#include "Tessarin/platform/sqlite/SnapshotPages.h"

#include <sqlite3.h>

#include <algorithm>
#include <fmt/format.h>

namespace Tessarin {
namespace {

std::vector<std::string> textsOf(SQLite::Connection& connection, std::string_view sql) {
    std::vector<std::string> texts;
    auto const query = connection.use(sql);
    while (query->step()) texts.emplace_back(query->text(0));
    return texts;
}

/// The smallest or largest key in a table; 0 in an empty one. Short statements of their own, which are forgotten at once: one for
/// both ends, or for all tables, costs SQLite about twice as much to prepare.
RecordKey endOf(SQLite::Connection& connection, char const* end, std::string const& table) {
    SQLite::Statement statement(connection, fmt::format("SELECT {}(id) FROM {}", end, table));
    return statement.step() ? statement.integer(0) : 0;
}

/// Whether SQLite finds its way to where a record with that key would stand, which no record has, and sees that there is none. A
/// quarter of what a statement costs. Where it says anything else, a statement tells what is wrong, if something is.
bool canBeSought(SQLite::Connection& connection, std::string const& table, RecordKey key) {
    sqlite3_blob* found = nullptr;
    auto const code = sqlite3_blob_open(connection.handle(), "main", table.c_str(), "version", key, 0, &found);
    sqlite3_blob_close(found);
    return code == SQLITE_ERROR && std::string_view(sqlite3_errmsg(connection.handle())).starts_with("no such rowid");
}

/// As SQL's lower().
std::string inSmallLetters(std::string name) {
    std::ranges::transform(name, name.begin(),
                           [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; });
    return name;
}

/// The tables that must be such, in quotes.
std::vector<std::string> expectedTables(SQLite::Connection& connection, RowSpace& space) {
    std::vector<std::string> names;
    SQLiteSchema const schema(space, std::vector<std::int64_t>(space.model().entities().size())); // numbers name nothing
    for (auto const& table : schema.tables()) names.push_back(table.name);
    for (auto const& link : schema.links()) names.push_back(link.table);
    for (auto const& name : textsOf(connection, "SELECT \"table\" FROM tessarin_entity")) names.push_back(quoted(name));
    return names;
}

} // namespace

SchemaLook lookAtSchema(SQLite::Connection& connection) {
    SchemaLook look;
    auto const schema = connection.use(wholeSchema);
    while (schema->step()) {
        look.isEmpty = false;
        bool const hasNoPages = !schema->isNull(0) && schema->integer(0) == 0;
        auto const type = schema->text(1), name = schema->text(2);
        look.hasSearches = look.hasSearches || (type == "table" && name.starts_with("tessarin_search_"));
        if (hasNoPages && (type == "table" || type == "view")) look.views.push_back(inSmallLetters(std::string(name)));
    }
    return look;
}

bool hasLog(SQLite::Connection& connection) {
    sqlite3_file* log = nullptr;
    auto const code = sqlite3_file_control(connection.handle(), "main", SQLITE_FCNTL_JOURNAL_POINTER, &log);
    return code == SQLITE_OK && log && log->pMethods;
}

FileHeader headerOf(SQLite::Connection& connection) {
    SQLite::SnapshotPages pages(connection, 0);
    // Looking at the log makes its index where there is none, which nobody would close: beside another application's file, too.
    auto const first = hasLog(connection) && pages.see() ? pages.kept(1) : SQLite::SnapshotPages::Page();
    if (first.empty())
        return {.application = connection.integer("PRAGMA application_id"),
                .format = connection.integer("PRAGMA user_version"),
                .pages = connection.integer("PRAGMA page_count")};
    auto const at = [&](std::size_t place) { return SQLite::bigEndian<std::uint32_t>(first.data() + place); };
    return {.application = static_cast<std::int32_t>(at(68)),
            .format = static_cast<std::int32_t>(at(60)),
            .pages = static_cast<std::int64_t>(pages.size() / first.size())};
}

void requireNoViewInPlaceOfATable(SchemaLook const& look, SQLite::Connection& connection, RowSpace& space) {
    if (look.views.empty()) return;
    auto const require = [&](std::string const& name) {
        for (auto const& view : look.views)
            if (quoted(view) == inSmallLetters(name)) throw Refused::because("a view stands in place of the table " + name);
    };
    for (auto const* own : {"\"tessarin_store\"", "\"tessarin_metadata\"", "\"tessarin_entity\"", "\"tessarin_history\""})
        require(own);
    for (auto const& name : expectedTables(connection, space)) require(name);
}

void requireReadableEnds(SQLite::Connection& connection, std::span<std::string const> tables) {
    for (auto const& table : tables) {
        if (!canBeSought(connection, unquoted(table), INT64_MIN)) endOf(connection, "min", table);
        if (!canBeSought(connection, unquoted(table), INT64_MAX)) endOf(connection, "max", table);
    }
}

RecordKey largestKey(SQLite::Connection& connection, SQLiteSchema const& schema) {
    RecordKey largest = 0;
    for (auto const& table : schema.tables()) largest = std::max(largest, endOf(connection, "max", table.name));
    return largest;
}

} // namespace Tessarin
