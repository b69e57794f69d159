#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

void tryPower(Trial& trial, Tally& tally);
void judgePower(Tally const& tally);

} // namespace Tessarin::campaigns
