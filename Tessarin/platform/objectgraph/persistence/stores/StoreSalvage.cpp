#include "Tessarin/platform/objectgraph/persistence/stores/StoreSalvagePrivate.h"

#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/foundation/values/NSUUID.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteSalvagePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteStoredModelPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreMetadataPrivate.h"
#include "Tessarin/platform/sqlite/Transaction.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <numeric>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessarin {
namespace {

[[noreturn]] void fail(std::string const& path) { throw ErrorException(NSError::errorWithErrno(errno, path)); }

struct File {
    File(std::string const& path, int flags, mode_t mode = 0600) : number(::open(path.c_str(), flags | O_CLOEXEC, mode)) {
        if (number < 0) fail(path);
    }
    ~File() { ::close(number); }
    File(File const&) = delete;
    File& operator=(File const&) = delete;
    int const number;
};

/// A database's files that go with this, unless they are kept.
class Database {
public:
    Database(std::string path, mode_t mode) : path_(std::move(path)) {
        File const made(path_, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, mode);
        if (::fchmod(made.number, mode) != 0) fail(path_);
    }
    ~Database() {
        for (auto const* ending : {"", "-wal", "-shm", "-journal", "-notice"})
            ::unlink((path_ + ending).c_str());
    }
    Database(Database const&) = delete;
    Database& operator=(Database const&) = delete;
    std::string const& path() const noexcept { return path_; }
    /// It has another name from now on, which nothing had.
    void moveTo(std::string const& place) {
        if (::renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, place.c_str(), RENAME_NOREPLACE) == 0) return;
        if (errno != EINVAL && errno != ENOSYS) fail(place);
        if (::link(path_.c_str(), place.c_str()) != 0)
            fail(place); // a file system that cannot rename so; the first name goes with this
    }

private:
    std::string const path_;
};

/// What the device cannot read becomes zeros, a page at a time.
void copy(std::string const& from, std::string const& to) {
    static constexpr std::size_t page = 4096;
    File const source(from, O_RDONLY), target(to, O_WRONLY | O_CREAT | O_NOFOLLOW);
    struct stat status {};
    if (::fstat(source.number, &status) != 0) fail(from);
    if (!S_ISREG(status.st_mode)) throw ErrorException(NSError::errorWithErrno(EINVAL, from));
    std::vector<char> bytes(page);
    for (off_t at = 0; at < status.st_size; at += static_cast<off_t>(page)) {
        std::ranges::fill(bytes, '\0');
        auto const read = ::pread(source.number, bytes.data(), page, at);
        if (read < 0 && errno != EIO) fail(from);
        auto const size = static_cast<std::size_t>(std::min<off_t>(static_cast<off_t>(page), status.st_size - at));
        errno = ENOSPC;
        if (::pwrite(target.number, bytes.data(), size, at) != static_cast<ssize_t>(size)) fail(to);
    }
}

/// What `read` gives; absent where damage keeps it from being read.
template <class Read> auto attempted(Read read) -> std::optional<decltype(read())> {
    try {
        return read();
    } catch (ErrorException const&) {
        return {};
    }
}

/// The model of the file, with the numbers of its entities.
StoredModel modelOf(SQLite::Connection& damaged, Ref<NSManagedObjectModel> const& model) {
    auto stored =
        attempted([&] { return storedModelOfText(damaged.text("SELECT value FROM tessarin_store WHERE key = 'model'")); });
    if (stored && *stored) return std::move(**stored);
    auto known = attempted([&] { return storedNumbers(damaged, *model); });
    std::vector<std::int64_t> numbers(model->entities().size());
    std::iota(numbers.begin(), numbers.end(), 1); // as a file gets them that was never migrated
    return {model, known && *known ? **known : numbers};
}

Dictionary metadataOf(SQLite::Connection& damaged) {
    StoreMetadata metadata;
    attempted([&] { return metadata.read(damaged), true; });
    return metadata.get();
}

} // namespace

SalvageReport salvageStore(std::string const& damagedPath, std::string const& freshPath, Ref<NSManagedObjectModel> const& model,
                           mode_t mode) {
    if (::access(freshPath.c_str(), F_OK) == 0) throw ErrorException(NSError::errorWithErrno(EEXIST, freshPath));
    // Under a name of its own until it is whole: nobody can open it before, and what a killed process leaves is in nobody's way.
    auto const name = freshPath + ".salvage-" + NSUUID::UUID().UUIDString();
    Database fresh(name, mode);
    Database const working(name + ".working", 0600);
    copy(damagedPath, working.path());
    for (auto const* ending : {"-wal", "-journal"})
        if (::access((damagedPath + ending).c_str(), F_OK) == 0) copy(damagedPath + ending, working.path() + ending);
    SalvageReport report;
    {
        SQLite::Connection damaged(working.path(), {.access = SQLite::Access::Write});
        damaged.execute("PRAGMA journal_mode = DELETE"); // brings the log's pages into the file
        auto const [ownModel, numbers] = modelOf(damaged, model);
        RowSpace space(ownModel);
        SQLiteSchema const schema(space, numbers);
        SQLite::Connection connection(fresh.path());
        connection.execute("PRAGMA journal_mode = WAL");
        SQLite::Transaction transaction(connection);
        createStoreTables(connection, space, numbers, metadataOf(damaged));
        report = SQLiteSalvage(working.path(), damaged, connection, schema).run();
        transaction.commit();
    }
    fresh.moveTo(freshPath);
    return report;
}

} // namespace Tessarin
