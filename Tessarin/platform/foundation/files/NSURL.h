#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Value.h"
#include <compare>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

namespace Tessarin {

/// A URL: a value, kept as its percent-encoded text and compared by it. Copies are cheap and may be used on any thread.
///
///     auto const folder = NSURL::fileURLWithPath("/home/ada/My Notes");
///     auto const file = folder.URLByAppendingPathComponent("50%.db"); // file:///home/ada/My%20Notes/50%25.db
///     open(file.path());                                              // /home/ada/My Notes/50%.db
class TESSARIN_API NSURL {
public:
    /// The URL of that text; absent unless it has a scheme and consists of characters that a URL may hold.
    static std::optional<NSURL> URLWithString(std::string_view text);
    /// The URL of a file or folder. A relative path counts from the current folder; an ending "/" is kept.
    static NSURL fileURLWithPath(std::string_view path);

    std::string absoluteString() const { return text_.string(); }
    std::string scheme() const;
    std::string host() const;
    bool isFileURL() const noexcept;

    /// The decoded path without an ending "/"; empty for a URL that has none.
    std::string path() const;
    /// The decoded last part of the path: "c.txt" of "/a/b/c.txt", "b" of "/a/b/", "/" of "/", else empty.
    std::string lastPathComponent() const;
    /// What follows the last "." of the last component; empty when nothing precedes or follows that ".".
    std::string pathExtension() const;
    bool hasDirectoryPath() const noexcept;

    /// With `component` appended, encoded; a "/" inside it separates components. Query and fragment stay behind the path.
    NSURL URLByAppendingPathComponent(std::string_view component) const;
    /// With "." and `extension` appended to the last component.
    NSURL URLByAppendingPathExtension(std::string_view extension) const;
    /// The folder that holds this, ending in "/"; the root is its own folder.
    NSURL URLByDeletingLastPathComponent() const;
    NSURL URLByDeletingPathExtension() const;

    std::string description() const { return absoluteString(); }
    friend bool operator==(NSURL const&, NSURL const&) = default;
    friend auto operator<=>(NSURL const& a, NSURL const& b) noexcept { return a.text_ <=> b.text_; }
    friend TESSARIN_API std::ostream& operator<<(std::ostream& out, NSURL const& url);

private:
    friend struct ValueTraits<NSURL>;
    friend struct std::hash<NSURL>;
    explicit NSURL(std::string_view text) : text_(text) {}
    NSURL withPath(std::string_view encodedPath) const;

    Text text_;
};

template <> struct ValueTraits<NSURL> {
    static Value into(NSURL const& url) { return Value::url(url.text_); }
    static std::optional<NSURL> from(Value const& value) {
        return value.kind() == Value::Kind::URL ? std::optional(NSURL{value.urlText()}) : std::nullopt;
    }
};

} // namespace Tessarin

template <> struct std::hash<Tessarin::NSURL> {
    std::size_t operator()(Tessarin::NSURL const& url) const noexcept { return std::hash<Tessarin::Text>{}(url.text_); }
};
