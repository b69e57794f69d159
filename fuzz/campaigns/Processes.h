#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

void tryProcesses(Trial& trial, Tally& tally);
int runActor(std::span<char*> arguments);

} // namespace Tessarin::campaigns
