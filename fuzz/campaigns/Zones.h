#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

void tryZones(Trial& trial, Tally& tally);

} // namespace Tessarin::campaigns
