#pragma once
#include "Tessarin/platform/foundation/predicates/TextFolding.h"
#include "Tessarin/platform/runtime/Ref.h"

namespace Tessarin {

/// A regular expression, compiled once. Any thread.
///
///     if (auto pattern = TextPattern::compile("[a-z]+@[a-z]+")) pattern->matchesWhole(text);
class TESSARIN_API TextPattern {
public:
    /// Null when the expression is malformed. Of the options, case is the pattern's own; marks are taken off both sides.
    static Ref<TextPattern const> compile(std::string_view expression, TextOptions options = TextOptions::None);
    ~TextPattern();
    TextPattern(TextPattern const&) = delete;
    TextPattern& operator=(TextPattern const&) = delete;

    /// Whether the whole text matches. A match that would take millions of steps counts as none.
    bool matchesWhole(std::string_view text) const;

private:
    TextPattern() = default;
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

/// Whether the whole text matches a wildcard pattern: "*" any characters, "?" exactly one code point, "\" takes the next
/// character as it is. Both must be folded already.
TESSARIN_API bool matchesWildcards(std::string_view text, std::string_view pattern) noexcept;

} // namespace Tessarin
