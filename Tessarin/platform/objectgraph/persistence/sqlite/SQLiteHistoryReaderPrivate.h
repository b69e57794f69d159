#pragma once
#include "Tessarin/platform/objectgraph/persistence/history/HistoryRequest.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSchemaPrivate.h"
#include "Tessarin/platform/sqlite/Connection.h"

namespace Tessarin {

/// Reads a store's history over one connection, within a read transaction of the caller. What fails throws ErrorException, with
/// the codes StoreErrorCode::HistoryMissing, HistoryPurged and HistoryDamaged where the history is at fault.
class TESSARIN_API SQLiteHistoryReader {
public:
    /// `own`: the number under which this store writes.
    SQLiteHistoryReader(SQLiteSchema const& schema, SQLite::Connection& connection, std::int64_t own)
        : schema_(schema), connection_(connection), own_(own) {}

    void read(HistoryRequest const& request, std::vector<HistoryTransaction>& found);
    HistoryToken newest();
    /// Whether that token is of no use, because records were changed since by somebody who keeps no history.
    bool endsWithGap();
    /// What others have written behind that transaction, and which is the newest now.
    std::vector<HistoryChange> othersChanges(std::int64_t& upTo);
    /// The last transaction before the first that was saved since then.
    std::int64_t lastBefore(NSDate const& date);

    /// In seconds, of the oldest transaction; 0 where there is none.
    double ageOfOldest();

private:
    std::vector<HistoryChange> changesOf(SQLite::Statement& row, int column);

    SQLiteSchema const& schema_;
    SQLite::Connection& connection_;
    std::int64_t const own_;
};

} // namespace Tessarin
