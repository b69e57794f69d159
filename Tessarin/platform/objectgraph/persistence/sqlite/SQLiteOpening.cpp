// The order of the steps; those at the path stand in SQLiteOpening+Place.cpp, those in the file in SQLiteOpening+Content.cpp.
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteOpeningPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteEmptinessPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteFileChecksPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteHistoryTablePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSearchTablesPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteStoredModelPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreRescuePrivate.h"
#include "Tessarin/platform/sqlite/Transaction.h"

#include <sqlite3.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessarin {
namespace {

SQLite::ConnectionOptions connectionOptions(SQLiteStoreOptions const& options) {
    return {.access = SQLite::Access::Write,
            .busySeconds = options.busySeconds,
            .cacheKilobytes = options.cacheKilobytes,
            .synchronous = static_cast<SQLite::Synchronous>(options.synchronous)};
}

/// One read transaction around all that is looked at: each of its own costs four locks.
void beginToLook(SQLite::Connection& connection) {
    if (hasLog(connection)) connection.noteCommits(); // its index would be made where there is none
    connection.use("BEGIN")->run();
}

} // namespace

SQLiteOpening::SQLiteOpening(NSURL const& file, Ref<RowSpace> space, SQLiteStoreOptions options)
    : file_(file),
      path_(file.path()),
      space_(std::move(space)),
      options_(options),
      connectionOptions_(connectionOptions(options)) {}

std::unique_ptr<SQLiteStore::Impl> SQLiteOpening::run(Ref<NSError>& error) {
    for (;;) {
        Ref<NSError> reason;
        try {
            if (isCancelled()) throw Postponed(options_.opening->cancellation());
            auto impl = attempt();
            options_.waiting->end();
            return impl;
        } catch (Refused const& refused) {
            error = refused.error();
            return nullptr;
        } catch (Misplaced const& misplaced) {
            error = misplaced.error();
            return nullptr;
        } catch (ErrorException const& postponed) { // or the rescue of a refused file had to be
            reason = postponed.error();
        } catch (std::bad_alloc const&) {
            reason = NSError::errorWithErrno(ENOMEM, path_);
        }
        if (isCancelled() || !options_.waiting->pause(reason)) {
            error = isCancelled() ? options_.opening->cancellation() : reason;
            return nullptr;
        }
    }
}

std::unique_ptr<SQLiteStore::Impl> SQLiteOpening::attempt() {
    std::unique_ptr<SQLite::Connection> connection;
    try {
        checkPlace();
        auto impl = options_.isReadOnly ? openForReading(connection) : openForWriting(connection);
        impl->identity = StoreRefusal::identityAt(path_);
        if (impl->identity != judged_) // a link to it may lie elsewhere by now
            throw Postponed(storeError(StoreErrorCode::StoreOpen, "The store was exchanged while it was opened: " + path_));
        connection->setBusySeconds(options_.busySeconds);
        connection->leavesLog(false);
        impl->readers->add(std::move(connection));
        return impl;
    } catch (SQLite::Failure const& failure) {
        if (failure.primaryCode() == SQLITE_NOTADB && isOfNewerSQLite(readVersionPlace))
            throw Postponed(
                storeError(StoreErrorCode::StoreOpen, "The store can only be read by a newer version of SQLite: " + path_));
        if (failure.primaryCode() == SQLITE_CANTOPEN) checkLink(); // a path that is too long is found out here
        try {
            throwVerdict(failure);
        } catch (Refused const& refused) {
            refuse(refused, connection.get());
        }
    } catch (Refused const& refused) {
        refuse(refused, connection.get());
    } // before the connection goes
}

std::unique_ptr<SQLiteStore::Impl> SQLiteOpening::openForWriting(std::unique_ptr<SQLite::Connection>& connection) {
    makeFile();
    auto options = connectionOptions_;
    options.access = SQLite::Access::Create;
    options.leavesLog = true;
    options.hasFullText = false; // unless it turns out to be needed
    options.busySeconds = std::min(options_.busySeconds, 0.2); // who waits longer is told
    connection = std::make_unique<SQLite::Connection>(path_, options);
    if (connection->isReadOnly()) throwReadOnly();
    beginToLook(*connection);
    auto look = lookAtSchema(*connection);
    requireFullText(*connection, look);
    if (look.isEmpty) {
        look = makeIfEmpty(*connection);
        requireFullText(*connection, look); // perhaps another process has made it
    }
    checkFormat(*connection);
    requireNoViewInPlaceOfATable(look, *connection, *space_);
    SQLiteOpeningProgress progress(options_.opening, *connection);
    checkPages(*connection);
    auto numbers = bringToModel(*connection, progress);
    auto impl =
        std::make_unique<SQLiteStore::Impl>(file_, space_, std::move(numbers), optionsOfStore(), SQLiteSchema::Searches::Used);
    bringSearchesUp(*connection, impl->schema, progress);
    fill(*impl, *connection);
    connection->use("COMMIT")->run();
    if (!hasLog(*connection)) connection->execute("PRAGMA journal_mode = WAL"); // another tool changed it
    return impl;
}

