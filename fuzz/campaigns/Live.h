#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

void tryLive(Trial& trial, Tally& tally);
void judgeLive(Tally const& tally);

} // namespace Tessarin::campaigns
