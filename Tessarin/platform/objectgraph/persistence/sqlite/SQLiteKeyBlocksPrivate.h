#pragma once
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSchemaPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/KeyTablePrivate.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <mutex>
#include <optional>

namespace Tessarin {

/// The keys that this process may hand out: blocks of neighbours that it reserved in the file. Another process gets others,
/// also after a crash. Any thread.
class TESSARIN_API SQLiteKeyBlocks {
public:
    explicit SQLiteKeyBlocks(SQLiteSchema const& schema) : schema_(schema) {}

    /// The first of `count` neighbours, when that many are at hand; else 0.
    RecordKey take(std::size_t count);

    /// Reserves in the file, within a write transaction of the caller. What was reserved counts once `confirm` is called. The first
    /// time it looks for the largest key of all records, behind which it begins, whatever the file says.
    void reserve(SQLite::Connection& connection, std::size_t count);
    /// The same when the process is running short, on the occasion of a save.
    void topUp(SQLite::Connection& connection);
    /// After the commit.
    void confirm();

private:
    static constexpr std::int64_t smallest = 64, largest = 8192;
    SQLiteSchema const& schema_;
    std::mutex mutex_;
    RecordKey next_ = 1, end_ = 1; // guarded by mutex_: the block at hand
    std::int64_t taken_ = 0; // guarded by mutex_
    RecordKey reservedFrom_ = 0, reservedEnd_ = 0; // of the transaction under way; guarded by the store's writing
    std::optional<RecordKey> largestKey_; // of any record when it was looked for; likewise
};

} // namespace Tessarin
