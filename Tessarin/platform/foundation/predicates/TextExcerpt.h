#pragma once
#include "Tessarin/platform/foundation/predicates/SearchWords.h"

namespace Tessarin {

/// A part of a text with the words that were looked for in it, to be shown among the results of a search.
///
///     auto const excerpt = TextExcerpt::of(note->text(), SearchQuery("jane pri"));
///     for (auto const& hit : excerpt.hits) embolden(hit.begin, hit.end);
struct TextExcerpt {
    struct Range {
        std::size_t begin, end; // bytes in `text`
        friend bool operator==(Range const&, Range const&) = default;
    };
    std::string text;
    std::vector<Range> hits;     // in order, apart from each other
    bool isCutBefore = false;    // the text has words before it; "…" belongs there
    bool isCutBehind = false;

    /// The first of those parts that have most of the words, and then most hits; at most `words` words of the text, and at least
    /// one. Without hits it is the beginning of the text. Any thread.
    TESSARIN_API static TextExcerpt of(std::string_view text, SearchQuery const& query, std::size_t words = 24);
};

} // namespace Tessarin
