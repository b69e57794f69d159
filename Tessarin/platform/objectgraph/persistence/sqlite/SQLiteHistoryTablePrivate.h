#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <algorithm>
#include <cstdint>

namespace Tessarin {

/// The table of a store's transactions, `tessarin_history`, and what `tessarin_store` says of it. Numbers count up and are never
/// used again: where the table is empty they go on behind "historyPurged".
///
/// All but `historyOf` within a write transaction of the caller.

/// Makes both, where they are missing.
void createHistory(SQLite::Connection& connection);
/// Brings a file of an older format to this one.
void bringToFormat(SQLite::Connection& connection);
/// Forgets what was done until then, that transaction included.
void purgeHistory(SQLite::Connection& connection, std::int64_t transaction);
/// Forgets everything: numbers of entities and properties mean something else from now on.
void purgeHistory(SQLite::Connection& connection);
/// Records are changed by a transaction that the history does not tell: no token of today leads on from here. Writes only the first
/// time after a transaction that it tells.
void noteHistoryGap(SQLite::Connection& connection);
/// Where the newest that is known of is such a gap, puts an empty transaction behind it, so that there is a token behind it.
void endHistoryGap(SQLite::Connection& connection, std::int64_t writer);

/// What there is of a history.
struct HistoryExtent {
    std::int64_t name = 0; // random: a file that was made anew has another one; 0: there is no history
    std::int64_t purged = 0; // up to this transaction it was forgotten
    std::int64_t gap = 0; // right before this transaction, or the one to come, some were not told; 0: none that is known
    std::int64_t newest = 0; // the last one there was

    /// The first place from which everything is told.
    std::int64_t start() const noexcept { return std::max(purged, gap); }
    bool endsWithGap() const noexcept { return name != 0 && gap > newest; }
};
/// Costs four look-ups.
HistoryExtent historyOf(SQLite::Connection& connection);
/// 0 where there is none.
std::int64_t newestTransaction(SQLite::Connection& connection);
/// A number for a history, or for somebody who writes one: positive, and no other's.
std::int64_t randomName();

} // namespace Tessarin
