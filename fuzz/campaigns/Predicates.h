#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

/// Random and mutated formats with arguments, asked of a store in memory and of a file that hold the same records: no crash, and
/// the same answer or the same refusal from both.
void tryPredicates(Trial& trial, Tally& tally);
void judgePredicates(Tally const& tally);

} // namespace Tessarin::campaigns
