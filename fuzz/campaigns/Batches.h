#pragma once
#include "fuzz/campaigns/Shelf.h"

namespace Tessarin::campaigns {

/// The work of trials that count saves: the n-th inserts a batch of items in their order, links them with one another and with
/// those of the batch before, raises, reorders and parts items of that one, and deletes the batch of five saves ago. So a save
/// that is there in part, be it records without their links, cannot be taken for any other state.
void saveBatch(NSManagedObjectContext& worker, std::int64_t number);
/// What a store holds after the first `last` of them.
std::string contentAfter(std::int64_t last);
/// What this one shows, the later model's as well: records, links from both sides, orders.
std::string contentOf(Shelf const& shelf);
/// The first line that differs, of both; empty when none does.
std::string differenceOf(std::string const& found, std::string const& expected);

} // namespace Tessarin::campaigns
