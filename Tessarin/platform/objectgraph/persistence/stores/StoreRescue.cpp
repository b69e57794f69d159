#include "Tessarin/platform/objectgraph/persistence/stores/StoreRescuePrivate.h"

#include "Tessarin/platform/sqlite/RawFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <fmt/format.h>
#include <fstream>
#include <span>
#include <sys/stat.h>

namespace Tessarin {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t keptCount = 3;
constexpr std::array endings{"", "-wal", "-shm", "-journal",
                             "-notice"}; // the last holds nothing, and comes along in a moved folder

[[noreturn]] void fail(int code, fs::path const& path) { throw ErrorException(NSError::errorWithErrno(code, path.native())); }

/// With these permissions, whatever the process masks.
bool makeFolder(fs::path const& path, mode_t mode) {
    if (::mkdir(path.c_str(), mode) != 0) return false;
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && (status.st_mode & 0777) != mode)
        ::chmod(path.c_str(), (status.st_mode & 07000) | mode);
    return true;
}

constexpr std::size_t chunkSize = 1 << 20;

/// The bytes of a file that this process may have open as a database: read in any other way, it would lose its locks on it.
class DatabaseBytes {
public:
    explicit DatabaseBytes(fs::path const& path) : path_(path), file_(path.native()) {
        std::error_code failed;
        left_ = fs::file_size(path, failed);
        if (failed) fail(failed.value(), path);
    }
    /// The next of them; none at the end.
    std::span<std::byte const> next() {
        auto const chunk = std::span(buffer_).first(static_cast<std::size_t>(std::min<std::uintmax_t>(left_, chunkSize)));
        if (!chunk.empty() && !file_.read(at_, chunk)) fail(EIO, path_); // it became shorter
        at_ += static_cast<std::int64_t>(chunk.size());
        left_ -= chunk.size();
        return chunk;
    }

private:
    fs::path const path_;
    SQLite::RawFile file_;
    std::vector<std::byte> buffer_ = std::vector<std::byte>(chunkSize);
    std::uintmax_t left_ = 0;
    std::int64_t at_ = 0;
};

void copyBytes(fs::path const& from, fs::path const& to) {
    DatabaseBytes bytes(from);
    errno = 0;
    std::ofstream output(to, std::ios::binary);
    for (auto chunk = bytes.next(); output && !chunk.empty(); chunk = bytes.next())
        output.write(reinterpret_cast<char const*>(chunk.data()), static_cast<std::streamsize>(chunk.size()));
    output.close();
    if (!output) fail(errno != 0 ? errno : EIO, to);
}

void keepLink(fs::path const& from, fs::path const& to) {
    std::error_code failed;
    fs::create_hard_link(from, to, failed);
    if (!failed) return;
    if (from.native().ends_with("-shm")) return; // made anew from the log, and full of locks
    copyBytes(from, to);                         // a file system without links
}

/// Whether the copy is a link to the file, or where there are no links holds the same.
bool isSame(fs::path const& file, fs::path const& copy) try {
    std::error_code none;
    if (fs::equivalent(file, copy, none)) return true;
    if (none || fs::hard_link_count(copy, none) != 1 || fs::file_size(file, none) != fs::file_size(copy, none)) return false;
    DatabaseBytes one(file), other(copy);
    for (;;) {
        auto const left = one.next(), right = other.next();
        if (!std::ranges::equal(left, right)) return false;
        if (left.empty()) return true;
    }
} catch (ErrorException const&) { // what cannot be compared is kept once more
    return false;
}

/// A copy's number, before what an interrupted move added to it; absent for a name that somebody else gave.
std::optional<std::uint64_t> numberOf(std::string const& name) {
    std::uint64_t number = 0;
    auto const [end, failure] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (failure != std::errc{} || (*end != '\0' && std::string_view(end) != ".moved")) return {};
    return number;
}

} // namespace

bool makeFolders(std::string const& path, mode_t mode) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0) return S_ISDIR(status.st_mode) || (errno = ENOTDIR, false);
    auto const parent = fs::path(path).parent_path();
    if (parent != path && !parent.empty() && !makeFolders(parent.native(), mode)) return false;
    return makeFolder(path, mode) || errno == EEXIST;
}

