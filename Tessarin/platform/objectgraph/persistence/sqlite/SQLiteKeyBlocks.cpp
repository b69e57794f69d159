#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteKeyBlocksPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteFileChecksPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

#include <algorithm>

namespace Tessarin {

RecordKey SQLiteKeyBlocks::take(std::size_t count) {
    std::lock_guard const hold(mutex_);
    auto const wanted = static_cast<std::int64_t>(count);
    if (end_ - next_ < wanted) return 0;
    taken_ += wanted;
    return std::exchange(next_, next_ + wanted);
}

void SQLiteKeyBlocks::reserve(SQLite::Connection& connection, std::size_t count) {
    auto const wanted = static_cast<std::int64_t>(count);
    std::int64_t extra = 0;
    if (!largestKey_) largestKey_ = largestKey(connection, schema_);
    auto first = connection.integer("SELECT value FROM tessarin_store WHERE key = 'nextKey'");
    {
        std::lock_guard const hold(mutex_);
        extra = std::clamp(taken_, smallest, largest); // as much again as was used so far
    }
    // The file's may be missing, or changed by another tool.
    first = std::max({first, RecordKey{1}, *largestKey_ == INT64_MAX ? INT64_MAX : *largestKey_ + 1});
    if (first > INT64_MAX - wanted - extra)
        throw ErrorException(storeError(StoreErrorCode::StoreDamaged, "The store is damaged: its next key is " +
                                                                          std::to_string(first) +
                                                                          ", which leaves none for new records."));
    auto const statement = connection.use("INSERT OR REPLACE INTO tessarin_store (key, value) VALUES ('nextKey', ?)");
    statement->bind(1, first + wanted + extra);
    statement->run();
    reservedFrom_ = first;
    reservedEnd_ = first + wanted + extra;
}

void SQLiteKeyBlocks::topUp(SQLite::Connection& connection) {
    reservedEnd_ = 0;
    bool isShort = false;
    {
        std::lock_guard const hold(mutex_);
        isShort = taken_ != 0 && end_ - next_ < std::clamp(taken_ / 2, smallest / 2, largest / 2);
    }
    if (isShort) reserve(connection, 0);
}

void SQLiteKeyBlocks::confirm() {
    if (reservedEnd_ == 0) return;
    std::lock_guard const hold(mutex_);
    // A block that continues ours makes it longer; another one replaces the rest, unless the rest is longer.
    if (reservedFrom_ == end_)
        end_ = reservedEnd_;
    else if (reservedEnd_ - reservedFrom_ >= end_ - next_)
        next_ = reservedFrom_, end_ = reservedEnd_;
    reservedEnd_ = 0;
}

} // namespace Tessarin