std::unique_ptr<SQLiteStore::Impl> SQLiteOpening::openForReading(std::unique_ptr<SQLite::Connection>& connection) {
    auto options = connectionOptions_;
    options.access = SQLite::Access::Read;
    options.hasFullText = false; // unless it turns out to be needed
    auto const folder = std::filesystem::path(path_).parent_path();
    if (!judged_) throw Refused::because("nothing is there to be read: " + path_);
    bool const isClosed = ::faccessat(AT_FDCWD, folder.empty() ? "." : folder.c_str(), W_OK, AT_EACCESS) != 0;
    struct stat status = {};
    bool const hasLog = ::stat((path_ + "-wal").c_str(), &status) == 0 && status.st_size > 0;
    // A log beside a file that nobody may write would bear its mode, and stay. Where there is one, somebody may write it all the same.
    bool const isInUse = hasLog || ::access((path_ + "-shm").c_str(), F_OK) == 0;
    bool const isForNobody = ::stat(path_.c_str(), &status) == 0 && (status.st_mode & 0222) == 0;
    options.isImmutable = isClosed || (isForNobody && !isInUse);
    if (isClosed && hasLog)
        throw Refused::because("its log has to be read, which a place that cannot be written does not allow: " + path_);
    connection = std::make_unique<SQLite::Connection>(path_, options);
    beginToLook(*connection);
    auto const look = lookAtSchema(*connection);
    checkFormat(*connection);
    requireNoViewInPlaceOfATable(look, *connection, *space_);
    {
        SQLiteOpeningProgress const progress(options_.opening, *connection);
        checkPages(*connection);
    }
    auto numbers = numbersOfSameModel();
    if (!numbers) throw Refused::because("it was written with another model, and is to be read only: " + path_);
    bool const isSearchable = (!look.hasSearches || connection->addFullText()) &&
                              SQLiteSearchTables(*connection).areAsIn(SQLiteSchema(*space_, *numbers), own_.search);
    options.hasFullText = isSearchable && look.hasSearches;
    auto impl =
        std::make_unique<SQLiteStore::Impl>(file_, space_, *std::move(numbers), options,
                                            isSearchable ? SQLiteSchema::Searches::Used : SQLiteSchema::Searches::Ignored);
    fill(*impl, *connection);
    impl->isReadOnly = true;
    connection->use("COMMIT")->run();
    return impl;
}

void SQLiteOpening::fill(SQLiteStore::Impl& impl, SQLite::Connection& connection) const {
    impl.modelGeneration = own_.modelGeneration;
    impl.metadata.read(connection);
    impl.identifier = impl.metadata.text("NSStoreUUID");
    if (impl.identifier.empty()) throw Refused::because("its identity is missing");
    impl.historyAge = options_.historyAge;
    if (options_.keepsHistory) {
        impl.historyWriter = randomName();
        impl.notice.emplace(path_);
    }
    if (options_.mergesOthers) impl.others = std::make_shared<SQLiteOthers>(path_, newestTransaction(connection));
}

/// Keeps a copy, and tells where it is.
void SQLiteOpening::refuse(Refused const& refused, SQLite::Connection* connection) {
    if (options_.isReadOnly || !file_.isFileURL()) throw refused;
    if (StoreRefusal::identityAt(judgedPlace_) != judged_) throw Postponed(refused.error()); // it is another by now
    bool const isEmpty = connection && holdsNothing(*connection, path_);
    std::optional<NSURL> copy;
    if (!isEmpty)
        if (auto const place = RescuedCopies(path_, options_.fileMode).keep()) copy = NSURL::fileURLWithPath(*place);
    auto const& error = *refused.error();
    auto more = error.userInfo();
    more.set(StoreRefusalErrorKey, make<StoreRefusal>(judgedPlace_, judged_, isEmpty, std::move(plan_), std::move(copy)));
    throw Refused(NSError::errorWithDomain(error.domain(), error.code(), std::move(more)));
}

} // namespace Tessarin
