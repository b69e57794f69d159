#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

void tryUndo(Trial& trial, Tally& tally);
void judgeUndo(Tally const& tally);

} // namespace Tessarin::campaigns
