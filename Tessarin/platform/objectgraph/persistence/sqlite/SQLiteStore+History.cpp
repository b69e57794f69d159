// The history of a store in a file, and what it says of others who have written there.
#include "Tessarin/platform/objectgraph/model/NSEntityDescription.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteHistoryReaderPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteHistoryTablePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteStoreImplPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/sqlite/Transaction.h"

#include <map>
#include <unordered_map>

namespace Tessarin {
namespace {

using Kind = HistoryChange::Kind;

/// What others did to records, each named once, as long as they are not too many to be named.
class OthersRecords {
public:
    /// False: it is too much, or cannot be named.
    bool add(HistoryChange const& change) {
        bool const isRange = change.extent == HistoryChange::Extent::Range;
        if (isRange && change.kind == Kind::Deleted) return false;
        if (change.count() > (isRange ? mostInRange : most - records_.size())) return false;
        for (auto key = change.first; key <= change.last; ++key) note(key, change);
        return true;
    }

    /// From now on no reader that began before brings an older row. Between saves only: one that was committed before the others'
    /// puts its rows there a moment later.
    void forgetRows(RowCache& cache) const {
        for (auto const& [key, record] : records_) cache.remove(key);
        cache.endCommit();
    }

    Ref<ChangeSet const> read(NSPersistentStore& store, Ref<RowSpace> const& space) {
        std::map<NSEntityDescription const*, std::vector<RecordKey>> keys; // by root entity
        for (auto const& [key, record] : records_) keys[record.entity->rootEntity()].push_back(key);
        std::vector<RecordChange> changes;
        for (auto const& [root, some] : keys)
            if (auto const error = store.rows(*root, some, [&](RowRef row) { changes.push_back(changeTo(std::move(row))); }))
                throw ErrorException(error);
        for (auto const& [key, record] : records_) { // what is left was not found
            if (record.kind != Kind::Deleted) continue;
            changes.push_back({.kind = RecordChange::Kind::Delete, .key = key, .entity = record.entity});
        }
        return std::make_shared<ChangeSet const>(space, std::move(changes));
    }

private:
    static constexpr std::uint64_t most = 100'000, mostInRange = 4096;

    struct Record {
        NSEntityDescription const* entity;
        Kind kind;
        bool changesNoLinks;
        std::vector<NSRelationshipDescription const*> toMany;
    };

    void note(RecordKey key, HistoryChange const& change) {
        auto const [place, isNew] =
            records_.try_emplace(key, Record{change.entity, change.kind, change.kind == Kind::Updated, {}});
        auto& record = place->second;
        // Who did not know of a deletion may have changed links of the record since: that does not bring it back.
        bool const isBack = record.kind == Kind::Deleted && change.kind == Kind::Inserted;
        if (isBack || change.kind == Kind::Deleted) record.kind = change.kind;
        for (auto const* property : change.updated) {
            auto const* relationship = property->asRelationship();
            if (!relationship) continue;
            record.changesNoLinks = false;
            if (relationship->isToMany()) record.toMany.push_back(relationship);
        }
    }

    /// Also one that was deleted and brought back since.
    RecordChange changeTo(RowRef row) {
        auto const found = records_.find(row->key());
        auto& record = found->second;
        RecordChange change{.kind = record.kind == Kind::Inserted ? RecordChange::Kind::Insert : RecordChange::Kind::Update,
                            .key = row->key(),
                            .entity = &row->entity()};
        change.changesNoLinks = record.changesNoLinks;
        for (auto const* relationship : record.toMany) change.relationships.push_back({.relationship = relationship});
        change.after = std::move(row);
        records_.erase(found);
        return change;
    }

    std::unordered_map<RecordKey, Record> records_;
};

} // namespace

/// Only where that is worth a transaction.
void SQLiteStore::forgetOldHistoryLater() {
    if (!impl_->historyAge || impl_->historyWriter == 0) return;
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_UTILITY, 0), [weak = WeakRef<SQLiteStore>(self<SQLiteStore>())] {
        auto const store = weak.lock();
        if (!store) return;
        auto const& impl = *store->impl_;
        auto const age = *impl.historyAge;
        double oldest = 0;
        auto const error = store->impl_->readingHistory([&](SQLiteHistoryReader& history) { oldest = history.ageOfOldest(); });
        if (!error && oldest > age * 1.125) store->purgeHistory(NSDate::dateWithTimeIntervalSinceNow(-age));
    });
}

void SQLiteStore::beginWithOthers() {
    auto& impl = *impl_;
    forgetOldHistoryLater();
    if (!impl.others) return;
    impl.others->begin(!impl.isReadOnly, [weak = WeakRef<SQLiteStore>(self<SQLiteStore>())](std::int64_t after) {
        auto const store = weak.lock();
        return store ? store->lookForOthers(after) : after;
    });
}

