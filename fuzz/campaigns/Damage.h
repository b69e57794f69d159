#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

void tryDamage(Trial& trial, Tally& tally);
void judgeDamage(Tally const& tally);

} // namespace Tessarin::campaigns
