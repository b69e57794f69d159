#include "Tessarin/system/GestaltReadingPrivate.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessarin::Gestalt::reading {
namespace {

constexpr std::string_view blanks = " \t\r";

std::string_view trimmed(std::string_view text) {
    auto const from = text.find_first_not_of(blanks);
    return from == text.npos ? std::string_view{} : text.substr(from, text.find_last_not_of(blanks) - from + 1);
}

std::string_view takeLine(std::string_view& text) {
    auto const line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    return line;
}

std::optional<std::uint64_t> numberAtStart(std::string_view text) {
    std::uint64_t number = 0;
    auto const end = std::from_chars(text.data(), text.data() + text.size(), number);
    return end.ec == std::errc{} ? std::optional(number) : std::nullopt;
}

bool isName(std::string_view text) {
    constexpr auto letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_";
    return !text.empty() && text.find_first_not_of(letters) == text.npos;
}

/// Absent when a quotation does not end.
std::optional<std::string> unquoted(std::string_view text) {
    std::string value;
    char quote = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        char const c = text[at];
        if (c == '\\' && quote != '\'') {
            if (++at == text.size()) return {};
            value += text[at];
        } else if (quote ? c == quote : c == '"' || c == '\'') {
            quote = quote ? 0 : c;
        } else {
            value += c;
        }
    }
    return quote ? std::nullopt : std::optional(value);
}

/// Where a symbolic link leads; "" when it is none.
std::string link(std::string const& path) {
    char target[PATH_MAX];
    auto const length = ::readlink(path.c_str(), target, sizeof target);
    return {target, static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

} // namespace

std::optional<std::string> file(std::string const& path) {
    constexpr std::size_t longest = std::size_t{1} << 20;
    int const descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0) return {};
    struct stat about {};
    std::string text;
    bool isWhole = ::fstat(descriptor, &about) == 0 && S_ISREG(about.st_mode);
    char part[4096];
    while (isWhole && text.size() < longest) {
        auto const count = ::read(descriptor, part, sizeof part);
        if (count < 0) isWhole = false;
        if (count <= 0) break;
        text.append(part, static_cast<std::size_t>(count));
    }
    ::close(descriptor);
    return isWhole ? std::optional(text) : std::nullopt;
}

std::map<std::string, std::string> assignments(std::string_view text) {
    std::map<std::string, std::string> all;
    while (!text.empty()) {
        auto const line = trimmed(takeLine(text));
        auto const sign = line.find('=');
        if (line.starts_with('#') || sign == line.npos || !isName(line.substr(0, sign))) continue;
        if (auto value = unquoted(line.substr(sign + 1)))
            all.insert_or_assign(std::string{line.substr(0, sign)}, std::move(*value));
    }
    return all;
}

std::map<std::string, std::string> osRelease(std::string const& root) {
    for (auto const* place : {"/etc/os-release", "/usr/lib/os-release"})
        if (auto const text = file(root + place)) return assignments(*text);
    return {};
}

std::optional<std::uint64_t> statusNumber(std::string_view status, std::string_view name) {
    while (!status.empty()) {
        auto line = takeLine(status);
        if (!line.starts_with(name) || line.substr(name.size(), 1) != ":") continue;
        return numberAtStart(trimmed(line.substr(name.size() + 1)));
    }
    return {};
}

std::optional<std::uint64_t> startTicks(std::string_view stat) {
    auto const name = stat.rfind(')'); // which may hold blanks and parentheses
    if (name == stat.npos) return {};
    stat.remove_prefix(name + 1);
    constexpr int fieldsBetween = 20; // the third field follows the name; this is the twenty-second
    for (int field = 0; field < fieldsBetween; ++field) {
        auto const blank = stat.find(' ');
        if (blank == stat.npos) return {};
        stat.remove_prefix(blank + 1);
    }
    return numberAtStart(stat);
}

std::vector<std::string> zeroEnded(std::string_view text) {
    std::vector<std::string> all;
    while (!text.empty()) {
        auto const end = text.find('\0');
        all.emplace_back(text.substr(0, end));
        text.remove_prefix(end == text.npos ? text.size() : end + 1);
    }
    return all;
}

std::optional<std::string> container(std::string const& root, char const* (*variable)(char const* name)) {
    auto const set = [variable](char const* name) {
        auto const* const value = variable(name);
        return std::string_view{value ? value : ""};
    };
    auto const exists = [&root](char const* path) { return ::access((root + path).c_str(), F_OK) == 0; };
    if (exists("/.flatpak-info")) return "flatpak";
    // A terminal in a snap hands the variable on to what it starts outside; what is inside has its program there.
    if (auto const snap = set("SNAP"); !snap.empty() && link(root + "/proc/self/exe").starts_with(std::string{snap} + "/"))
        return "snap";
    for (auto const* place : {"/run/host/container-manager", "/run/systemd/container"}) {
        auto const text = file(root + place).value_or("");
        std::string_view rest = text;
        if (auto const name = trimmed(takeLine(rest)); !name.empty()) return std::string{name};
    }
    if (exists("/run/.containerenv")) return "podman";
    if (exists("/.dockerenv")) return "docker";
    if (!set("KUBERNETES_SERVICE_HOST").empty()) return "kubernetes";
    auto const groups = file(root + "/proc/1/cgroup").value_or("");
    for (auto const& [trace, name] : {std::pair{"/kubepods", "kubernetes"}, {"/docker", "docker"}, {"/lxc", "lxc"}})
        if (groups.find(trace) != groups.npos) return name;
    if (auto const name = set("container"); !name.empty()) return std::string{name};
    return {};
}

} // namespace Tessarin::Gestalt::reading
