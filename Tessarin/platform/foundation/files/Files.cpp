#include "Tessarin/platform/foundation/files/FilesPrivate.h"

#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/foundation/values/NSUUID.h"

#include <cerrno>
#include <fcntl.h>
#include <algorithm>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessarin::files {

Descriptor::~Descriptor() {
    if (number >= 0) ::close(number);
}

bool writeAll(int descriptor, std::span<std::byte const> bytes) {
    while (!bytes.empty()) {
        auto const written = ::write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) return false;
        if (written > 0) bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return true;
}

std::string resolved(std::string const& path) {
    namespace fs = std::filesystem;
    constexpr int mostLinks = 40; // as the system follows
    std::error_code failure;
    fs::path at = path;
    for (int links = 0; links < mostLinks && fs::is_symlink(at, failure); ++links) {
        auto const target = fs::read_symlink(at, failure);
        if (failure) return path;
        at = at.parent_path() / target; // which is `target` where that begins with a slash
    }
    return fs::is_symlink(at, failure) ? path : at.native();
}

namespace {

bool fill(std::string const& temporary, std::string const& target, std::span<std::byte const> bytes) {
    struct stat existing {};
    bool const exists = ::stat(target.c_str(), &existing) == 0;
    mode_t const mode = exists ? existing.st_mode & 07777 : 0666;
    // With its final mode from the start: nobody may open what the file itself would keep from them.
    Descriptor const file{::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode)};
    if (file.number < 0 || (exists && ::fchmod(file.number, mode) != 0)) return false; // what the umask took away
    return writeAll(file.number, bytes) && ::fsync(file.number) == 0;
}

} // namespace

void fail(std::string const& path) { throw ErrorException(NSError::errorWithErrno(errno, path)); }

void requirePath(std::string const& path) {
    if (path.find('\0') == path.npos) return;
    errno = EINVAL;
    fail(path);
}

std::vector<std::byte> read(std::string const& path) {
    requirePath(path);
    return read(Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC)), path);
}

std::vector<std::byte> read(Descriptor const& file, std::string const& path) {
    struct stat status {};
    if (file.number < 0 || ::fstat(file.number, &status) != 0) fail(path);
    std::vector<std::byte> bytes(static_cast<std::size_t>(std::max<off_t>(status.st_size, 0)) + 1); // one more, to see the end
    std::size_t filled = 0;
    for (;;) {
        auto const count = ::read(file.number, bytes.data() + filled, bytes.size() - filled);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail(path);
        if (count == 0) break;
        filled += static_cast<std::size_t>(count);
        if (filled == bytes.size()) bytes.resize(filled * 2);
    }
    bytes.resize(filled);
    return bytes;
}

std::string readText(std::string const& path) {
    auto const bytes = read(path);
    return {reinterpret_cast<char const*>(bytes.data()), bytes.size()};
}

void writeAtomically(std::string const& path, std::span<std::byte const> bytes) {
    requirePath(path);
    auto const target = resolved(path);
    auto const temporary = target + "." + NSUUID::UUID().UUIDString().substr(0, 8);
    if (fill(temporary, target, bytes) && ::rename(temporary.c_str(), target.c_str()) == 0) return;
    auto const reason = errno;
    ::unlink(temporary.c_str());
    errno = reason;
    fail(path);
}

} // namespace Tessarin::files
