#pragma once
#include "Tessarin/platform/objectgraph/persistence/SQLiteReaderPoolPrivate.h"
#include "Tessarin/platform/queues/Dispatch.h"
#include <array>
#include <atomic>

namespace Tessarin {

/// One scan of a table by two threads. The span of its keys is cut into shares, and each thread takes the next one that nobody
/// has: a helper that comes late, or not at all, only leaves more to the thread that asked.
class TESSARIN_API SQLiteSharedScan {
public:
    /// Adds the records of the span to `rows`, by key. `reader` holds a read transaction whose state is known.
    static void read(SQLiteReaderPool& readers, SQLiteReader& reader, StoreQuery const& query, SQLiteReader::Span span,
                     std::vector<RowRef>& rows);

    SQLiteSharedScan(SQLiteReaderPool& readers, StoreQuery const& query, SQLiteReader::Span span, SQLite::Connection::LogState const& state);
    /// The helper's part, on a thread of its own.
    void help();

private:
    enum class Help { NotBegun, UnderWay, NotWanted };
    static constexpr std::size_t shares = 16;

    /// `share` is the one that is being read.
    void readShares(SQLiteReader& reader, std::size_t& share);
    SQLiteReader::Span spanOf(std::size_t share) const;
    void finish();

    // Used by the helper only while the asking thread waits for it.
    SQLiteReaderPool& readers_;
    StoreQuery const& query_;
    SQLiteReader::Span const span_;
    SQLite::Connection::LogState const state_;
    std::atomic<std::size_t> next_{0};
    std::array<std::vector<RowRef>, shares> rows_;
    std::size_t failedShare_ = shares; // the one at which the helper failed

    std::atomic<Help> help_{Help::NotBegun};
    dispatch_semaphore_t const helped_ = dispatch_semaphore_create(0);
};

} // namespace Tessarin
