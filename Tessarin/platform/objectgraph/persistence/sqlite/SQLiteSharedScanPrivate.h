#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/KeptRowsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteReaderPoolPrivate.h"
#include <array>
#include <atomic>
#include <chrono>

namespace Tessarin {

/// One scan of a table by two threads. The span of its keys is cut into shares; one thread takes them from the front, the other
/// from the back, so that neither meets the other in the row cache. The asking thread hardly ever waits: a helper that comes
/// late, or not at all, leaves more to it, and where the helper is still at a share when all others are read, it reads that too.
class TESSARIN_API SQLiteSharedScan {
public:
    /// `state` is what the asking thread's reader sees.
    SQLiteSharedScan(Ref<RowSpace> space, SQLiteReader::Scanned scanned, SQLiteReader::Span span,
                     SQLite::Connection::LogState const& state);

    /// Adds all records to `rows`, by key, and to `kept`. On the asking thread, once.
    void read(SQLiteReader& reader, std::vector<RowRef>& rows, KeptRows& kept);
    /// On the helper's thread, once; may go on when the other has ended.
    void help(SQLiteReaderPool& readers) noexcept;

private:
    static constexpr std::size_t count = 32;
    static constexpr std::chrono::microseconds patience{500};
    struct Share {
        std::atomic<bool> isTaken{false};
        std::atomic<bool> isRead{false}; // by the helper: then what follows is the asking thread's
        bool isNew = false; // see `SQLiteRowDecoder::readAll`
        std::vector<RowRef> rows;
    };
    static bool isReadSoon(Share const& share);
    SQLiteReader::Span spanOf(std::size_t share) const;

    Ref<RowSpace> const space_; // outlives the rows
    SQLiteReader::Scanned const scanned_;
    SQLiteReader::Span const span_;
    SQLite::Connection::LogState const state_;
    std::array<Share, count> shares_;
};

} // namespace Tessarin
