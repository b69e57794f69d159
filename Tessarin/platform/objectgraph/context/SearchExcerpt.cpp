#include "Tessarin/platform/objectgraph/context/SearchExcerpt.h"

#include <set>

namespace Tessarin {
namespace {

std::size_t differentWords(TextExcerpt const& excerpt, SearchQuery const& query) {
    std::set<std::size_t> found;
    forEachSearchWord(excerpt.text, [&](SearchWord const& word) {
        query.forEachMatch(word.folded, [&](std::size_t index) { found.insert(index); });
        return true;
    });
    return found.size();
}

} // namespace

SearchExcerpt searchExcerpt(NSManagedObject& object, SearchQuery const& query, std::size_t words) {
    SearchExcerpt best;
    std::size_t most = 0;
    for (auto const* attribute : object.entity().attributes()) {
        if (!attribute->isFullText()) continue;
        auto const text = object.valueForKey(attribute->name());
        if (!text.isText()) continue;
        auto excerpt = TextExcerpt::of(text.text(), query, words);
        auto const different = differentWords(excerpt, query);
        if (!best.key.empty() && different <= most) continue;
        most = different;
        best = {attribute->name(), std::move(excerpt)};
    }
    return best;
}

} // namespace Tessarin
