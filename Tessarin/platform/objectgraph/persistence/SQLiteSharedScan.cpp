#include "Tessarin/platform/objectgraph/persistence/SQLiteSharedScanPrivate.h"

namespace Tessarin {

SQLiteSharedScan::SQLiteSharedScan(Ref<RowSpace> space, SQLiteReader::Scanned scanned, SQLiteReader::Span span,
                                   SQLite::Connection::LogState const& state)
    : space_(std::move(space)), scanned_(scanned), span_(span), state_(state) {}

bool SQLiteSharedScan::read(SQLiteReader& reader, std::vector<RowRef>& rows) {
    SQLiteReader::Scan scan(reader, scanned_);
    bool areNew = true;
    std::size_t at = 0;
    for (; at < count && !shares_[at].isTaken.exchange(true); ++at) areNew = scan.read(spanOf(at), rows) && areNew;
    for (; at < count; ++at) {
        auto& share = shares_[at];
        if (share.isRead.load(std::memory_order_acquire)) {
            rows.insert(rows.end(), std::move_iterator(share.rows.begin()), std::move_iterator(share.rows.end()));
            areNew = share.isNew && areNew;
        } else {
            areNew = scan.read(spanOf(at), rows) && areNew;
        }
    }
    return areNew;
}

void SQLiteSharedScan::help(SQLiteReaderPool& readers) noexcept {
    if (shares_.back().isTaken) return; // nothing is left to do
    try {
        auto const reader = readers.lease(SQLiteReaderPool::Patience::GivesUp);
        reader->longSpanOf({.entity = scanned_.entity}); // the first read fixes what the connection sees
        if (reader->seenState() != state_) return;
        SQLiteReader::Scan scan(*reader, scanned_);
        for (std::size_t at = count; at > 0 && !shares_[at - 1].isTaken.exchange(true); --at) {
            auto& share = shares_[at - 1];
            share.isNew = scan.read(spanOf(at - 1), share.rows);
            share.isRead.store(true, std::memory_order_release);
        }
    } catch (...) {
        // What hinders the helper need not hinder the asking thread, which will say so if it does.
    }
}

SQLiteReader::Span SQLiteSharedScan::spanOf(std::size_t share) const {
    auto const step = static_cast<std::uint64_t>(span_.last - span_.first) / count + 1;
    auto const first = static_cast<std::uint64_t>(span_.first) + step * share;
    auto const last = std::min(first + step - 1, static_cast<std::uint64_t>(span_.last));
    return {static_cast<RecordKey>(first), static_cast<RecordKey>(last)};
}

} // namespace Tessarin
