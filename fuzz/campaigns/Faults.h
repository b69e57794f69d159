#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

void tryFault(Trial& trial, Tally& tally);
void judgeFaults(Tally const& tally);

} // namespace Tessarin::campaigns
