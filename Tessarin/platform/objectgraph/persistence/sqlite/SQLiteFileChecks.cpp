#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteFileChecksPrivate.h"

#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteVerdictPrivate.h"
#include "Tessarin/platform/runtime/FunctionRef.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <span>

namespace Tessarin {
namespace {

std::vector<std::string> textsOf(SQLite::Connection& connection, std::string_view sql) {
    std::vector<std::string> texts;
    auto const query = connection.use(sql);
    while (query->step()) texts.emplace_back(query->text(0));
    return texts;
}

/// One statement for many tables: each of its own would be prepared and forgotten. SQLite joins at most 500 selects.
void forEach(SQLite::Connection& connection, std::vector<std::string> const& selects, FunctionRef<void(SQLite::Statement&)> row) {
    static constexpr std::size_t most = 200;
    for (std::span<std::string const> left(selects); !left.empty(); left = left.subspan(std::min(most, left.size()))) {
        SQLite::Statement statement(connection,
                                    fmt::format("{}", fmt::join(left.first(std::min(most, left.size())), " UNION ALL ")));
        while (statement.step()) row(statement);
    }
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

void requireNoViewInPlaceOfATable(SQLite::Connection& connection, RowSpace& space) {
    auto const views =
        textsOf(connection, "SELECT lower(name) FROM sqlite_schema WHERE type IN ('table', 'view') AND rootpage = 0");
    if (views.empty()) return;
    auto const require = [&](std::string name) {
        std::ranges::transform(name, name.begin(),
                               [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; });
        for (auto const& view : views)
            if (quoted(view) == name) throw Refused::because("a view stands in place of the table " + name);
    };
    for (auto const* own : {"\"tessarin_store\"", "\"tessarin_metadata\"", "\"tessarin_entity\""}) require(own);
    for (auto const& name : expectedTables(connection, space)) require(name);
}

void readEndsOfTables(SQLite::Connection& connection) {
    std::vector<std::string> ends;
    for (auto const& name : textsOf(connection, "SELECT DISTINCT \"table\" FROM tessarin_entity"))
        ends.push_back(fmt::format("SELECT (SELECT min(id) FROM {0}), (SELECT max(id) FROM {0})", quoted(name)));
    forEach(connection, ends, [](SQLite::Statement&) {});
}

RecordKey largestKey(SQLite::Connection& connection, SQLiteSchema const& schema) {
    std::vector<std::string> ends;
    for (auto const& table : schema.tables()) ends.push_back("SELECT max(id) FROM " + table.name);
    RecordKey largest = 0;
    forEach(connection, ends, [&](SQLite::Statement& row) { largest = std::max(largest, row.integer(0)); });
    return largest;
}

} // namespace Tessarin
