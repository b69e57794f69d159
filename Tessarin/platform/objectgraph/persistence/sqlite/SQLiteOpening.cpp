#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteOpeningPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/migration/SQLiteMigrationPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ValueJSONPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteEmptinessPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteFileChecksPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteLogCheckPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteStoredModelPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteVerdictPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreRescuePrivate.h"
#include "Tessarin/platform/sqlite/RawFile.h"
#include "Tessarin/platform/sqlite/Transaction.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fcntl.h>
#include <fmt/format.h>
#include <numeric>
#include <sqlite3.h>
#include <sys/stat.h>
#include <algorithm>
#include <thread>
#include <unistd.h>

namespace Tessarin {
namespace {

constexpr std::int64_t smallFilePages = 64;
constexpr std::size_t writeVersionPlace = 18, readVersionPlace = 19; // in the header of the file

SQLite::ConnectionOptions connectionOptions(SQLiteStoreOptions const& options) {
    return {.access = SQLite::Access::Write,
            .busySeconds = options.busySeconds,
            .cacheKilobytes = options.cacheKilobytes,
            .synchronous = static_cast<SQLite::Synchronous>(options.synchronous)};
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
        } catch (std::bad_alloc const&) { reason = NSError::errorWithErrno(ENOMEM, path_); }
        if (!options_.waiting->pause(reason)) {
            error = reason;
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
        try {
            throwVerdict(failure);
        } catch (Refused const& refused) { refuse(refused, connection.get()); }
    } catch (Refused const& refused) { refuse(refused, connection.get()); } // before the connection goes
}

std::unique_ptr<SQLiteStore::Impl> SQLiteOpening::openForWriting(std::unique_ptr<SQLite::Connection>& connection) {
    makeFile();
    auto options = connectionOptions_;
    options.access = SQLite::Access::Create;
    options.leavesLog = true;
    options.busySeconds = std::min(options_.busySeconds, 0.2); // who waits longer is told
    connection = std::make_unique<SQLite::Connection>(path_, options);
    if (connection->isReadOnly()) throwReadOnly();
    // One read transaction around all that is looked at: each of its own costs four locks.
    connection->execute("BEGIN");
    makeIfEmpty(*connection);
    checkFormat(*connection);
    requireNoViewInPlaceOfATable(*connection, *space_);
    checkPages(*connection);
    auto impl = store(*connection, bringToModel(*connection), connectionOptions_);
    connection->execute("COMMIT");
    if (connection->text("PRAGMA journal_mode") != "wal")
        connection->execute("PRAGMA journal_mode = WAL"); // another tool changed it
    return impl;
}

std::unique_ptr<SQLiteStore::Impl> SQLiteOpening::openForReading(std::unique_ptr<SQLite::Connection>& connection) {
    auto options = connectionOptions_;
    options.access = SQLite::Access::Read;
    auto const folder = std::filesystem::path(path_).parent_path();
    if (!judged_) throw Refused::because("nothing is there to be read: " + path_);
    options.isImmutable = ::faccessat(AT_FDCWD, folder.empty() ? "." : folder.c_str(), W_OK, AT_EACCESS) != 0;
    struct stat log {};
    if (options.isImmutable && ::stat((path_ + "-wal").c_str(), &log) == 0 && log.st_size > 0)
        throw Refused::because("its log has to be read, which a place that cannot be written does not allow: " + path_);
    connection = std::make_unique<SQLite::Connection>(path_, options);
    connection->execute("BEGIN");
    checkFormat(*connection);
    requireNoViewInPlaceOfATable(*connection, *space_);
    checkPages(*connection);
    auto numbers = numbersOfSameModel(*connection);
    if (!numbers) throw Refused::because("it was written with another model, and is to be read only: " + path_);
    auto impl = store(*connection, *std::move(numbers), options);
    impl->isReadOnly = true;
    connection->execute("COMMIT");
    return impl;
}

std::unique_ptr<SQLiteStore::Impl> SQLiteOpening::store(SQLite::Connection& connection, std::vector<std::int64_t> numbers,
                                                        SQLite::ConnectionOptions const& options) {
    auto impl = std::make_unique<SQLiteStore::Impl>(file_, space_, std::move(numbers), options);
    impl->modelGeneration = connection.integer("SELECT value FROM tessarin_store WHERE key = 'modelGeneration'");
    impl->keys.startBehind(largestKey(connection, impl->schema));
    impl->metadata.read(connection);
    impl->identifier = impl->metadata.get()["NSStoreUUID"].text();
    if (impl->identifier.empty()) throw Refused::because("its identity is missing");
    return impl;
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

/// What stands at the path, before SQLite looks at it.
void SQLiteOpening::checkPlace() {
    judgedPlace_ = path_;
    judged_ = StoreRefusal::identityAt(path_);
    plan_.reset();
    if (!file_.isFileURL() || path_.empty()) throw Refused::because("it is no file: " + file_.absoluteString());
    struct stat status {};
    if (::stat(path_.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) throwVerdict(EISDIR, path_);
        if (!S_ISREG(status.st_mode)) throw Refused::because("it is neither a file nor absent: " + path_);
        checkLink();
        // SQLite would open it for reading then, and make a log with the same mode, which stays after the permission has come.
        auto const access = options_.isReadOnly ? R_OK : R_OK | W_OK;
        if (::faccessat(AT_FDCWD, path_.c_str(), access, AT_EACCESS) != 0) throwVerdict(errno, path_);
        return;
    }
    auto const reason = errno;
    // A file where the store's own folder should be is the owner's to remove; further up, a mount may be missing.
    auto const folder = std::filesystem::path(path_).parent_path().native();
    if (reason == ENOTDIR && ::stat(folder.c_str(), &status) == 0) {
        judgedPlace_ = folder;
        judged_ = StoreRefusal::identityAt(folder);
        throw Refused::because("its folder is a file: " + folder);
    }
    if (reason != ENOENT) throwVerdict(reason, path_);
    checkLink();
    if (::stat(folder.empty() ? "." : folder.c_str(), &status) != 0) throwVerdict(errno, folder);
}

/// Neither SQLite's limit nor a link that leads nowhere will pass by waiting.
void SQLiteOpening::checkLink() const {
    static constexpr std::size_t longestPath = 504; // of what SQLite opens, in bytes
    std::error_code none;
    auto const folder = std::filesystem::path(path_).parent_path();
    for (auto const& path : {std::filesystem::path(path_), folder})
        if (std::filesystem::is_symlink(path, none) && !std::filesystem::exists(path, none))
            throw Misplaced::because("the link leads nowhere", path.native());
    auto const real = std::filesystem::weakly_canonical(std::filesystem::absolute(path_, none), none);
    if (std::max(real.native().size(), path_.size()) > longestPath) throw Misplaced::because("the path is too long", path_);
}

/// A new file is nobody else's to read. It is made without being opened: to close it would drop the locks of another connection.
void SQLiteOpening::makeFile() {
    struct stat status {};
    bool const isMissing = ::stat(path_.c_str(), &status) != 0;
    // SQLite would remove the log of a file that is empty.
    if ((isMissing || status.st_size == 0) && hasUnreadableCommits(path_, 0, 0) &&
        (::stat(path_.c_str(), &status) != 0 || status.st_size == 0))
        throw Refused::because("its records are in a log to which the file is missing: " + path_);
    if (!isMissing) return;
    if (::mknod(path_.c_str(), S_IFREG | options_.fileMode, 0) == 0) {
        if (::stat(path_.c_str(), &status) == 0 && (status.st_mode & 0777) != options_.fileMode)
            ::chmod(path_.c_str(), options_.fileMode);
    } else if (errno != EEXIST) {
        throwVerdict(errno, path_);
    }
    judged_ = StoreRefusal::identityAt(path_);
}

/// Whether the file's header asks for a newer SQLite, for writing or for reading.
bool SQLiteOpening::isOfNewerSQLite(std::size_t versionPlace) const try {
    static constexpr std::string_view beginning = "SQLite format 3";
    static constexpr int versionOfLogs = 2;
    std::array<std::byte, 20> header{};
    if (!SQLite::RawFile(path_).read(0, header)) return false;
    return std::memcmp(header.data(), beginning.data(), beginning.size() + 1) == 0 &&
           std::to_integer<int>(header[versionPlace]) > versionOfLogs;
} catch (SQLite::Failure const&) {
    return false;
}

/// SQLite lets a file only be read where the file system says so, and where the header asks for a newer SQLite.
void SQLiteOpening::throwReadOnly() const {
    if (isOfNewerSQLite(writeVersionPlace))
        throw Postponed(
            storeError(StoreErrorCode::StoreOpen, "The store can only be written by a newer version of SQLite: " + path_));
    throwVerdict(EROFS, path_);
}

void SQLiteOpening::makeIfEmpty(SQLite::Connection& connection) {
    if (!hasNoSchema(connection)) return;
    if (auto const other = connection.integer("PRAGMA application_id"); other != 0 && other != storeApplicationID)
        throw Refused::because("it is another application's: " + path_);
    connection.execute("COMMIT; PRAGMA journal_mode = WAL");
    {
        SQLite::Transaction transaction(connection);
        if (hasNoSchema(connection)) { // unless another process was faster
            auto const pageSize = static_cast<std::uint32_t>(connection.integer("PRAGMA page_size"));
            if (hasUnreadableCommits(path_, connection.readableLogPages(), pageSize))
                throw Refused::because("its log is damaged: " + path_);
            create(connection);
        }
        transaction.commit();
    }
    connection.execute("BEGIN");
}

void SQLiteOpening::create(SQLite::Connection& connection) {
    std::vector<std::int64_t> numbers(space_->model().entities().size());
    std::iota(numbers.begin(), numbers.end(), 1);
    createStoreTables(connection, *space_, numbers, {});
}

void SQLiteOpening::checkFormat(SQLite::Connection& connection) const {
    if (connection.integer("PRAGMA application_id") != storeApplicationID)
        throw Refused::because("it is another application's: " + path_);
    if (connection.integer("PRAGMA user_version") > storeFormatVersion)
        throw Postponed(storeError(StoreErrorCode::StoreOpen, "The store was written by a newer version: " + path_));
}

/// A look whose cost does not grow with the file: a small one is checked wholly, of a large one the ends of every table.
void SQLiteOpening::checkPages(SQLite::Connection& connection) const {
    if (connection.integer("PRAGMA page_count") <= smallFilePages) {
        checkAllPages(connection);
        return;
    }
    readEndsOfTables(connection);
}

/// A file is damaged when three looks say so, each without what the one before left in memory, and when nothing keeps it from being
/// read: SQLite tells a page that it could not read as one more finding ("unable to get the page. error code=266"), and that is for
/// waiting, not for refusing.
void SQLiteOpening::checkAllPages(SQLite::Connection& connection) const {
    std::string problem;
    for (int look = 0; look < 3; ++look) {
        if (look != 0) {
            connection.execute("PRAGMA shrink_memory");
            std::this_thread::sleep_for(std::chrono::milliseconds(40));
        }
        problem = connection.text("PRAGMA quick_check(1)");
        if (problem == "ok") return;
        if (problem.empty()) throw std::bad_alloc();
        requireReadable(problem);
    }
    throw Refused::because("it is damaged: " + problem);
}

void SQLiteOpening::requireReadable(std::string const& problem) const {
    // Of a free page it does not say why; one beyond the end of the file is told otherwise.
    bool const isUnreadablePage = problem.find("failed to get page") != problem.npos;
    if (isUnreadablePage) throw Postponed(storeError(StoreErrorCode::StoreOpen, "The store cannot be read: " + problem));
    static constexpr std::string_view unreadable = "error code";
    if (auto const at = problem.find(unreadable); at != problem.npos) {
        int const code = std::atoi(problem.c_str() + at + unreadable.size() + 1) & 0xFF;
        if (code != SQLITE_CORRUPT && code != SQLITE_NOTADB)
            throw Postponed(storeError(StoreErrorCode::StoreOpen, "The store cannot be read: " + problem));
    }
    SQLite::RawFile file(path_); // a stream would drop this process's locks when it closes
    std::vector<std::byte> buffer(1 << 16);
    for (std::int64_t at = 0; file.read(at, buffer);) at += static_cast<std::int64_t>(buffer.size());
}

std::optional<std::vector<std::int64_t>> SQLiteOpening::numbersOfSameModel(SQLite::Connection& connection) const {
    auto numbers = storedNumbers(connection, space_->model());
    if (numbers &&
        connection.text("SELECT value FROM tessarin_store WHERE key = 'model'") != storedModelText(space_->model(), *numbers))
        numbers.reset();
    return numbers;
}

std::vector<std::int64_t> SQLiteOpening::bringToModel(SQLite::Connection& connection) {
    if (auto numbers = numbersOfSameModel(connection)) return *std::move(numbers);
    if (!options_.infersMapping)
        throw Refused::because("it was written with another model, and inferring a mapping is not asked for");
    connection.execute("COMMIT");
    SQLite::Transaction transaction(connection);
    auto const stored = storedModelOfText(connection.text("SELECT value FROM tessarin_store WHERE key = 'model'"));
    if (!stored) throw Refused::because("the description of its model is damaged");
    try {
        auto result = SQLiteMigration(connection, *stored, *space_).run();
        transaction.commit();
        connection.execute("BEGIN");
        return result;
    } catch (Refused const&) {
        Ref<NSError> ignored;
        plan_ = MigrationPlan::between(*stored->model, space_->model(), ignored);
        throw;
    }
}

} // namespace Tessarin
