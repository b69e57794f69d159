#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/model/NSEntityDescription.h"
#include "Tessarin/platform/objectgraph/query/NSFetchRequest.h"

namespace Tessarin {

class NSError;

/// Why `request` cannot be answered for `entity`, whatever the records hold; null when it can. Every fetch, count and batch
/// request asks this first and gives the error; ask it yourself before a predicate that somebody wrote meets objects by itself.
///
/// - a key that neither the entity nor one of its sub-entities has: the error names the entity, the key and the nearest keys;
/// - a key behind an attribute ("name.length"), unless that is of a kind that may hold objects, such as Transformable;
/// - @count and its like where there is nothing to be counted; a variable that was given no value;
/// - an order by rank (`searchRank`) where nothing is searched that has ranks;
/// - a path to be prefetched that is not made of relationships;
/// - conditions that are nested more than 500 deep.
///
/// Any thread; the cost is that of the request's size, not of any record.
TESSARIN_API Ref<NSError> problemWithFetchRequest(NSFetchRequest const& request, NSEntityDescription const& entity);

} // namespace Tessarin
