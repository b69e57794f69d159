#pragma once
#include "Tessarin/platform/runtime/Value.h"
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Tessarin::defaults {

/// The text of a preferences file and what it says. Only what is changed is written anew: comments, blank lines, the order
/// and the layout of everything else stay as somebody wrote them.
class DefaultsDocument {
public:
    DefaultsDocument() = default;
    /// Throws ErrorException (NSFormatErrorDomain) for text that is not TOML.
    explicit DefaultsDocument(std::string text);
    /// What can be read of an ill-formed text: each statement that is well-formed by itself, in the sections that are. One that
    /// is not closed ends before the next line that looks like a key or a section. Takes as long as the text is.
    static DefaultsDocument salvaged(std::string_view text);

    std::string const& text() const noexcept { return text_; }
    Dictionary const& values() const noexcept { return values_; }
    /// An absent value removes the key. The text follows in one go.
    void apply(std::vector<Dictionary::Entry> const& changes);

private:
    /// One `key = value`, or a `[section]` with all it holds.
    struct Statement {
        Text key; // the first part of a dotted one
        bool isSection = false;
        std::string before;  // comments and blank lines above
        std::string body;    // without what follows on its last line
        std::string ending;  // a comment and the line break
    };
    static std::vector<Statement> statements(std::string_view text, std::string& after);
    using Changes = std::unordered_map<std::string_view, Dictionary::Entry const*>;
    static bool staysAfter(Statement& statement, Changes& open);
    std::string joined() const;

    std::string text_;
    Dictionary values_;
    std::vector<Statement> statements_;
    std::string after_; // comments at the end
};

} // namespace Tessarin::defaults
