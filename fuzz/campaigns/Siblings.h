#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

/// Several contexts beneath one parent raise the same record at the same time: none of the raises may be lost.
void trySiblings(Trial& trial, Tally& tally);

} // namespace Tessarin::campaigns
