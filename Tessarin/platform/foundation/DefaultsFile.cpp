#include "Tessarin/platform/foundation/DefaultsFilePrivate.h"

#include "Tessarin/platform/foundation/NSError.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace Tessarin::defaults {
namespace {

using files::Descriptor;
using namespace std::chrono_literals;

/// With the folders on the way to it. Only the user looks into preferences.
void makeFolders(std::string const& folder) {
    for (auto at = folder.find('/', 1);; at = folder.find('/', at + 1)) {
        ::mkdir(folder.substr(0, at).c_str(), 0700);
        if (at == folder.npos) return;
    }
}

/// The folder is made when that shows that it is missing.
int openLock(std::string const& path) {
    auto const open = [&] { return ::open(path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0600); }; // closing a writer would wake watchers
    if (auto const opened = open(); opened >= 0 || errno != ENOENT) return opened;
    makeFolders(path.substr(0, path.rfind('/')));
    return open();
}

/// A file that must not be there yet, with its final mode from the start.
bool fill(std::string const& path, std::string_view text, mode_t mode) {
    Descriptor const file{::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode)};
    return file.number >= 0 && ::fchmod(file.number, mode) == 0 && files::writeAll(file.number, std::as_bytes(std::span{text})) &&
           ::fsync(file.number) == 0;
}

[[noreturn]] void removeAndFail(std::string const& half, std::string const& path) {
    auto const reason = errno;
    ::unlink(half.c_str());
    errno = reason;
    files::fail(path);
}

std::string readOrEmpty(std::string const& path) try {
    return files::readText(path);
} catch (ErrorException const& failure) {
    if (failure.error()->code() == ENOENT || failure.error()->code() == ENOTDIR) return {};
    throw;
}

} // namespace

void DefaultsFile::makeFolder() const { makeFolders(folder()); }

std::string DefaultsFile::read() const { return readOrEmpty(path_); }

void DefaultsFile::write(std::string_view text) const {
    auto const half = path_ + ".new"; // always the same, so that what a killed process left is used up by the next one
    struct stat existing {};
    auto const mode = ::stat(path_.c_str(), &existing) == 0 ? existing.st_mode & 07777 : 0600;
    ::unlink(half.c_str()); // or what somebody put there; not written through, should it be a link
    if (!fill(half, text, mode) || ::rename(half.c_str(), path_.c_str()) != 0) removeAndFail(half, path_);
    // Without this a loss of power may bring the old file back. A file system that cannot do it for folders does without.
    if (Descriptor const opened{::open(folder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)}; opened.number >= 0) ::fsync(opened.number);
}

std::string DefaultsFile::setAside(std::string_view text) const {
    for (int number = 1;; ++number) {
        auto const place = path_ + (number == 1 ? ".broken" : ".broken-" + std::to_string(number));
        if (fill(place, text, 0600)) return place;
        if (errno != EEXIST) removeAndFail(place, place);
        if (readOrEmpty(place) == text) return place;
    }
}

DefaultsFile::Lock::Lock(DefaultsFile const& file) : file_(openLock(file.lockPath_)) {
    if (file_.number < 0) files::fail(file.lockPath_);
    auto const giveUp = std::chrono::steady_clock::now() + 5s;
    for (auto pause = 100us; ::flock(file_.number, LOCK_EX | LOCK_NB) != 0; pause = std::min<std::chrono::microseconds>(pause * 2, 10ms)) {
        if ((errno != EWOULDBLOCK && errno != EINTR) || std::chrono::steady_clock::now() > giveUp) files::fail(file.lockPath_);
        std::this_thread::sleep_for(pause);
    }
}

} // namespace Tessarin::defaults
