#include "Tessarin/platform/foundation/preferences/DefaultsFilePrivate.h"

#include "Tessarin/platform/foundation/text/Path.h"
#include "Tessarin/platform/foundation/values/NSError.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace Tessarin::defaults {
namespace {

using files::Descriptor;
using namespace std::chrono_literals;

std::string folderOf(std::string const& path) { return std::string{Path::deletingLastPathComponent(path)}; }
std::string nameOf(std::string const& path) { return std::string{Path::lastPathComponent(path)}; }

/// What this process has just made, perhaps as root, goes to whom the folder belongs. Only root may do that; what others make is
/// theirs already.
void giveToOwner(int made, Descriptor const& folder) {
    struct stat now {
    }, owner{};
    if (::fstat(made, &now) != 0 || ::fstat(folder.number, &owner) != 0 || now.st_uid != ::geteuid() ||
        now.st_uid == owner.st_uid)
        return;
    auto const group = now.st_mode & S_IRWXG ? static_cast<gid_t>(-1) : owner.st_gid; // nobody may come to read it by this
    static_cast<void>(::fchown(made, owner.st_uid, group));
}

/// Made when it is missing, with the folders on the way to it. Only the user looks into preferences.
int openFolder(std::string const& path) {
    if (auto const opened = ::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC); opened >= 0 || errno != ENOENT || path == "/")
        return opened;
    Descriptor const above{openFolder(folderOf(path))};
    auto const name = nameOf(path);
    if (above.number < 0) return -1;
    bool const isMade = ::mkdirat(above.number, name.c_str(), 0700) == 0;
    if (!isMade && errno != EEXIST) return -1;
    auto const opened = ::openat(above.number, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | (isMade ? O_NOFOLLOW : O_PATH));
    if (isMade && opened >= 0) giveToOwner(opened, above);
    return opened;
}

/// Closing a writer would wake watchers, so it is never written.
int openLock(std::string const& path) {
    constexpr int how = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    Descriptor const folder{openFolder(folderOf(path))};
    if (folder.number < 0) return -1;
    for (;;) {
        if (auto const opened = ::openat(folder.number, nameOf(path).c_str(), how); opened >= 0 || errno != ENOENT) return opened;
        auto const made = ::openat(folder.number, nameOf(path).c_str(), how | O_CREAT | O_EXCL, 0600);
        if (made >= 0) giveToOwner(made, folder);
        if (made >= 0 || errno != EEXIST) return made;
    }
}

/// A file that must not be there yet, with its final mode from the start. Leaves nothing behind where that fails.
bool fill(Descriptor const& folder, std::string const& name, std::string_view text, mode_t mode) {
    Descriptor const file{::openat(folder.number, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode)};
    if (file.number < 0) return false;
    bool const isDone = ::fchmod(file.number, mode) == 0 && files::writeAll(file.number, std::as_bytes(std::span{text}));
    giveToOwner(file.number, folder);
    if (isDone && ::fsync(file.number) == 0) return true;
    auto const reason = errno;
    ::unlinkat(folder.number, name.c_str(), 0);
    errno = reason;
    return false;
}

/// Without this a loss of power may undo what happened to names in it. A file system that cannot do it for folders does without.
void syncFolder(std::string const& path) {
    if (Descriptor const opened{::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)}; opened.number >= 0)
        ::fsync(opened.number);
}

/// A pipe or a device in place of the file neither blocks nor is read from.
std::string readOrEmpty(std::string const& path) {
    Descriptor const file{::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)};
    if (file.number < 0 && (errno == ENOENT || errno == ENOTDIR)) return {};
    struct stat status {};
    if (file.number < 0 || ::fstat(file.number, &status) != 0) files::fail(path);
    if (!S_ISREG(status.st_mode)) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        files::fail(path);
    }
    auto const bytes = files::read(file, path);
    return {reinterpret_cast<char const*>(bytes.data()), bytes.size()};
}

} // namespace

void DefaultsFile::makeFolder() const { Descriptor const folder{openFolder(folderOf(lockPath_))}; }

std::string DefaultsFile::read() const { return readOrEmpty(path_); }

bool DefaultsFile::wasTouchedLately(double seconds) const {
    struct stat status {};
    struct timespec now {};
    if (::stat(path_.c_str(), &status) != 0 && ::stat(folder().c_str(), &status) != 0) return false;
    ::clock_gettime(CLOCK_REALTIME, &now);
    auto const since =
        static_cast<double>(now.tv_sec - status.st_mtim.tv_sec) + static_cast<double>(now.tv_nsec - status.st_mtim.tv_nsec) / 1e9;
    return std::abs(since) < seconds;
}

void DefaultsFile::write(std::string_view text) const {
    Descriptor const folder{::open(folderOf(path_).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)};
    auto const name = nameOf(path_),
               half = name + ".new"; // always the same, so that what a killed process left is used up by the next one
    struct stat existing {};
    auto const mode = ::stat(path_.c_str(), &existing) == 0 ? existing.st_mode & 07777 : 0600;
    if (folder.number < 0) files::fail(path_);
    ::unlinkat(folder.number, half.c_str(), 0); // or what somebody put there; not written through, should it be a link
    if (!fill(folder, half, text, mode)) files::fail(path_);
    if (::renameat(folder.number, half.c_str(), folder.number, name.c_str()) != 0) {
        auto const reason = errno;
        ::unlinkat(folder.number, half.c_str(), 0);
        errno = reason;
        files::fail(path_);
    }
}

void DefaultsFile::finish() const { syncFolder(folder()); }

std::string DefaultsFile::setAside(std::string_view text) const {
    Descriptor const folder{::open(folderOf(path_).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)};
    for (int number = 1;; ++number) {
        auto const place = path_ + (number == 1 ? ".broken" : ".broken-" + std::to_string(number));
        if (fill(folder, nameOf(place), text, 0600)) {
            syncFolder(this->folder());
            return place;
        }
        if (errno != EEXIST) files::fail(place);
        if (readOrEmpty(place) == text) return place;
    }
}

DefaultsFile::Lock::Lock(DefaultsFile const& file) : file_(openLock(file.lockPath_)) {
    if (file_.number < 0) files::fail(file.lockPath_);
    auto const giveUp = std::chrono::steady_clock::now() + 10s;
    // Who writes again and again lets go of it for a moment only, which has to be met.
    for (auto pause = 100us; ::flock(file_.number, LOCK_EX | LOCK_NB) != 0;
         pause = std::min<std::chrono::microseconds>(pause * 2, 1ms)) {
        if ((errno != EWOULDBLOCK && errno != EINTR) || std::chrono::steady_clock::now() > giveUp) files::fail(file.lockPath_);
        std::this_thread::sleep_for(pause);
    }
}

} // namespace Tessarin::defaults
