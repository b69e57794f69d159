#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/KeptRowsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteReaderPoolPrivate.h"
#include "Tessarin/platform/queues/Dispatch.h"
#include <mutex>
#include <span>

namespace Tessarin {

/// Reads long tables from one end to the other: over two connections where a second core is free, and hardly at all when the
/// same was read a moment ago and nobody else has saved since. Any thread.
class TESSARIN_API SQLiteTableScans : public std::enable_shared_from_this<SQLiteTableScans> {
public:
    SQLiteTableScans(Ref<RowSpace> space, Ref<SQLiteReaderPool> readers);

    /// Adds the rows of a query whose `spanOf` is `span`, which is long. False when the query is of another kind, or better answered from
    /// what is in memory: then nothing was done.
    bool read(SQLiteReader& reader, StoreQuery const& query, SQLiteReader::Span span, std::vector<RowRef>& rows);
    /// A save of this store led from one state of the file to the other, and did nothing to rows but this.
    void noteSave(SQLite::Connection::LogState const& before, SQLite::Connection::LogState const& after,
                  std::span<Ref<ChangeSet const> const> sets);
    /// Forgets all, when nothing that a scan began uses the store any more.
    void close();
    /// Until nothing that a scan began uses the store any more; none may begin meanwhile.
    void waitForHelpers() const { dispatch_group_wait(helpers_, DISPATCH_TIME_FOREVER); }

    /// Of rows that are kept at most, and how long after their last use.
    static constexpr std::size_t mostKeptBytes = std::size_t{16} << 20;
    static constexpr std::int64_t keptNanoseconds = 10'000'000'000;
    /// Of records saved since, which are kept besides.
    static constexpr std::size_t mostChanges = 4096;

private:
    /// What the last scan gave.
    struct Result {
        SQLiteReader::Scanned scanned;
        SQLite::Connection::LogState state;
        KeptRows rows;
        std::vector<Ref<ChangeSet const>> saves = {}; // after the scan, not laid over the rows yet
        std::size_t changes = 0; // in them
        void layOver();
    };
    KeptRows readShared(SQLiteReader& reader, SQLiteReader::Scanned scanned, SQLiteReader::Span span,
                        SQLite::Connection::LogState const& state, std::vector<RowRef>& rows);
    bool readKept(SQLiteReader::Scanned scanned, SQLite::Connection::LogState const& state, std::vector<RowRef>& rows);
    void keep(SQLiteReader::Scanned scanned, SQLite::Connection::LogState const& state, KeptRows rows);
    void forgetLater();
    void forgetUnlessUsedSince(std::uint64_t use);

    Ref<RowSpace> const space_; // outlives the rows
    Ref<SQLiteReaderPool> const readers_;
    dispatch_group_t const helpers_ = dispatch_group_create();
    std::mutex mutex_; // guards what follows
    std::optional<Result> last_;
    std::uint64_t uses_ = 0;
    bool isForgettingLater_ = false;
};

} // namespace Tessarin
