// What stands at a store's path, before SQLite looks at it.
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteOpeningPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteLogCheckPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/sqlite/RawFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessarin {

void SQLiteOpening::checkPlace() {
    judgedPlace_ = path_;
    judged_ = StoreRefusal::identityAt(path_);
    plan_.reset();
    if (!file_.isFileURL() || path_.empty()) throw Refused::because("it is no file: " + file_.absoluteString());
    struct stat status {};
    if (::stat(path_.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) throwVerdict(EISDIR, path_);
        if (!S_ISREG(status.st_mode)) throw Refused::because("it is neither a file nor absent: " + path_);
        // SQLite would open it for reading then, and make a log with the same mode, which stays after the permission has come.
        auto const access = options_.isReadOnly ? R_OK : R_OK | W_OK;
        if (::faccessat(AT_FDCWD, path_.c_str(), access, AT_EACCESS) != 0) throwVerdict(errno, path_);
        // Somebody may have left them who could only read the file. It could be opened with them, and no save would succeed.
        for (auto const& beside : {path_ + "-shm", path_ + "-wal"})
            if (!options_.isReadOnly && ::faccessat(AT_FDCWD, beside.c_str(), W_OK, AT_EACCESS) != 0 && errno == EACCES)
                throwVerdict(errno, beside);
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
    // What SQLite makes beside it has a name, too.
    static constexpr std::size_t longestName = 255 - std::string_view("-journal").size();
    std::error_code none;
    auto const folder = std::filesystem::path(path_).parent_path();
    for (auto const& path : {std::filesystem::path(path_), folder})
        if (std::filesystem::is_symlink(path, none) && !std::filesystem::exists(path, none))
            throw Misplaced::because("the link leads nowhere", path.native());
    auto const real = std::filesystem::weakly_canonical(std::filesystem::absolute(path_, none), none);
    if (std::max(real.native().size(), path_.size()) > longestPath) throw Misplaced::because("the path is too long", path_);
    if (real.filename().native().size() > longestName) throw Misplaced::because("the file's name is too long", path_);
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

} // namespace Tessarin
