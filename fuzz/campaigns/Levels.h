#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

void tryLevels(Trial& trial, Tally& tally);
void judgeLevels(Tally const& tally);

} // namespace Tessarin::campaigns
