#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSharedScanPrivate.h"

#include <algorithm>
#include <thread>

// Two threads, each on a connection of its own, and nothing between them but the shares. Whoever sets `isTaken` of a share from
// false to true reads it, so each is begun by one thread at most; its order does not matter, because it hands nothing over. The
// helper alone writes `isNew` and `rows` of the shares that it took, then sets `isRead` with release. The asking thread looks
// at those two only after it has seen `isRead` with acquire, and from then on they are its own: the helper never comes back to
// a share. A share that the helper has begun and not finished in time is read once more by the asking thread, and what the
// helper makes of it stays untouched until the scan goes. So nobody waits for long, and no lock is held while a row is read.
// Both see the same moment of the file: the helper gives up unless its connection's log state is the asking thread's. The scan
// outlives both threads because both hold it; the rows end before the space, which it keeps.
namespace Tessarin {

SQLiteSharedScan::SQLiteSharedScan(Ref<RowSpace> space, SQLiteReader::Scanned scanned, SQLiteReader::Span span,
                                   SQLite::Connection::LogState const& state)
    : space_(std::move(space)), scanned_(scanned), span_(span), state_(state) {}

void SQLiteSharedScan::read(SQLiteReader& reader, std::vector<RowRef>& rows, KeptRows& kept) {
    SQLiteReader::Scan scan(reader, scanned_);
    auto const readHere = [&](std::size_t at) {
        auto const before = rows.size();
        bool const isNew = scan.read(spanOf(at), rows);
        kept.add(std::span(rows).subspan(before), isNew);
    };
    std::size_t at = 0;
    for (; at < count && !shares_[at].isTaken.exchange(true); ++at) readHere(at);
    for (; at < count; ++at) {
        auto& share = shares_[at];
        if (!isReadSoon(share)) {
            readHere(at);
            continue;
        }
        kept.add(share.rows, share.isNew);
        rows.insert(rows.end(), std::move_iterator(share.rows.begin()), std::move_iterator(share.rows.end()));
    }
}

void SQLiteSharedScan::help(SQLiteReaderPool& readers) noexcept {
    if (shares_.back().isTaken) return; // nothing is left to do
    try {
        auto const reader = readers.lease(SQLiteReaderPool::Patience::GivesUp);
        reader->spanOf({.entity = scanned_.entity}); // the first read fixes what the connection sees
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

/// The share at which the helper is when all others are read is mostly done in a moment; when the helper has lost its core, it is
/// not.
bool SQLiteSharedScan::isReadSoon(Share const& share) {
    auto const end = std::chrono::steady_clock::now() + patience;
    while (!share.isRead.load(std::memory_order_acquire)) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::yield();
    }
    return true;
}

SQLiteReader::Span SQLiteSharedScan::spanOf(std::size_t share) const {
    auto const step = static_cast<std::uint64_t>(span_.last - span_.first) / count + 1;
    auto const first = static_cast<std::uint64_t>(span_.first) + step * share;
    auto const last = std::min(first + step - 1, static_cast<std::uint64_t>(span_.last));
    return {static_cast<RecordKey>(first), static_cast<RecordKey>(last)};
}

} // namespace Tessarin
