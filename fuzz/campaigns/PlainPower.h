#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

/// Power goes while preferences or other files are written, or stores are replaced.
void tryPlainPower(Trial& trial, Tally& tally);

} // namespace Tessarin::campaigns
