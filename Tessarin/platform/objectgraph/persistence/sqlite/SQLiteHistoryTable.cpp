#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteHistoryTablePrivate.h"

#include "Tessarin/platform/foundation/time/NSDate.h"
#include "Tessarin/platform/foundation/values/NSUUID.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteStoredModelPrivate.h"

#include <algorithm>
#include <fmt/format.h>
#include <unistd.h>

namespace Tessarin {

std::int64_t randomName() {
    auto const text = NSUUID::UUID().UUIDString();
    std::uint64_t hash = 14695981039346656037U;
    for (auto const c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    return static_cast<std::int64_t>((hash >> 1) | 1);
}

void createHistory(SQLite::Connection& connection) {
    connection.execute("CREATE TABLE IF NOT EXISTS tessarin_history (id INTEGER PRIMARY KEY, time REAL NOT NULL, "
                       "process INTEGER NOT NULL, writer INTEGER NOT NULL, author TEXT, context TEXT, changes BLOB NOT NULL)");
    connection.execute(
        fmt::format("INSERT OR IGNORE INTO tessarin_store VALUES ('history', {}), ('historyPurged', 0)", randomName()));
}

void bringToFormat(SQLite::Connection& connection) {
    if (connection.integer("PRAGMA user_version") >= storeFormatVersion) return; // another process was faster
    createHistory(connection);
    connection.execute(fmt::format("PRAGMA user_version = {}", storeFormatVersion));
}

void purgeHistory(SQLite::Connection& connection, std::int64_t transaction) {
    auto const extent = historyOf(connection);
    auto const last = std::min(transaction, extent.newest);
    if (extent.name == 0 || last <= extent.purged) return;
    auto const note = connection.use("UPDATE tessarin_store SET value = ? WHERE key = 'historyPurged'");
    note->bind(1, last);
    note->run();
    auto const remove = connection.use("DELETE FROM tessarin_history WHERE id <= ?");
    remove->bind(1, last);
    remove->run();
}

void purgeHistory(SQLite::Connection& connection) { purgeHistory(connection, INT64_MAX); }

void noteHistoryGap(SQLite::Connection& connection) {
    auto const extent = historyOf(connection);
    if (extent.name == 0 || extent.endsWithGap() || extent.newest == INT64_MAX) return;
    auto const note = connection.use("INSERT OR REPLACE INTO tessarin_store VALUES ('historyGap', ?)");
    note->bind(1, extent.newest + 1);
    note->run();
}

void endHistoryGap(SQLite::Connection& connection, std::int64_t writer) {
    auto const extent = historyOf(connection);
    if (!extent.endsWithGap()) return;
    auto const row =
        connection.use("INSERT INTO tessarin_history (id, time, process, writer, changes) VALUES (?, ?, ?, ?, x'01')");
    row->bind(1, extent.newest + 1);
    row->bind(2, NSDate().timeIntervalSinceReferenceDate());
    row->bind(3, std::int64_t{::getpid()});
    row->bind(4, writer);
    row->run();
}

HistoryExtent historyOf(SQLite::Connection& connection) {
    HistoryExtent extent;
    extent.name = connection.integer("SELECT value FROM tessarin_store WHERE key = 'history'");
    extent.purged = connection.integer("SELECT value FROM tessarin_store WHERE key = 'historyPurged'");
    extent.gap = connection.integer("SELECT value FROM tessarin_store WHERE key = 'historyGap'");
    extent.newest = std::max(connection.integer("SELECT max(id) FROM tessarin_history"), extent.purged);
    return extent;
}

std::int64_t newestTransaction(SQLite::Connection& connection) try {
    return historyOf(connection).newest;
} catch (SQLite::Failure const&) { // of an older format, or damaged: whoever asks for more is told
    return 0;
}

} // namespace Tessarin
