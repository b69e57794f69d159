#include "Tessarin/platform/objectgraph/persistence/SQLiteSharedScanPrivate.h"

namespace Tessarin {

SQLiteSharedScan::SQLiteSharedScan(SQLiteReaderPool& readers, StoreQuery const& query, SQLiteReader::Span span,
                                   SQLite::Connection::LogState const& state)
    : readers_(readers), query_(query), span_(span), state_(state) {}

void SQLiteSharedScan::read(SQLiteReaderPool& readers, SQLiteReader& reader, StoreQuery const& query, SQLiteReader::Span span,
                            std::vector<RowRef>& rows) {
    auto const state = reader.seenState();
    if (!state) return reader.readSpan(query, span, rows); // a helper might see another state of the file
    auto const scan = std::make_shared<SQLiteSharedScan>(readers, query, span, *state);
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_USER_INITIATED, 0), [scan] { scan->help(); });
    struct Finishing {
        SQLiteSharedScan& scan;
        ~Finishing() { scan.finish(); }
    };
    {
        Finishing const finishing{*scan};
        std::size_t share = 0;
        scan->readShares(reader, share);
    }
    if (auto const share = scan->failedShare_; share < shares) { // again: what hindered the helper need not hinder us
        scan->rows_[share].clear();
        reader.readSpan(query, scan->spanOf(share), scan->rows_[share]);
    }
    for (auto& share : scan->rows_) rows.insert(rows.end(), std::move_iterator(share.begin()), std::move_iterator(share.end()));
}

/// When this returns, the helper uses nothing any more that belongs to the asking thread.
void SQLiteSharedScan::finish() {
    next_ = shares;
    if (help_.exchange(Help::NotWanted) == Help::UnderWay) dispatch_semaphore_wait(helped_, DISPATCH_TIME_FOREVER);
}

void SQLiteSharedScan::help() {
    auto expected = Help::NotBegun;
    if (!help_.compare_exchange_strong(expected, Help::UnderWay)) return;
    std::size_t share = shares;
    try {
        auto const reader = readers_.lease(SQLiteReaderPool::Patience::GivesUp);
        reader->longSpanOf(query_); // the first read fixes what the connection sees
        if (reader->seenState() == state_) readShares(*reader, share);
    } catch (...) {
        failedShare_ = share;
    }
    dispatch_semaphore_signal(helped_);
}

void SQLiteSharedScan::readShares(SQLiteReader& reader, std::size_t& share) {
    for (share = next_++; share < shares; share = next_++) reader.readSpan(query_, spanOf(share), rows_[share]);
}

SQLiteReader::Span SQLiteSharedScan::spanOf(std::size_t share) const {
    auto const step = static_cast<std::uint64_t>(span_.last - span_.first) / shares + 1;
    auto const first = static_cast<std::uint64_t>(span_.first) + step * share;
    auto const last = std::min(first + step - 1, static_cast<std::uint64_t>(span_.last));
    return {static_cast<RecordKey>(first), static_cast<RecordKey>(last)};
}

} // namespace Tessarin