std::int64_t SQLiteStore::lookForOthers(std::int64_t after) {
    auto& impl = *impl_;
    auto upTo = after;
    try {
        std::vector<HistoryChange> changes;
        {
            auto const lease = impl.readers->lease();
            auto& connection = lease->connection();
            auto const generation = connection.integer("SELECT value FROM tessarin_store WHERE key = 'modelGeneration'");
            if (generation != impl.modelGeneration) return after; // every save says so, and nothing here means what it did
            changes = SQLiteHistoryReader(impl.schema, connection, impl.historyWriter).othersChanges(upTo);
        }
        if (changes.empty()) return upTo;
        impl.space->commits().noteGap();
        OthersRecords records;
        bool isNamed = true;
        for (auto const& change : changes) isNamed = isNamed && records.add(change);
        if (!isNamed) {
            tellEverything();
            return upTo;
        }
        {
            std::lock_guard const hold(impl.writing);
            records.forgetRows(impl.space->cache());
        }
        impl.space->others().tell(records.read(*this, impl.space));
        return upTo;
    } catch (ErrorException const& failure) {
        auto const code = static_cast<StoreErrorCode>(failure.error()->code());
        bool const isLost = code == StoreErrorCode::HistoryPurged || code == StoreErrorCode::HistoryDamaged;
        if (!isLost || failure.error()->domain() != ObjectGraphErrorDomain) return after; // the next notice begins there again
        tellEverything();
        return upTo;
    } catch (std::bad_alloc const&) {
        return after;
    }
}

void SQLiteStore::tellEverything() {
    auto& impl = *impl_;
    impl.space->commits().noteGap();
    {
        std::lock_guard const hold(impl.writing);
        impl.space->cache().removeAll();
        impl.space->cache().endCommit();
    }
    impl.space->others().tellEverything();
}

/// Others look at what is committed: the file's last event comes before that can be seen, so the notice comes after it.
void SQLiteStore::Impl::noteCommit(bool isAlone) {
    if (historyWriter == 0) return;
    auto const written = writerSeat->writer.historyWritten();
    if (others) others->noteSaved(written, isAlone);
    if (notice && written.first <= written.last) notice->touch();
}

bool SQLiteStore::Impl::Writing::beginChange(SQLite::Connection::LogState const& before) {
    using LogState = SQLite::Connection::LogState;
    bool const isAlone = before != LogState{} && std::exchange(left, LogState{}) == before;
    if (!isAlone && !writer.keepsHistory()) writer.noteHistoryGap();
    return isAlone;
}

void SQLiteStore::Impl::Writing::endChange(SQLite::Connection::LogState const& before) {
    auto const now = connection.logState();
    if (SQLite::Connection::isOneCommitLater(now, before)) left = now; // else somebody else has just committed, too
}

Ref<NSError> SQLiteStore::Impl::readingHistory(FunctionRef<void(SQLiteHistoryReader&)> work) {
    return reading({}, [&](SQLiteReader& reader) {
        requireSameModel(reader.connection());
        SQLiteHistoryReader history(schema, reader.connection(), historyWriter);
        work(history);
    });
}

Ref<NSError> SQLiteStore::history(HistoryRequest const& request, std::vector<HistoryTransaction>& found) {
    return impl_->readingHistory([&](SQLiteHistoryReader& history) { history.read(request, found); });
}

Ref<NSError> SQLiteStore::newestOfHistory(HistoryToken& token) {
    bool isOfUse = true;
    auto error = impl_->readingHistory([&](SQLiteHistoryReader& history) {
        token = history.newest();
        isOfUse = !history.endsWithGap();
    });
    if (error || isOfUse || impl_->historyWriter == 0) return error;
    // Where that fails, the token is refused later.
    static_cast<void>(impl_->changingHistory([&](SQLiteHistoryReader& history, SQLite::Connection& connection) {
        endHistoryGap(connection, impl_->historyWriter);
        token = history.newest();
    }));
    return nullptr;
}

Ref<NSError> SQLiteStore::Impl::changingHistory(FunctionRef<void(SQLiteHistoryReader&, SQLite::Connection&)> change) {
    std::lock_guard const hold(writing);
    try {
        auto& connection = writer().connection;
        SQLite::Transaction transaction(connection);
        requireInPlace();
        SQLiteHistoryReader history(schema, connection, historyWriter);
        change(history, connection);
        readers->endIdle();
        transaction.commit();
        return nullptr;
    } catch (ErrorException const& failure) {
        writerSeat.reset();
        return failure.error();
    }
}

Ref<NSError> SQLiteStore::purgeHistory(HistoryToken const& upTo) {
    return impl_->changingHistory([&](SQLiteHistoryReader& history, SQLite::Connection& connection) {
        if (auto const newest = history.newest(); upTo.history != newest.history || upTo.transaction > newest.transaction)
            throw ErrorException(storeError(StoreErrorCode::HistoryPurged, "The token is of another history than this file's."));
        Tessarin::purgeHistory(connection, upTo.transaction);
    });
}

Ref<NSError> SQLiteStore::purgeHistory(NSDate const& before) {
    return impl_->changingHistory([&](SQLiteHistoryReader& history, SQLite::Connection& connection) {
        Tessarin::purgeHistory(connection, history.lastBefore(before));
    });
}

} // namespace Tessarin
