#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

void tryCoordinators(Trial& trial, Tally& tally);

} // namespace Tessarin::campaigns
