#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteEmptinessPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteLogCheckPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSchemaPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteStoredModelPrivate.h"

#include <fmt/format.h>

namespace Tessarin {
namespace {

constexpr std::int64_t ownMetadata = 3; // what every store has

bool hasRecords(SQLite::Connection& connection) {
    static constexpr auto tablesOfTheModel =
        "SELECT name FROM sqlite_schema WHERE type = 'table' AND name NOT GLOB 'tessarin_*' AND name NOT GLOB 'sqlite_*'";
    std::string any;
    {
        auto const tables = connection.use(tablesOfTheModel);
        while (tables->step())
            any += fmt::format("{}EXISTS (SELECT 1 FROM {})", any.empty() ? "SELECT " : " OR ", quoted(tables->text(0)));
    }
    return !any.empty() && connection.integer(any) != 0;
}

} // namespace

bool hasNoSchema(SQLite::Connection& connection) { return !connection.use(wholeSchema)->step(); }

bool holdsNothing(SQLite::Connection& connection, std::string const& path) try {
    if (auto const id = connection.integer("PRAGMA application_id"); id != 0 && id != storeApplicationID) return false;
    if (connection.text("PRAGMA quick_check(1)") != "ok") return false;
    auto const pageSize = static_cast<std::uint32_t>(connection.integer("PRAGMA page_size"));
    // Without a log there is no shared index either, and SQLite would not let go of one that was asked for.
    auto const pages = connection.text("PRAGMA journal_mode") == "wal" ? connection.readableLogPages() : 0;
    if (hasUnreadableCommits(path, pages, pageSize)) return false;
    if (hasNoSchema(connection)) return true;
    return connection.integer("SELECT count(*) FROM tessarin_metadata") <= ownMetadata && !hasRecords(connection);
} catch (ErrorException const&) {
    return false;
}

bool holdsNothing(std::string const& path) try {
    SQLite::Connection connection(path, {.access = SQLite::Access::Read});
    return holdsNothing(connection, path);
} catch (ErrorException const&) {
    return false;
}

} // namespace Tessarin
