#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSearchTablesPrivate.h"

#include "Tessarin/platform/foundation/predicates/SearchWords.h"

#include <algorithm>
#include <fmt/format.h>

namespace Tessarin {

std::vector<SQLiteSearchTables::Found> SQLiteSearchTables::found() {
    std::vector<Found> all;
    auto const query = connection_.use("SELECT name, sql FROM sqlite_schema WHERE type = 'table' AND "
                                       "name GLOB 'tessarin_search_*' AND sql GLOB 'CREATE VIRTUAL TABLE *'");
    while (query->step()) all.push_back({quoted(query->text(0)), std::string(query->text(1))});
    return all;
}

std::string SQLiteSearchTables::version() { return connection_.text("SELECT value FROM tessarin_store WHERE key = 'search'"); }

bool SQLiteSearchTables::areAsIn(SQLiteSchema const& schema, std::string const& version) {
    if (version.empty() || schema.searches().empty()) return version.empty() && schema.searches().empty();
    if (version != searchWordsVersion()) return false;
    auto const found = this->found();
    return found.size() == schema.searches().size() && std::ranges::all_of(schema.searches(), [&](auto const& search) {
               return std::ranges::find(found, search.statement, &Found::statement) != found.end();
           });
}

std::vector<std::string> SQLiteSearchTables::dropOthers(SQLiteSchema const& schema,
                                                        FunctionRef<bool(SQLiteSchema::Search const&)> isKept) {
    bool const isCurrent = version() == searchWordsVersion();
    std::vector<std::string> kept;
    for (auto const& [name, statement] : found()) {
        auto const same = std::ranges::find(schema.searches(), statement, &SQLiteSchema::Search::statement);
        if (isCurrent && same != schema.searches().end() && isKept(*same))
            kept.push_back(same->name);
        else
            connection_.execute("DROP TABLE " + name);
    }
    return kept;
}

void SQLiteSearchTables::make(SQLiteSchema::Search const& search) { connection_.execute(search.statement); }

void SQLiteSearchTables::fill(SQLiteSchema::Search const& search) {
    connection_.execute(fmt::format("INSERT INTO {0} ({0}) VALUES ('rebuild')", search.name));
}

void SQLiteSearchTables::writeVersion(SQLiteSchema const& schema) {
    if (schema.searches().empty()) return connection_.execute("DELETE FROM tessarin_store WHERE key = 'search'");
    auto const put = connection_.use("INSERT OR REPLACE INTO tessarin_store (key, value) VALUES ('search', ?)");
    put->bind(1, std::string_view{searchWordsVersion()});
    put->run();
}

} // namespace Tessarin
