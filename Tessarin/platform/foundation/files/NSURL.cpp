#include "Tessarin/platform/foundation/files/NSURL.h"

#include "Tessarin/platform/foundation/values/Hexadecimal.h"
#include <algorithm>
#include <filesystem>

namespace Tessarin {
namespace {

bool isOneOf(char c, std::string_view set) { return set.find(c) != set.npos; }
bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isUnreserved(char c) { return isLetter(c) || isDigit(c) || isOneOf(c, "-._~"); }
bool staysInPath(char c) { return isUnreserved(c) || isOneOf(c, "/!$&'()*+,=:@"); } // ";" once began parameters
bool isAllowed(char c) { return isUnreserved(c) || isOneOf(c, "!$&'()*+,;=:@/?#[]%"); }

bool isEscape(std::string_view text, std::size_t at) {
    return text[at] == '%' && at + 2 < text.size() && hexadecimalValue(text[at + 1]) >= 0 && hexadecimalValue(text[at + 2]) >= 0;
}

std::string encoded(std::string_view path) {
    std::string text;
    text.reserve(path.size() + 8);
    for (char const c : path) {
        if (staysInPath(c)) {
            text += c;
        } else {
            char digits[2];
            writeHexadecimal(digits, std::as_bytes(std::span{&c, 1}), HexadecimalDigits::Upper);
            text.append(1, '%').append(digits, 2);
        }
    }
    return text;
}

std::string decoded(std::string_view text) {
    std::string path;
    path.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (isEscape(text, at)) {
            path += static_cast<char>(hexadecimalValue(text[at + 1]) * 16 + hexadecimalValue(text[at + 2]));
            at += 2;
        } else {
            path += text[at];
        }
    }
    return path;
}

/// A URL's text apart: scheme ":" "//" authority path rest.
struct Parts {
    std::string_view scheme, authority, path, rest; // rest: the query and fragment with their marks

    explicit Parts(std::string_view text) {
        auto const colon = text.find_first_of(":/?#");
        if (colon != text.npos && text[colon] == ':') {
            scheme = text.substr(0, colon);
            text.remove_prefix(colon + 1);
        }
        auto const end = std::min(text.find_first_of("?#"), text.size());
        rest = text.substr(end);
        path = text.substr(0, end);
        if (!path.starts_with("//")) return;
        auto const slash = std::min(path.find('/', 2), path.size());
        authority = path.substr(2, slash - 2);
        path.remove_prefix(slash);
    }
};

std::string_view withoutEndingSlash(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
    return path;
}

std::string_view lastOf(std::string_view path) {
    path = withoutEndingSlash(path);
    return path == "/" ? path : path.substr(path.rfind('/') + 1);
}

/// Where the "." of the extension stands in a last component; npos when there is no extension.
std::size_t extensionDot(std::string_view component) {
    auto const dot = component.rfind('.');
    return dot == 0 || dot == component.size() - 1 ? component.npos : dot;
}

bool isScheme(std::string_view scheme) {
    if (scheme.empty() || !isLetter(scheme[0])) return false;
    for (char const c : scheme)
        if (!isLetter(c) && !isDigit(c) && !isOneOf(c, "+-.")) return false;
    return true;
}

} // namespace

std::optional<NSURL> NSURL::URLWithString(std::string_view text) {
    if (!isScheme(Parts{text}.scheme)) return {};
    for (std::size_t at = 0; at < text.size(); ++at)
        if (!isAllowed(text[at]) || (text[at] == '%' && !isEscape(text, at))) return {};
    return NSURL{text};
}

NSURL NSURL::fileURLWithPath(std::string_view path) {
    if (path.starts_with('/')) return NSURL{"file://" + encoded(path)};
    return NSURL{"file://" + encoded((std::filesystem::current_path() / path).native())};
}

std::string NSURL::scheme() const { return std::string{Parts{text_}.scheme}; }

std::string NSURL::host() const {
    auto authority = Parts{text_}.authority;
    authority.remove_prefix(authority.rfind('@') + 1);
    auto const close = authority.find(']'); // the colons of a bracketed address are no port
    return decoded(authority.substr(0, authority.find(':', close == authority.npos ? 0 : close)));
}

bool NSURL::isFileURL() const noexcept {
    static constexpr std::string_view file = "file:";
    auto const text = text_.view();
    if (text.size() < file.size() || text[4] != ':') return false;
    for (std::size_t at = 0; at < 4; ++at)
        if ((text[at] | 0x20) != file[at]) return false;
    return true;
}

std::string NSURL::path() const { return decoded(withoutEndingSlash(Parts{text_}.path)); }
std::string NSURL::lastPathComponent() const { return decoded(lastOf(Parts{text_}.path)); }
bool NSURL::hasDirectoryPath() const noexcept { return Parts{text_}.path.ends_with('/'); }

std::string NSURL::pathExtension() const {
    auto const component = lastPathComponent();
    auto const dot = extensionDot(component);
    return dot == component.npos ? std::string{} : component.substr(dot + 1);
}

NSURL NSURL::withPath(std::string_view encodedPath) const {
    Parts const parts{text_};
    auto const before = static_cast<std::size_t>(parts.path.data() - text_.view().data());
    std::string text{text_.view().substr(0, before)};
    return NSURL{text.append(encodedPath).append(parts.rest)};
}

NSURL NSURL::URLByAppendingPathComponent(std::string_view component) const {
    std::string path{Parts{text_}.path};
    if (!path.ends_with('/')) path += '/';
    while (component.starts_with('/')) component.remove_prefix(1);
    return withPath(path + encoded(component));
}

NSURL NSURL::URLByAppendingPathExtension(std::string_view extension) const {
    auto const path = Parts{text_}.path;
    return withPath(std::string{withoutEndingSlash(path)} + '.' + encoded(extension) + (path.ends_with('/') ? "/" : ""));
}

NSURL NSURL::URLByDeletingLastPathComponent() const {
    auto const path = withoutEndingSlash(Parts{text_}.path);
    return withPath(path.substr(0, path.rfind('/') + 1));
}

NSURL NSURL::URLByDeletingPathExtension() const {
    auto const path = Parts{text_}.path;
    auto const stem = withoutEndingSlash(path);
    auto const last = lastOf(path);
    auto const dot = extensionDot(last);
    if (dot == last.npos) return *this;
    return withPath(std::string{stem.substr(0, stem.size() - last.size() + dot)} + (path.ends_with('/') ? "/" : ""));
}

std::ostream& operator<<(std::ostream& out, NSURL const& url) { return out << url.text_; }

} // namespace Tessarin
