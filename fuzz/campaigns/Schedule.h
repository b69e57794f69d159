#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

void trySchedule(Trial& trial, Tally& tally);

} // namespace Tessarin::campaigns
