#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

void tryKill(Trial& trial, Tally& tally);
void judgeKill(Tally const& tally);
int runSaver(std::span<char*> arguments);
int runMigrator(std::span<char*> arguments);

} // namespace Tessarin::campaigns
