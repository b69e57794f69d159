#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteStorePrivate.h"

#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteOpeningPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSearchTablesPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteStoreImplPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteVerificationPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSPersistentStoreCoordinator.h"
#include "Tessarin/platform/objectgraph/persistence/stores/SearchStatisticsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/sqlite/Transaction.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <new>

namespace Tessarin {
namespace {

/// Runs `work`; what it throws becomes the error.
template <class Work> Ref<NSError> caught(Work work) {
    try {
        work();
    } catch (ErrorException const& failure) {
        return failure.error();
    } catch (std::bad_alloc const&) {
        return NSError::errorWithErrno(ENOMEM);
    }
    return nullptr;
}

} // namespace

SQLiteStoreOptions SQLiteStoreOptions::from(Dictionary const& options) {
    SQLiteStoreOptions read;
    for (auto const& [key, value] : options["NSSQLitePragmasOption"].dictionary()) {
        auto text = value.description();
        for (auto& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        if (key == "synchronous") {
            if (text == "OFF" || text == "0") read.synchronous = Synchronous::Off;
            if (text == "NORMAL" || text == "1") read.synchronous = Synchronous::Normal;
        }
        auto const size = std::strtoll(text.c_str(), nullptr, 10);
        if (key == "cache_size" && size != 0) read.cacheKilobytes = size < 0 ? -size : size * 4;
    }
    if (auto const& seconds = options["NSSQLiteBusyTimeoutOption"]; seconds.isNumber())
        read.busySeconds = std::max(0.0, seconds.number());
    if (auto const& infers = options["NSInferMappingModelAutomaticallyOption"]; infers.isNumber())
        read.infersMapping = infers.boolean();
    read.isReadOnly = options["NSReadOnlyPersistentStoreOption"].boolean();
    if (auto const& mode = options["NSFilePosixPermissions"]; mode.isNumber())
        read.fileMode = static_cast<std::uint32_t>(mode.integer() & 0777);
    read.mergesOthers = options[NSStoreMergesOthersOption].boolean();
    read.keepsHistory = (read.mergesOthers || options[NSStoreHistoryOption].boolean()) && !read.isReadOnly;
    if (auto const& age = options[NSStoreHistoryAgeOption]; age.isNumber()) read.historyAge = age.number();
    read.waiting = options[NSStoreWaitingOption].objectAs<StoreWaiting>();
    if (!read.waiting) read.waiting = make<StoreWaiting>(nullptr, std::nullopt);
    read.opening = options[NSStoreOpeningOption].objectAs<StoreOpening>();
    read.waiting->setOpening(read.opening);
    return read;
}

SQLiteStore::SQLiteStore() = default;
SQLiteStore::~SQLiteStore() = default;
void SQLiteStore::init(std::unique_ptr<Impl> impl) { impl_ = std::move(impl); }

Ref<SQLiteStore> SQLiteStore::open(NSURL const& file, Ref<RowSpace> space, Dictionary const& options, Ref<NSError>& error) {
    SQLiteOpening opening(file, std::move(space), SQLiteStoreOptions::from(options));
    auto impl = opening.run(error);
    if (!impl) return nullptr;
    auto store = make<SQLiteStore>(std::move(impl));
    store->beginWithOthers();
    return store;
}

std::string const& SQLiteStore::type() const {
    static std::string const name = "SQLite";
    return name;
}
NSURL SQLiteStore::url() const { return impl_->url; }
Dictionary SQLiteStore::metadata() const { return impl_->metadata.get(); }
void SQLiteStore::setMetadata(Dictionary metadata) { impl_->metadata.set(std::move(metadata)); }
std::string SQLiteStore::identifier() const { return impl_->identifier; }

bool SQLiteStore::isReadOnly() const { return impl_->isReadOnly; }

void SQLiteStore::close() {
    if (impl_->others) impl_->others->end();
    {
        std::lock_guard const hold(impl_->writing);
        impl_->isClosed = true;
        impl_->writerSeat.reset();
    }
    impl_->readers->close(); // what helpers of a scan need, they find closed
    impl_->scans->close();
}

void SQLiteStore::Impl::requireOpen() const {
    if (isClosed) throw ErrorException(storeClosed(path));
}

SQLiteStore::Impl::Writing& SQLiteStore::Impl::writer() {
    requireOpen();
    if (isReadOnly) throw ErrorException(storeError(StoreErrorCode::StoreReadOnly, "The store was opened for reading: " + path));
    if (!writerSeat) {
        requireInPlace(); // before another file is taken for it
        writerSeat = std::make_unique<Writing>(schema, path, options, historyWriter);
    }
    return *writerSeat;
}

void SQLiteStore::Impl::requireInPlace() const {
    if (StoreRefusal::identityAt(path) == identity) return;
    throw ErrorException(storeError(StoreErrorCode::StoreSave,
                                    "The store's file is not in its place any more, so nothing is written: " + path,
                                    {{NSFilePathErrorKey, path}}));
}

void SQLiteStore::Impl::requireSameModel(SQLite::Connection& connection) const {
    if (connection.integer("SELECT value FROM tessarin_store WHERE key = 'modelGeneration'") != modelGeneration)
        throw ErrorException(storeError(StoreErrorCode::StoreIncompatibleModel,
                                        "The store was brought to another model by another process; open it again."));
}

Ref<NSError> SQLiteStore::save(std::span<Ref<ChangeSet const> const> sets, ConflictResolver resolve, SaveOutcome& outcome) {
    auto& impl = *impl_;
    std::lock_guard const hold(impl.writing);
    bool const isEmpty = std::ranges::all_of(sets, [](auto const& set) { return set->empty(); });
    if (isEmpty && !impl.metadata.hasUnsaved()) return nullptr;
    auto const write = [&](SQLiteWriter::Conflicts conflicts) {
        outcome = {};
        auto& seat = impl.writer();
        auto& connection = seat.connection;
        auto& writer = seat.writer;
        SQLite::Transaction transaction(connection);
        auto const before = connection.logState();
        impl.requireInPlace(); // what is written to a file that was removed, or moved away, is lost
        impl.requireSameModel(connection);
        auto written = sets;
        if (conflicts == SQLiteWriter::Conflicts::Settled) {
            auto const stored = [&](NSEntityDescription const& entity, RecordKey key) { return writer.stored(entity, key); };
            if (auto refusal = reconcile(sets, stored, resolve, outcome, SetTaker::Store)) throw ErrorException(refusal);
            if (!outcome.sets.empty()) written = outcome.sets;
        }
        bool const isAlone = !isEmpty && seat.beginChange(before);
        writer.write(written, conflicts);
        impl.metadata.write(connection);
        impl.keys.topUp(connection);
        impl.readers->endIdle(); // so that the commit finds the log free
        transaction.commit();
        auto const after = connection.logState();
        impl.keys.confirm();
        impl.metadata.confirm();
        if (!isEmpty) seat.endChange(before);
        writer.publish(written, outcome);
        impl.noteCommit(isAlone);
        bool const isAll = outcome.sets.empty() && outcome.corrected.empty() && connection.isOneCommitLater(after, before);
        if (isAll) impl.scans->noteSave(before, after, written);
    };
    auto const attempt = [&] {
        return caught([&] {
            try {
                write(SQLiteWriter::Conflicts::Noticed);
            } catch (SQLiteWriter::Stale const&) { // what was written is taken back; now with a look at everything first
                write(SQLiteWriter::Conflicts::Settled);
            }
        });
    };
    auto error = attempt();
    if (impl.mendsSearches(error)) error = attempt();
    static constexpr std::int64_t between = 4096; // transactions
    if (!error && impl.writerSeat && impl.writerSeat->writer.historyWritten().last % between == 0) forgetOldHistoryLater();
    if (!error) return nullptr;
    outcome = {};
    impl.writerSeat.reset(); // the next attempt starts with a connection in a known state
    return error;
}

Ref<NSError> SQLiteStore::findRefused(std::span<Ref<ChangeSet const> const> sets, ConflictResolver resolve,
                                      std::vector<RefusedSet>& refused) {
    auto& impl = *impl_;
    std::lock_guard const hold(impl.writing);
    auto const tryIn = [&](SQLite::Connection& connection, SQLiteWriter& writer, Ref<ChangeSet const> const& set) {
        connection.execute("SAVEPOINT one");
        auto const stored = [&](NSEntityDescription const& entity, RecordKey key) { return writer.stored(entity, key); };
        SaveOutcome outcome;
        auto error = caught([&] {
            if (auto refusal = reconcile({&set, 1}, stored, resolve, outcome, SetTaker::Store)) throw ErrorException(refusal);
            writer.write(outcome.sets.empty() ? std::span(&set, 1) : std::span<Ref<ChangeSet const> const>(outcome.sets),
                         SQLiteWriter::Conflicts::Settled);
        });
        connection.execute(error ? "ROLLBACK TO one; RELEASE one" : "RELEASE one");
        return error;
    };
    auto error = caught([&] {
        auto& [connection, writer, left] = impl.writer();
        SQLite::Transaction const transaction(connection); // never committed
        impl.requireSameModel(connection);
        if (auto passing = findRefusedSets(
                sets, [&](auto const& set) { return tryIn(connection, writer, set); }, refused))
            throw ErrorException(passing);
    });
    impl.writerSeat.reset();
    return error;
}

/// Another tool has written texts that the index of their words does not know, so that a change met words that are not there. The
/// index is made anew, from what stands in the file.
bool SQLiteStore::Impl::mendsSearches(Ref<NSError> const& error) {
    bool const isOfIndex = error && error->domain() == NSSQLiteErrorDomain && error->code() == SQLITE_CORRUPT_VTAB;
    if (!isOfIndex || schema.searches().empty()) return false;
    writerSeat.reset();
    return !caught([&] {
        auto& connection = writer().connection;
        SQLite::Transaction transaction(connection);
        requireInPlace();
        requireSameModel(connection);
        for (auto const& search : schema.searches()) SQLiteSearchTables(connection).fill(search);
        readers->endIdle();
        transaction.commit();
    });
}

Ref<NSError> SQLiteStore::Impl::inBatch(BatchOutcome& outcome, FunctionRef<bool(SQLiteWriter&)> change) {
    std::lock_guard const hold(writing);
    auto const attempt = [&] {
        return caught([&] {
            outcome = {};
            auto& seat = writer();
            SQLite::Transaction transaction(seat.connection);
            auto const before = seat.connection.logState();
            requireInPlace();
            requireSameModel(seat.connection);
            bool const isAlone = seat.beginChange(before);
            outcome.complete = change(seat.writer);
            if (!outcome.complete) return;
            readers->endIdle();
            transaction.commit();
            seat.endChange(before);
            seat.writer.forgetRows(outcome);
            noteCommit(isAlone);
        });
    };
    auto error = attempt();
    if (mendsSearches(error)) error = attempt();
    if (!error) return nullptr;
    outcome = {};
    writerSeat.reset();
    return error;
}

Ref<NSError> SQLiteStore::updateInBatch(BatchTarget const& target, std::span<BatchAssignment const> assignments,
                                        BatchOutcome& outcome) {
    return impl_->inBatch(outcome, [&](SQLiteWriter& writer) { return writer.update(target, assignments, outcome); });
}

Ref<NSError> SQLiteStore::deleteInBatch(std::span<BatchTarget const> targets, BatchOutcome& outcome) {
    return impl_->inBatch(outcome, [&](SQLiteWriter& writer) { return writer.remove(targets, outcome); });
}

/// Reads `table`, and perhaps others: damage is told with the name of what is damaged.
Ref<NSError> SQLiteStore::Impl::reading(std::string const& table, FunctionRef<void(SQLiteReader&)> work) {
    return caught([&] {
        try {
            work(*readers->lease());
        } catch (SQLite::Failure const& failure) {
            throw ErrorException(damage.errorOf(failure, table));
        }
    });
}

Ref<NSError> SQLiteStore::findHolders(UniqueConstraint const& constraint, std::span<RowRef const> rows,
                                      std::vector<RecordKey>& holders) {
    return impl_->reading(impl_->schema.tableOf(*constraint.entity).name,
                          [&](SQLiteReader& reader) { reader.findHolders(constraint, rows, holders); });
}

Ref<NSError> SQLiteStore::fetch(StoreQuery const& query, StoreAnswer& answer) {
    if (impl_->others) impl_->others->noteUsed();
    auto error = impl_->reading(impl_->schema.tableOf(*query.entity).name, [&](SQLiteReader& reader) {
        auto const span = reader.spanOf(query);
        bool const mayShare = span && span->isLong() && !query.isGivenUp; // a helper cannot be stopped
        if (!mayShare || !impl_->scans->read(reader, query, *span, answer.rows)) reader.fetch(query, answer, span);
    });
    if (error) answer = {};
    return error;
}

Ref<NSError> SQLiteStore::explain(StoreQuery const& query, FetchExplanation& explanation) {
    return impl_->reading(impl_->schema.tableOf(*query.entity).name,
                          [&](SQLiteReader& reader) { reader.explain(query, explanation); });
}

Ref<NSError> SQLiteStore::count(StoreQuery const& query, std::size_t& count, bool& complete) {
    return impl_->reading(impl_->schema.tableOf(*query.entity).name,
                          [&](SQLiteReader& reader) { reader.count(query, count, complete); });
}

Ref<NSError> SQLiteStore::searchStatistics(RankedSearch const& search, SearchStatistics& statistics) {
    bool isKnown = false;
    auto error = impl_->reading(impl_->schema.tableOf(*search.entity).name,
                                [&](SQLiteReader& reader) { isKnown = reader.searchStatistics(search, statistics); });
    if (error || isKnown) return error;
    StoreAnswer all; // the file's index is of other rules, and cannot be made anew
    if (error = fetch({.entity = search.entity->rootEntity(), .sortDescriptors = {}}, all); !error)
        addStatistics(all.rows, search, statistics);
    return error;
}

Ref<NSError> SQLiteStore::rows(NSEntityDescription const& rootEntity, std::span<RecordKey const> keys,
                               FunctionRef<void(RowRef)> each) {
    return impl_->reading(impl_->schema.tableOf(rootEntity).name,
                          [&](SQLiteReader& reader) { reader.rows(rootEntity, keys, each); });
}

Ref<NSError> SQLiteStore::members(NSRelationshipDescription const& relationship, std::span<RecordKey const> owners,
                                  FunctionRef<void(RecordKey owner, RecordKey member)> each) {
    auto const* link = impl_->schema.linkOf(relationship);
    return impl_->reading(link ? link->table : std::string(),
                          [&](SQLiteReader& reader) { reader.members(relationship, owners, each); });
}

std::vector<std::string> SQLiteStore::verify(Ref<NSError>& error) const {
    std::vector<std::string> findings;
    error = caught([&] {
        impl_->requireOpen();
        {
            SQLite::Connection connection(impl_->path, impl_->options);
            connection.execute("BEGIN");
            findings = SQLiteVerification(connection, impl_->schema).run();
        }
        if (impl_->schema.searches().empty() || impl_->isReadOnly) return;
        SQLite::Connection connection(impl_->path, impl_->options);
        for (auto& finding : SQLiteVerification(connection, impl_->schema).runSearches()) findings.push_back(std::move(finding));
    });
    return findings;
}

RecordKey SQLiteStore::reserveKeys(std::size_t count, Ref<NSError>& error) {
    auto& impl = *impl_;
    count = std::max<std::size_t>(count, 1);
    RecordKey first = impl.keys.take(count);
    while (first == 0) {
        std::lock_guard const hold(impl.writing);
        first = impl.keys.take(count); // a save has perhaps reserved some meanwhile
        if (first != 0) break;
        error = caught([&] {
            auto& connection = impl.writer().connection;
            SQLite::Transaction transaction(connection);
            impl.requireInPlace();
            impl.keys.reserve(connection, count);
            impl.readers->endIdle();
            transaction.commit();
            impl.keys.confirm();
        });
        if (error) return impl.writerSeat.reset(), 0;
        first = impl.keys.take(count);
    }
    return first;
}

} // namespace Tessarin
