#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"

namespace Tessarin {

/// The order of a search: what fits best first. It belongs to the FINDS of the predicate, or to the first of several that are
/// joined with AND, which must ask full-text attributes of the entity itself.
///
///     request->setPredicate(NSPredicate::predicateWithFormat("{title, text} FINDS %@", typed));
///     request->setSortDescriptors({searchRank()});
///
/// A word counts the more the rarer it is among all records and the more often it is in one, compared with the length of its texts
/// (BM25). Not for live lists: with each change all ranks are others.
TESSARIN_API Ref<NSSortDescriptor> searchRank();

} // namespace Tessarin
