#pragma once
#include <cstddef>
#include <string_view>

// A TOML text seen as a row of statements, without parsing it: `key = value`, or `[section]`.
namespace Tessarin::defaults {

/// How far a statement reaches.
struct Extent {
    std::size_t valueEnd;  // behind its last character that is neither blank nor comment
    std::size_t end;       // behind its line break
    bool isClosed = true;  // its brackets and long texts
    bool isDoubtful = false; // a long text ends where another one seems to begin
    /// What the parser must not be shown, since it would not refuse it but end the process; null when there is nothing.
    char const* problem = nullptr;
    std::size_t problemAt = 0;
};

inline constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
/// Behind blank lines and comments.
std::size_t behindTrivia(std::string_view text, std::size_t at);
/// Behind the quoted text that begins at `at`, or the end of all.
std::size_t behindString(std::string_view text, std::size_t at);
/// Of the statement that begins at `at`: it ends with the first line at whose end all brackets are closed, or, ill-formed,
/// where the next line looks like a key.
Extent extentFrom(std::string_view text, std::size_t at);
/// Whether a line begins at `at` that looks like `key = …` or `[section]`.
bool looksLikeStart(std::string_view text, std::size_t at);
/// The first such line behind the one with `at`; the end of the text when there is none.
std::size_t nextLikelyStart(std::string_view text, std::size_t at);

} // namespace Tessarin::defaults
