#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteTableScansPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSharedScanPrivate.h"

#include <mutex>

namespace Tessarin {

SQLiteTableScans::SQLiteTableScans(Ref<RowSpace> space, Ref<SQLiteReaderPool> readers)
    : space_(std::move(space)), readers_(std::move(readers)) {}

bool SQLiteTableScans::read(SQLiteReader& reader, StoreQuery const& query, SQLiteReader::Span span, std::vector<RowRef>& rows) {
    if (!query.sortDescriptors.empty() || query.wantsKeysOnly) return false;
    auto const state = reader.seenState();
    if (!state) return false;
    SQLiteReader::Scanned const scanned{query.entity, query.includesSubentities};
    if (readKept(scanned, *state, rows)) return true;
    if (reader.expectsCached(query)) return false;
    auto const before = rows.size();
    auto kept = readShared(reader, scanned, span, *state, rows);
    reader.noteCount(query, rows.size() - before);
    if (kept.bytes() <= mostKeptBytes) keep(scanned, *state, std::move(kept));
    return true;
}

KeptRows SQLiteTableScans::readShared(SQLiteReader& reader, SQLiteReader::Scanned scanned, SQLiteReader::Span span,
                                      SQLite::Connection::LogState const& state, std::vector<RowRef>& rows) {
    auto const scan = std::make_shared<SQLiteSharedScan>(space_, scanned, span, state);
    dispatch_group_async(helpers_, dispatch_get_global_queue(QOS_CLASS_USER_INITIATED, 0),
                         [scan, readers = readers_] { scan->help(*readers); });
    KeptRows kept;
    scan->read(reader, rows, kept);
    return kept;
}

bool SQLiteTableScans::readKept(SQLiteReader::Scanned scanned, SQLite::Connection::LogState const& state,
                                std::vector<RowRef>& rows) {
    std::lock_guard const hold(mutex_);
    if (!last_ || last_->state != state || last_->scanned != scanned) return false;
    ++uses_;
    last_->layOver();
    last_->rows.appendTo(rows);
    return true;
}

void SQLiteTableScans::close() {
    waitForHelpers();
    std::optional<Result> former; // released after the lock
    std::lock_guard const hold(mutex_);
    former.swap(last_);
}

void SQLiteTableScans::noteSave(SQLite::Connection::LogState const& before, SQLite::Connection::LogState const& after,
                                std::span<Ref<ChangeSet const> const> sets) {
    std::optional<Result> former; // released after the lock
    std::lock_guard const hold(mutex_);
    if (!last_ || last_->state != before) return;
    last_->state = after;
    auto const& tree = *last_->scanned.entity->rootEntity();
    for (auto const& set : sets) {
        auto const count = set->changesOf(tree).size();
        last_->changes += count;
        if (count != 0) last_->saves.push_back(set);
    }
    if (last_->changes > mostChanges || last_->rows.bytes() > mostKeptBytes) former.swap(last_);
}

void SQLiteTableScans::Result::layOver() {
    if (saves.empty()) return;
    KeptRows::Changes changed;
    auto const& [entity, includesSubentities] = scanned;
    for (auto const& set : saves)
        for (auto const& change : set->changesOf(*entity->rootEntity()))
            if (change.changesRow() && (includesSubentities ? change.entity->isKindOf(entity) : change.entity == entity))
                changed[change.key] = change.after;
    rows.apply(changed);
    saves.clear();
    changes = 0;
}

void SQLiteTableScans::keep(SQLiteReader::Scanned scanned, SQLite::Connection::LogState const& state, KeptRows rows) {
    std::optional<Result> former = Result{scanned, state, std::move(rows)};
    std::lock_guard const hold(mutex_);
    ++uses_;
    last_.swap(former); // the former rows are released after the lock
    if (!isForgettingLater_) forgetLater();
}

void SQLiteTableScans::forgetLater() {
    isForgettingLater_ = true;
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, keptNanoseconds), dispatch_get_global_queue(QOS_CLASS_UTILITY, 0),
                   [weak = weak_from_this(), use = uses_] {
                       if (auto const self = weak.lock()) self->forgetUnlessUsedSince(use);
                   });
}

void SQLiteTableScans::forgetUnlessUsedSince(std::uint64_t use) {
    std::optional<Result> former; // released after the lock
    std::lock_guard const hold(mutex_);
    isForgettingLater_ = false;
    if (uses_ != use) return forgetLater();
    former.swap(last_);
}

} // namespace Tessarin
