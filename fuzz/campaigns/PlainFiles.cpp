// The calls stand here under their own names, so that those of this program are bound before the C library's, for every library.
#include "fuzz/campaigns/PlainFiles.h"

#include "fuzz/campaigns/FaultyFiles.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace Tessarin::campaigns::PlainFiles {
namespace {

std::atomic<bool> isOn{false};
thread_local bool isInside = false; // what the model itself does is not its matter

PlainDisk& theDisk() {
    static auto& disk = *new PlainDisk;
    return disk;
}

/// The call as it is without this file.
template <class Call> Call* realCall(char const* name) { return reinterpret_cast<Call*>(::dlsym(RTLD_NEXT, name)); }
#define REAL(name)                                                                                                               \
    (*[] {                                                                                                                       \
        static auto* const call = realCall<decltype(::name)>(#name);                                                             \
        return call;                                                                                                             \
    }())

class Inside {
public:
    Inside() { isInside = true; }
    ~Inside() { isInside = false; }
};

std::string pathOf(int descriptor) {
    char path[4096];
    auto const size = ::readlink(("/proc/self/fd/" + std::to_string(descriptor)).c_str(), path, sizeof path);
    return size > 0 ? std::string(path, static_cast<std::size_t>(size)) : std::string{};
}

std::string pathOf(int folder, char const* path) {
    return *path == '/' || folder == AT_FDCWD ? path : pathOf(folder) + '/' + path;
}

/// Makes a call on a file or a folder that is followed: it may fail instead, and the disk hears of it when it has succeeded.
template <class Call, class Tell> int through(std::string const& path, FaultyFiles::Needs needs, Call call, Tell tell) {
    if (!isOn || isInside || !theDisk().follows(path)) return call();
    int result = 0, reason = 0;
    {
        Inside const inside;
        theDisk().operationBegins();
        reason = FaultyFiles::systemFault(needs);
        if (reason == 0 && (result = static_cast<int>(call())) < 0) reason = errno;
        if (reason == 0) tell(theDisk());
    }
    if (reason != 0) errno = reason;
    return reason != 0 ? -1 : result;
}

constexpr auto nothing = FaultyFiles::Needs::Nothing, space = FaultyFiles::Needs::Space;
bool concerns(int descriptor) { return isOn && !isInside && theDisk().follows(pathOf(descriptor)); }

/// Tells the disk what a descriptor's file now holds from `at` on.
void tellWritten(PlainDisk& disk, int descriptor, std::int64_t at, ssize_t size) {
    auto const path = pathOf(descriptor);
    std::string bytes(static_cast<std::size_t>(size), '\0');
    int const reader = REAL(open)(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (reader < 0) return; // it has no name any more
    if (::pread(reader, bytes.data(), bytes.size(), at) == size) disk.wrote(path, at, std::move(bytes));
    ::close(reader);
}

/// A write, of which half may be done. `at` is where it begins.
template <class Call> ssize_t writing(int descriptor, std::int64_t at, std::size_t size, Call call) {
    bool const isShort = FaultyFiles::isShortWrite();
    ssize_t written = 0;
    int const result = through(
        pathOf(descriptor), space, [&] { return (written = call(isShort ? size / 2 : size)) < 0 ? -1 : 0; },
        [&](PlainDisk& disk) { tellWritten(disk, descriptor, at, written); });
    if (result == 0 && isShort) return errno = EIO, -1;
    return result == 0 ? written : -1;
}

std::int64_t placeOf(int descriptor) {
    return (::fcntl(descriptor, F_GETFL) & O_APPEND) != 0 ? ::lseek(descriptor, 0, SEEK_END) : ::lseek(descriptor, 0, SEEK_CUR);
}

template <class Call> int opening(std::string const& path, int flags, Call call) {
    bool const mayMake = (flags & O_CREAT) != 0;
    return through(path, mayMake ? space : nothing, call, [&](PlainDisk& disk) {
        if (mayMake) disk.madeFile(path);
        if ((flags & O_TRUNC) != 0) disk.truncated(path, 0);
    });
}

mode_t modeFrom(int flags, va_list rest) { return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0; }

} // namespace

void begin(std::string folder) {
    Inside const inside;
    theDisk().follow(std::move(folder));
    isOn = true;
}
void end() {
    isOn = false;
    theDisk().follow({});
}
PlainDisk& disk() { return theDisk(); }

} // namespace Tessarin::campaigns::PlainFiles

using namespace Tessarin::campaigns::PlainFiles;
using Tessarin::campaigns::PlainDisk;
#define CALL extern "C" __attribute__((visibility("default")))
#define OPEN(name, nameAt)                                                                                                       \
    CALL int name(char const* path, int flags, ...) {                                                                            \
        va_list rest;                                                                                                            \
        va_start(rest, flags);                                                                                                   \
        auto const mode = modeFrom(flags, rest);                                                                                 \
        va_end(rest);                                                                                                            \
        return opening(path, flags, [&] { return REAL(name)(path, flags, mode); });                                              \
    }                                                                                                                            \
    CALL int nameAt(int folder, char const* path, int flags, ...) {                                                              \
        va_list rest;                                                                                                            \
        va_start(rest, flags);                                                                                                   \
        auto const mode = modeFrom(flags, rest);                                                                                 \
        va_end(rest);                                                                                                            \
        return opening(pathOf(folder, path), flags, [&] { return REAL(nameAt)(folder, path, flags, mode); });                    \
    }
OPEN(open, openat)
OPEN(open64, openat64)

CALL ssize_t write(int to, void const* from, size_t size) {
    if (!concerns(to)) return REAL(write)(to, from, size);
    return writing(to, placeOf(to), size, [&](size_t part) { return REAL(write)(to, from, part); });
}
CALL ssize_t writev(int to, iovec const* parts, int count) {
    if (!concerns(to)) return REAL(writev)(to, parts, count);
    auto const some = [&](size_t part) { return REAL(writev)(to, parts, static_cast<int>(part)); };
    return writing(to, placeOf(to), static_cast<size_t>(count), some);
}
CALL ssize_t pwrite64(int to, void const* from, size_t size, off64_t at) {
    if (!concerns(to)) return REAL(pwrite64)(to, from, size, at);
    return writing(to, at, size, [&](size_t part) { return REAL(pwrite64)(to, from, part, at); });
}
CALL ssize_t sendfile(int to, int from, off_t* at, size_t size) noexcept {
    if (!concerns(to)) return REAL(sendfile)(to, from, at, size);
    return writing(to, placeOf(to), size, [&](size_t part) { return REAL(sendfile)(to, from, at, part); });
}
CALL int ftruncate64(int file, off64_t size) noexcept {
    auto const path = isOn ? pathOf(file) : std::string{};
    return through(
        path, space, [&] { return REAL(ftruncate64)(file, size); }, [&](PlainDisk& disk) { disk.truncated(path, size); });
}
CALL int fsync(int file) {
    auto const path = isOn ? pathOf(file) : std::string{};
    return through(
        path, space, [&] { return REAL(fsync)(file); }, [&](PlainDisk& disk) { disk.synced(path); });
}
CALL int fdatasync(int file) {
    auto const path = isOn ? pathOf(file) : std::string{};
    return through(
        path, space, [&] { return REAL(fdatasync)(file); }, [&](PlainDisk& disk) { disk.synced(path); });
}
CALL int fchmod(int file, mode_t mode) noexcept {
    return through(
        isOn ? pathOf(file) : std::string{}, nothing, [&] { return REAL(fchmod)(file, mode); }, [](PlainDisk&) {});
}
CALL int rename(char const* from, char const* to) noexcept {
    return through(
        from, space, [&] { return REAL(rename)(from, to); }, [&](PlainDisk& disk) { disk.renamed(from, to); });
}
CALL int renameat2(int fromFolder, char const* from, int toFolder, char const* to, unsigned flags) noexcept {
    auto const old = pathOf(fromFolder, from);
    return through(
        old, space, [&] { return REAL(renameat2)(fromFolder, from, toFolder, to, flags); },
        [&](PlainDisk& disk) { disk.renamed(old, pathOf(toFolder, to)); });
}
CALL int renameat(int fromFolder, char const* from, int toFolder, char const* to) noexcept {
    return renameat2(fromFolder, from, toFolder, to, 0);
}
CALL int linkat(int fromFolder, char const* from, int toFolder, char const* to, int flags) noexcept {
    auto const old = pathOf(fromFolder, from);
    return through(
        old, space, [&] { return REAL(linkat)(fromFolder, from, toFolder, to, flags); },
        [&](PlainDisk& disk) { disk.linked(old, pathOf(toFolder, to)); });
}
CALL int link(char const* from, char const* to) noexcept { return linkat(AT_FDCWD, from, AT_FDCWD, to, 0); }
CALL int unlinkat(int folder, char const* path, int flags) noexcept {
    auto const full = pathOf(folder, path);
    return through(
        full, nothing, [&] { return REAL(unlinkat)(folder, path, flags); }, [&](PlainDisk& disk) { disk.removed(full); });
}
CALL int unlink(char const* path) noexcept { return unlinkat(AT_FDCWD, path, 0); }
CALL int rmdir(char const* path) noexcept { return unlinkat(AT_FDCWD, path, AT_REMOVEDIR); }
CALL int remove(char const* path) noexcept {
    auto const tell = [&](PlainDisk& disk) { disk.removed(path); };
    return through(
        path, nothing, [&] { return REAL(remove)(path); }, tell);
}
CALL int mkdirat(int folder, char const* path, mode_t mode) noexcept {
    auto const full = pathOf(folder, path);
    return through(
        full, space, [&] { return REAL(mkdirat)(folder, path, mode); }, [&](PlainDisk& disk) { disk.madeFolder(full); });
}
CALL int mkdir(char const* path, mode_t mode) noexcept { return mkdirat(AT_FDCWD, path, mode); }
