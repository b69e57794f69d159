#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

/// Processes that make the same stores at the same moments: each must get all of them, and find there what the others saved.
void tryRacing(Trial& trial, Tally& tally);
int runMaker(std::span<char*> arguments);

} // namespace Tessarin::campaigns
