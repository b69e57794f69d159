#pragma once
#include "fuzz/campaigns/Shelf.h"

namespace Tessarin::campaigns {

/// The work of trials that count saves: the n-th inserts a batch of items, raises the items of the batch before, and deletes
/// the batch of five saves ago, so that a save that is there in part cannot be taken for any other state.
void saveBatch(NSManagedObjectContext& worker, std::int64_t number);
/// What a store holds after the first `last` of them.
std::string contentAfter(std::int64_t last);
std::string contentOf(Shelf const& shelf);

} // namespace Tessarin::campaigns
