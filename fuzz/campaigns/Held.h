#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

void tryHeld(Trial& trial, Tally& tally);

} // namespace Tessarin::campaigns
