#include "Tessarin/platform/objectgraph/persistence/SQLiteOpeningPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/SQLiteFileChecksPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/SQLiteMigrationPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/SQLiteStoredModelPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/SQLiteVerdictPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/StoreErrors.h"
#include "Tessarin/platform/objectgraph/persistence/StoreRescuePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/ValueJSON.h"
#include "Tessarin/platform/sqlite/Transaction.h"

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <fcntl.h>
#include <fmt/format.h>
#include <numeric>
#include <sqlite3.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace Tessarin {
namespace {

constexpr std::int64_t smallFilePages = 64;

SQLite::ConnectionOptions connectionOptions(SQLiteStoreOptions const& options) {
    return {.access = SQLite::Access::Write,
            .busySeconds = options.busySeconds,
            .cacheKilobytes = options.cacheKilobytes,
            .synchronous = static_cast<SQLite::Synchronous>(options.synchronous)};
}

bool isEmpty(SQLite::Connection& connection) { return connection.integer("SELECT count(*) FROM sqlite_schema") == 0; }

} // namespace

SQLiteOpening::SQLiteOpening(NSURL const& file, Ref<RowSpace> space, SQLiteStoreOptions options)
    : file_(file),
      path_(file.path()),
      space_(std::move(space)),
      options_(options),
      connectionOptions_(connectionOptions(options)) {}

std::unique_ptr<SQLiteStore::Impl> SQLiteOpening::run(Ref<NSError>& error) {
    using namespace std::chrono_literals;
    for (auto pause = 5ms;; pause = std::min<std::chrono::milliseconds>(pause * 2, 1s)) {
        try {
            return attempt();
        } catch (Refused const& refused) {
            error = refused.error();
            return nullptr;
        } catch (ErrorException const&) { // postponed, or the rescue of a refused file had to be
        } catch (std::bad_alloc const&) {}
        std::this_thread::sleep_for(pause);
    }
}

std::unique_ptr<SQLiteStore::Impl> SQLiteOpening::attempt() {
    checkPlace();
    std::unique_ptr<SQLite::Connection> connection;
    try {
        auto options = connectionOptions_;
        options.access = SQLite::Access::Create;
        connection = std::make_unique<SQLite::Connection>(path_, options);
        connection->leavesLog(true);
        if (connection->isReadOnly()) throwReadOnly();
        // One read transaction around all that is looked at: each of its own costs four locks.
        connection->execute("BEGIN");
        makeIfEmpty(*connection);
        checkFormat(*connection);
        requireNoViewInPlaceOfATable(*connection, *space_);
        checkPages(*connection);
        auto impl = std::make_unique<SQLiteStore::Impl>(file_, space_, bringToModel(*connection), connectionOptions_);
        impl->modelGeneration = connection->integer("SELECT value FROM tessarin_store WHERE key = 'modelGeneration'");
        impl->keys.startBehind(largestKey(*connection, impl->schema));
        impl->metadata.read(*connection);
        impl->identifier = impl->metadata.get()["NSStoreUUID"].text();
        if (impl->identifier.empty()) throw Refused::because("its identity is missing");
        connection->execute("COMMIT");
        connection->leavesLog(false);
        impl->readers->add(std::move(connection));
        return impl;
    } catch (SQLite::Failure const& failure) {
        try {
            throwVerdict(failure);
        } catch (Refused const&) {
            rescueStore(path_);
            throw;
        }
    } catch (Refused const&) {
        rescueStore(path_); // before the connection goes
        throw;
    }
}

/// What stands at the path, before SQLite looks at it.
void SQLiteOpening::checkPlace() const {
    if (!file_.isFileURL() || path_.empty()) throw Refused::because("it is no file: " + file_.absoluteString());
    struct stat status {};
    if (::stat(path_.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) throwVerdict(EISDIR, path_);
        if (!S_ISREG(status.st_mode)) throw Refused::because("it is neither a file nor absent: " + path_);
        // SQLite would open it for reading then, and make a log with the same mode, which stays after the permission has come.
        if (::faccessat(AT_FDCWD, path_.c_str(), R_OK | W_OK, AT_EACCESS) != 0) throwVerdict(errno, path_);
        return;
    }
    auto const reason = errno;
    // A file where the store's own folder should be is the owner's to remove; further up, a mount may be missing.
    auto const folder = std::filesystem::path(path_).parent_path();
    if (reason == ENOTDIR && ::stat(folder.c_str(), &status) == 0)
        throw Refused::because("its folder is a file: " + folder.string());
    if (reason != ENOENT) throwVerdict(reason, path_);
    if (::stat(folder.empty() ? "." : folder.c_str(), &status) != 0) throwVerdict(errno, folder.string());
}

/// SQLite lets a file only be read where the file system says so, and where the header asks for a newer SQLite.
void SQLiteOpening::throwReadOnly() const {
    static constexpr std::streamoff writeVersionPlace = 18;
    static constexpr int writeVersionOfLogs = 2;
    std::ifstream input(path_, std::ios::binary);
    if (input.seekg(writeVersionPlace) && input.get() > writeVersionOfLogs)
        throw Postponed(storeError(StoreErrorCode::StoreOpen, "The store can only be written by a newer version of SQLite: " + path_));
    throwVerdict(EROFS, path_);
}

void SQLiteOpening::makeIfEmpty(SQLite::Connection& connection) {
    if (!isEmpty(connection)) return;
    if (auto const other = connection.integer("PRAGMA application_id"); other != 0 && other != storeApplicationID)
        throw Refused::because("it is another application's: " + path_);
    connection.execute("COMMIT; PRAGMA journal_mode = WAL");
    {
        SQLite::Transaction transaction(connection);
        if (isEmpty(connection)) create(connection); // unless another process was faster
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
    if (connection.text("PRAGMA journal_mode") != "wal")
        connection.execute("COMMIT; PRAGMA journal_mode = WAL; BEGIN"); // another tool changed it
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
    static constexpr std::string_view unreadable = "error code";
    if (auto const at = problem.find(unreadable); at != problem.npos) {
        int const code = std::atoi(problem.c_str() + at + unreadable.size() + 1) & 0xFF;
        if (code != SQLITE_CORRUPT && code != SQLITE_NOTADB) throw Postponed(storeError(StoreErrorCode::StoreOpen, "The store cannot be read: " + problem));
    }
    errno = 0;
    std::ifstream input(path_, std::ios::binary);
    char buffer[4096];
    while (input.read(buffer, sizeof buffer)) {}
    if (!input.eof()) throwVerdict(errno != 0 ? errno : EIO, path_);
}

std::vector<std::int64_t> SQLiteOpening::bringToModel(SQLite::Connection& connection) {
    auto numbers = storedNumbers(connection, space_->model());
    if (numbers &&
        connection.text("SELECT value FROM tessarin_store WHERE key = 'model'") == storedModelText(space_->model(), *numbers))
        return *numbers;
    if (!options_.infersMapping)
        throw Refused::because("it was written with another model, and inferring a mapping is not asked for");
    connection.execute("COMMIT");
    SQLite::Transaction transaction(connection);
    auto const stored = storedModelOfText(connection.text("SELECT value FROM tessarin_store WHERE key = 'model'"));
    if (!stored) throw Refused::because("the description of its model is damaged");
    auto result = SQLiteMigration(connection, *stored, *space_).run();
    transaction.commit();
    connection.execute("BEGIN");
    return result;
}

} // namespace Tessarin
