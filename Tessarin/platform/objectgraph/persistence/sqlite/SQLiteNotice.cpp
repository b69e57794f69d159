#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteNoticePrivate.h"

#include "Tessarin/platform/foundation/processes/SpawnPrivate.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessarin {
namespace {

std::string realPath(std::string const& path) {
    std::error_code failed;
    auto real = std::filesystem::canonical(path, failed).native();
    return failed ? path : real;
}

} // namespace

SQLiteNotice::SQLiteNotice(std::string const& database) : database_(realPath(database)), path_(database_ + ending) {}

/// 0 or an errno; also 0 where somebody else was faster.
int SQLiteNotice::make() const noexcept {
    struct stat database {};
    if (::stat(database_.c_str(), &database) != 0) return errno;
    processes::Handle const file{::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600)};
    if (!file) return errno == EEXIST ? 0 : errno;
    // As SQLite does for the log: whoever may write to the store may touch it.
    if (::geteuid() == 0 && ::fchown(file.number(), database.st_uid, database.st_gid) != 0) return errno;
    return ::fchmod(file.number(), database.st_mode & 0777) == 0 ? 0 : errno;
}

void SQLiteNotice::touch() const noexcept {
    auto const setTimes = [&] { return ::utimensat(AT_FDCWD, path_.c_str(), nullptr, AT_SYMLINK_NOFOLLOW); };
    if (setTimes() != 0 && errno == ENOENT && make() == 0) setTimes();
}

Ref<FileWatch> SQLiteNotice::watch(bool mayMake, FileWatch::Told told, int& problem) const {
    problem = mayMake ? make() : 0;
    return problem == 0 ? FileWatch::of(path_, std::move(told), problem) : nullptr;
}

Ref<FileWatch> SQLiteNotice::watchForMaking(FileWatch::Told told) const {
    int problem = 0;
    return FileWatch::ofMaking(path_, std::move(told), problem);
}

} // namespace Tessarin
