#include "Tessarin/platform/foundation/predicates/TextExcerpt.h"

#include <algorithm>

namespace Tessarin {
namespace {

struct Hit {
    std::size_t place; // among the words of the text
    std::vector<std::size_t> indexes; // of the words that were looked for
};

struct Words {
    std::vector<TextExcerpt::Range> all;
    std::vector<Hit> hits;
};

Words wordsOf(std::string_view text, SearchQuery const& query) {
    Words words;
    forEachSearchWord(text, [&](SearchWord const& word) {
        Hit hit{words.all.size(), {}};
        query.forEachMatch(word.folded, [&](std::size_t index) { hit.indexes.push_back(index); });
        if (!hit.indexes.empty()) words.hits.push_back(std::move(hit));
        words.all.push_back({word.begin, word.end});
        return true;
    });
    return words;
}

/// The hits of the best part, as a span of them: each part that begins with a hit is looked at once.
std::span<Hit const> bestOf(std::span<Hit const> hits, std::size_t kinds, std::size_t most) {
    std::vector<std::size_t> counts(kinds);
    std::size_t different = 0, bestDifferent = 0, end = 0;
    std::span<Hit const> best;
    for (std::size_t begin = 0; begin < hits.size(); ++begin) {
        for (; end < hits.size() && hits[end].place - hits[begin].place < most; ++end)
            for (auto const index : hits[end].indexes) different += counts[index]++ == 0 ? 1 : 0;
        bool const isBetter = different != bestDifferent ? different > bestDifferent : end - begin > best.size();
        if (isBetter) best = hits.subspan(begin, end - begin), bestDifferent = different;
        for (auto const index : hits[begin].indexes) different -= --counts[index] == 0 ? 1 : 0;
    }
    return best;
}

} // namespace

TextExcerpt TextExcerpt::of(std::string_view text, SearchQuery const& query, std::size_t words) {
    words = std::max<std::size_t>(words, 1);
    auto const [all, hits] = wordsOf(text, query);
    if (all.empty()) return {};
    auto const best = bestOf(hits, query.words().size(), words);
    // The hits stand in the middle, as far as the text goes.
    auto const first = best.empty() ? 0 : best.front().place, length = best.empty() ? 1 : best.back().place - first + 1;
    auto begin = first - std::min(first, (words - length) / 2);
    auto const end = std::min(begin + words, all.size());
    begin = end - std::min(end, words);

    TextExcerpt excerpt;
    auto const from = begin == 0 ? 0 : all[begin].begin, to = end == all.size() ? text.size() : all[end - 1].end;
    excerpt.text = text.substr(from, to - from);
    for (auto const& hit : hits)
        if (hit.place >= begin && hit.place < end)
            excerpt.hits.push_back({all[hit.place].begin - from, all[hit.place].end - from});
    excerpt.isCutBefore = begin != 0;
    excerpt.isCutBehind = end != all.size();
    return excerpt;
}

} // namespace Tessarin
