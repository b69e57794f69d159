#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

void tryHandedUp(Trial& trial, Tally& tally);

} // namespace Tessarin::campaigns
