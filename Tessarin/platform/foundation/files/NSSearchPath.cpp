#include "Tessarin/platform/foundation/files/NSSearchPath.h"

#include <cstdlib>
#include <fstream>
#include <optional>
#include <pwd.h>
#include <algorithm>
#include <string_view>
#include <unistd.h>

namespace Tessarin {
namespace {

struct UserDirectory {
    NSSearchPathDirectory directory;
    char const* variable; // in user-dirs.dirs
    char const* fallback; // in the home folder
};
constexpr UserDirectory userDirectories[] = {
    {NSSearchPathDirectory::Document, "XDG_DOCUMENTS_DIR", "Documents"},
    {NSSearchPathDirectory::Desktop, "XDG_DESKTOP_DIR", "Desktop"},
    {NSSearchPathDirectory::Downloads, "XDG_DOWNLOAD_DIR", "Downloads"},
    {NSSearchPathDirectory::Movies, "XDG_VIDEOS_DIR", "Videos"},
    {NSSearchPathDirectory::Music, "XDG_MUSIC_DIR", "Music"},
    {NSSearchPathDirectory::Pictures, "XDG_PICTURES_DIR", "Pictures"},
};

std::string withoutEndingSlash(std::string path) {
    while (path.size() > 1 && path.ends_with('/')) path.pop_back();
    return path;
}

/// A base folder by its variable, which counts only when absolute, and never in a program that runs with raised rights.
std::string baseFolder(char const* variable, std::string const& home, char const* fallback) {
    auto const* const value = ::secure_getenv(variable);
    return value && *value == '/' ? withoutEndingSlash(value) : home + fallback;
}

/// The value of a line `XDG_MUSIC_DIR="$HOME/Music"`: absolute or below the home folder, quoted as a shell does.
std::optional<std::string> assigned(std::string_view line, std::string_view variable, std::string const& home) {
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    if (!line.starts_with(variable)) return {};
    line.remove_prefix(variable.size());
    if (!line.starts_with("=\"")) return {};
    line.remove_prefix(2);
    std::string path;
    if (line.starts_with("$HOME") && (line.substr(5).starts_with('/') || line.substr(5).starts_with('"'))) {
        path = home;
        line.remove_prefix(5);
    } else if (!line.starts_with('/')) {
        return {};
    }
    for (std::size_t at = 0; at < line.size() && line[at] != '"'; ++at) {
        if (line[at] == '\\' && at + 1 < line.size()) ++at;
        path += line[at];
    }
    return withoutEndingSlash(path);
}

std::string userFolder(UserDirectory const& entry, std::string const& home) {
    std::string found = home + '/' + entry.fallback, line;
    std::ifstream file(baseFolder("XDG_CONFIG_HOME", home, "/.config") + "/user-dirs.dirs");
    while (std::getline(file, line))
        if (auto path = assigned(line, entry.variable, home)) found = *std::move(path); // as in a shell, the last one counts
    return found;
}

std::optional<std::string> folder(NSSearchPathDirectory directory, std::string const& home) {
    for (auto const& entry : userDirectories)
        if (entry.directory == directory) return userFolder(entry, home);
    switch (directory) {
    case NSSearchPathDirectory::Library:
    case NSSearchPathDirectory::ApplicationSupport: return baseFolder("XDG_DATA_HOME", home, "/.local/share");
    case NSSearchPathDirectory::Caches: return baseFolder("XDG_CACHE_HOME", home, "/.cache");
    default: return {};
    }
}

} // namespace

std::string NSHomeDirectory() {
    if (auto const* const home = ::secure_getenv("HOME"); home && *home == '/') return withoutEndingSlash(home);
    passwd entry{};
    passwd* found = nullptr;
    std::string buffer(16384, '\0');
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found) return {};
    return withoutEndingSlash(found->pw_dir);
}

std::string NSTemporaryDirectory() {
    auto const* const chosen = ::secure_getenv("TMPDIR");
    std::string path = chosen && *chosen == '/' ? chosen : "/tmp";
    if (!path.ends_with('/')) path += '/';
    return path;
}

std::vector<std::string> NSSearchPathForDirectoriesInDomains(NSSearchPathDirectory directory, NSSearchPathDomainMask domains,
                                                             ExpandTilde expand) {
    if (!(static_cast<std::uint64_t>(domains) & static_cast<std::uint64_t>(NSSearchPathDomainMask::User))) return {};
    auto const home = NSHomeDirectory();
    if (home.empty()) return {};
    auto path = folder(directory, home);
    if (!path) return {};
    bool const inHome = path->starts_with(home) && (path->size() == home.size() || (*path)[home.size()] == '/');
    if (expand == ExpandTilde::No && inHome) path->replace(0, home.size(), "~");
    return {*std::move(path)};
}

} // namespace Tessarin
