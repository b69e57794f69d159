#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/sqlite/Connection.h"
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

/// What there is of a history.
struct HistoryExtent {
    std::int64_t name = 0;   // random: a file that was made anew has another one; 0: there is no history
    std::int64_t purged = 0; // up to this transaction it was forgotten
    std::int64_t newest = 0; // the last one there was
};
/// Costs three look-ups.
HistoryExtent historyOf(SQLite::Connection& connection);
/// 0 where there is none.
std::int64_t newestTransaction(SQLite::Connection& connection);
/// A number for a history, or for somebody who writes one: positive, and no other's.
std::int64_t randomName();

} // namespace Tessarin
