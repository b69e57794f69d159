#include "Tessarin/platform/foundation/text/Path.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace Tessarin::Path {
namespace {

/// Without "/" at its end, unless that is all.
std::string_view withoutEnd(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    return path;
}

/// Takes the next name from the beginning of a path; empty when there is none left.
std::string_view takeName(std::string_view& path) {
    path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
    auto const name = path.substr(0, path.find('/'));
    path.remove_prefix(name.size());
    return name;
}

/// Where the last "." of a name is, if it begins an extension: behind it is something, and before it more than other dots.
std::size_t dotOf(std::string_view name) {
    auto const dot = name.rfind('.');
    return dot + 1 == name.size() || name.find_first_not_of('.') >= dot ? name.npos : dot;
}

// Names are short, so calls and branches that look for their ends cost more than anything else (benchmark "text").

constexpr std::size_t step = sizeof(std::uint64_t);
static_assert(std::endian::native == std::endian::little);

/// The highest bit of each of the eight bytes from `at` on that is a "/" or the end of the path.
std::uint64_t endsIn(std::string_view path, std::size_t at) {
    constexpr std::uint64_t ones = 0x0101010101010101U, lows = 0x7f7f7f7f7f7f7f7fU;
    auto const rest = path.size() - at;
    std::uint64_t bytes = 0;
    if (rest >= step)
        std::memcpy(&bytes, path.data() + at, step);
    else
        for (std::size_t each = 0; each < rest; ++each)
            bytes |= std::uint64_t{static_cast<unsigned char>(path[at + each])} << 8 * each;
    bytes ^= ones * '/'; // 0 where one is
    auto const slashes = ~(((bytes & lows) + lows) | bytes | lows);
    return rest < step ? slashes | std::uint64_t{0x80} << 8 * rest : slashes;
}

/// Appends the first `size` bytes of `rest`.
void append(std::vector<std::string>& components, std::string_view rest, std::size_t size) {
    constexpr std::size_t inPlace = 15; // what a string holds without memory: copied as a whole, without a call, and cut
    if (size <= inPlace && rest.size() >= inPlace)
        components.emplace_back(rest.data(), inPlace).erase(size);
    else
        components.emplace_back(rest.data(), size);
}

} // namespace

std::string_view lastPathComponent(std::string_view path) {
    path = withoutEnd(path);
    return path == "/" ? path : path.substr(path.rfind('/') + 1);
}

std::string_view deletingLastPathComponent(std::string_view path) {
    path = withoutEnd(path);
    auto const slash = path.rfind('/');
    if (slash == path.npos) return {};
    return withoutEnd(path.substr(0, std::max<std::size_t>(slash, 1)));
}

std::string_view pathExtension(std::string_view path) {
    auto const name = lastPathComponent(path);
    auto const dot = dotOf(name);
    return dot == name.npos ? std::string_view{} : name.substr(dot + 1);
}

std::string_view deletingPathExtension(std::string_view path) {
    path = withoutEnd(path);
    auto const extension = pathExtension(path);
    return extension.empty() ? path : path.substr(0, path.size() - extension.size() - 1);
}

std::string appendingPathComponent(std::string_view path, std::string_view component) {
    if (path.empty()) return std::string{withoutEnd(component)};
    path = withoutEnd(path);
    component = withoutEnd(component);
    component.remove_prefix(std::min(component.find_first_not_of('/'), component.size()));
    std::string result;
    result.reserve(path.size() + 1 + component.size());
    result = path;
    if (component.empty()) return result;
    if (path != "/") result += '/';
    return result.append(component);
}

std::string appendingPathExtension(std::string_view path, std::string_view extension) {
    path = withoutEnd(path);
    auto const name = lastPathComponent(path);
    bool const isNamed = !name.empty() && name != "/" && name != "." && name != "..";
    if (!isNamed || extension.empty() || extension.find('/') != extension.npos) return std::string{path};
    std::string result;
    result.reserve(path.size() + 1 + extension.size());
    result = path;
    result += '.';
    return result.append(extension);
}

// With the functions of strings and lists inside.
[[gnu::flatten]] std::vector<std::string> pathComponents(std::string_view path) {
    static constexpr std::size_t usual = 8; // most paths have no more, and to count them first takes longer
    std::vector<std::string> components;
    components.reserve(usual);
    if (path.starts_with('/')) components.emplace_back(1, '/');
    for (std::size_t from = 0, at = 0; at <= path.size(); at += step)
        for (auto ends = endsIn(path, at); ends != 0; ends &= ends - 1) {
            auto const to = at + static_cast<std::size_t>(std::countr_zero(ends)) / 8;
            if (to > from) append(components, path.substr(from), to - from);
            from = to + 1;
        }
    return components;
}

bool isAbsolutePath(std::string_view path) { return path.starts_with('/'); }

std::string standardized(std::string_view path) {
    if (path.empty()) return {};
    bool const isAbsolute = isAbsolutePath(path);
    std::string result(isAbsolute ? 1 : 0, '/');
    result.reserve(path.size());
    auto const root = result.size();
    auto fixed = root; // what no ".." can take back: the root, or those that lead out of the folder
    for (auto name = takeName(path); !name.empty(); name = takeName(path)) {
        if (name == ".") continue;
        if (name == ".." && result.size() > fixed) {
            auto const slash = result.rfind('/');
            result.resize(slash == result.npos ? fixed : std::max(slash, fixed));
            continue;
        }
        if (name == ".." && isAbsolute) continue;
        if (result.size() > root) result += '/';
        result += name;
        if (name == "..") fixed = result.size();
    }
    return result.empty() ? "." : result;
}

std::optional<std::string> relativeTo(std::string_view path, std::string_view base) {
    if (isAbsolutePath(path) != isAbsolutePath(base)) return {};
    auto const to = standardized(path), from = standardized(base);
    std::string_view rest = to == "." ? std::string_view{} : std::string_view{to};
    std::string_view left = from == "." ? std::string_view{} : std::string_view{from};
    for (;;) {
        auto restAfter = rest, leftAfter = left;
        auto const name = takeName(restAfter);
        if (name.empty() || name != takeName(leftAfter)) break;
        rest = restAfter;
        left = leftAfter;
    }
    std::string result;
    for (auto name = takeName(left); !name.empty(); name = takeName(left)) {
        if (name == "..") return {}; // nobody knows the name of the folder to come back from
        result += result.empty() ? ".." : "/..";
    }
    for (auto name = takeName(rest); !name.empty(); name = takeName(rest)) {
        if (!result.empty()) result += '/';
        result += name;
    }
    return result.empty() ? "." : result;
}

} // namespace Tessarin::Path
