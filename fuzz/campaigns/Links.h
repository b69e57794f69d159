#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

void tryLinks(Trial& trial, Tally& tally);
void judgeLinks(Tally const& tally);

} // namespace Tessarin::campaigns