RescuedCopies::RescuedCopies(std::string const& file, mode_t fileMode)
    : file_(fs::absolute(file)),
      owner_(file_.parent_path()),
      folder_(owner_.parent_path() / fmt::format(".{}.rescued", owner_.filename().string())),
      folderMode_(folderMode(fileMode)) {}

std::vector<std::pair<std::uint64_t, fs::path>> RescuedCopies::all() const {
    std::vector<std::pair<std::uint64_t, fs::path>> found;
    std::error_code none;
    for (fs::directory_iterator it(folder_, none), end; !none && it != end; it.increment(none))
        if (auto const number = numberOf(it->path().filename())) found.emplace_back(*number, it->path());
    std::ranges::sort(found);
    return found;
}

fs::path RescuedCopies::newPlace() const {
    if (!makeFolders(folder_.native(), folderMode_)) fail(errno, folder_);
    auto const earlier = all();
    for (auto number = earlier.empty() ? 1 : earlier.back().first + 1;; ++number) {
        auto place = folder_ / std::to_string(number);
        if (std::error_code none; fs::symlink_status(place, none).type() != fs::file_type::not_found) continue;
        if (makeFolder(place, folderMode_)) return place;
        if (errno != EEXIST) fail(errno, place);
    }
}

std::optional<std::string> RescuedCopies::keep() const {
    std::error_code none;
    auto const real = fs::is_symlink(file_, none) ? fs::canonical(file_, none) : file_; // the log lies beside the file itself
    auto const existing = [&](char const* ending) {
        auto const path = real.native() + ending;
        return fs::is_regular_file(path, none) && fs::file_size(path, none) > 0;
    };
    if (std::ranges::none_of(endings, existing)) return {};
    auto const isKeptIn = [&](fs::path const& copy) {
        return std::ranges::all_of(endings, [&](auto const* ending) {
            return !existing(ending) || std::string_view(ending) == "-shm" ||
                   isSame(real.native() + ending, copy / (file_.filename().native() + ending));
        });
    };
    if (auto const earlier = all(); !earlier.empty() && isKeptIn(earlier.back().second)) return earlier.back().second.native();
    auto const place = newPlace();
    try {
        for (auto const* ending : endings)
            if (existing(ending)) keepLink(real.native() + ending, place / (file_.filename().native() + ending));
    } catch (...) { // a part of it must not count as a copy
        discard(place);
        throw;
    }
    prune(place);
    return place.native();
}

std::string RescuedCopies::moveFolder(std::optional<std::string> const& place) const {
    bool const isReused = place && isOurs(*place); // not one that holds the same and something else beside
    fs::path const target = isReused ? fs::path(*place) : newPlace();
    // By way of another name, so that the links there stay until nothing can fail any more.
    fs::path const passing = target.native() + ".moved";
    if (::rename(owner_.c_str(), passing.c_str()) != 0) {
        auto const code = errno;
        if (!isReused) ::rmdir(target.c_str());
        fail(code, owner_);
    }
    auto const final = discard(target) && ::rename(passing.c_str(), target.c_str()) == 0 ? target : passing;
    prune(final);
    makeFolders(owner_.native(), folderMode_);
    return final.native();
}

bool RescuedCopies::isOurs(fs::path const& place) const {
    std::error_code none;
    if (fs::symlink_status(place, none).type() != fs::file_type::directory) return false;
    for (fs::directory_iterator it(place, none), end; it != end; it.increment(none)) {
        auto const name = it->path().filename().native();
        bool const isNamedSo =
            std::ranges::any_of(endings, [&](auto const* ending) { return name == file_.filename().native() + ending; });
        if (!isNamedSo || it->symlink_status(none).type() != fs::file_type::regular) return false;
    }
    return !none;
}

bool RescuedCopies::discard(fs::path const& place) const {
    if (!isOurs(place)) return false;
    for (auto const* ending : endings) ::unlink((place / (file_.filename().native() + ending)).c_str());
    return ::rmdir(place.c_str()) == 0;
}

void RescuedCopies::prune(fs::path const& newest) const {
    auto const copies = all();
    for (std::size_t at = 0; at + keptCount < copies.size(); ++at)
        if (copies[at].second != newest) discard(copies[at].second);
}

} // namespace Tessarin
