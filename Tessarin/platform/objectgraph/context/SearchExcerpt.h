#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/predicates/TextExcerpt.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObject.h"

namespace Tessarin {

/// What a list of results shows of one: where the words were found.
struct SearchExcerpt {
    std::string key; // of the attribute; empty without full-text attributes
    TextExcerpt excerpt;
};

/// Of the object's full-text attributes the one with most of the words in its best part, the first of several such. On the queue
/// of the object's context; ask for what is shown, not for all results.
///
///     for (auto const& note : shown) draw(note, searchExcerpt(*note, query));
TESSARIN_API SearchExcerpt searchExcerpt(NSManagedObject& object, SearchQuery const& query, std::size_t words = 24);

} // namespace Tessarin
