#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteFileChecksPrivate.h"

#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteEmptinessPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteVerdictPrivate.h"

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

void requireNoViewInPlaceOfATable(SQLite::Connection& connection, RowSpace& space) {
    std::vector<std::string> views; // in small letters
    auto const schema = connection.use(wholeSchema);
    while (schema->step()) {
        bool const hasNoPages = !schema->isNull(0) && schema->integer(0) == 0;
        auto const type = schema->text(1);
        if (hasNoPages && (type == "table" || type == "view")) views.push_back(inSmallLetters(std::string(schema->text(2))));
    }
    if (views.empty()) return;
    auto const require = [&](std::string const& name) {
        for (auto const& view : views)
            if (quoted(view) == inSmallLetters(name)) throw Refused::because("a view stands in place of the table " + name);
    };
    for (auto const* own : {"\"tessarin_store\"", "\"tessarin_metadata\"", "\"tessarin_entity\"", "\"tessarin_history\""})
        require(own);
    for (auto const& name : expectedTables(connection, space)) require(name);
}

LargestKeys readEndsOfTables(SQLite::Connection& connection) {
    LargestKeys largest;
    for (auto const& name : textsOf(connection, "SELECT DISTINCT \"table\" FROM tessarin_entity")) {
        endOf(connection, "min", quoted(name));
        largest.emplace(quoted(name), endOf(connection, "max", quoted(name)));
    }
    return largest;
}

RecordKey largestKey(SQLite::Connection& connection, SQLiteSchema const& schema, LargestKeys const& known) {
    RecordKey largest = 0;
    for (auto const& table : schema.tables()) {
        auto const found = known.find(table.name);
        largest = std::max(largest, found != known.end() ? found->second : endOf(connection, "max", table.name));
    }
    return largest;
}

} // namespace Tessarin
