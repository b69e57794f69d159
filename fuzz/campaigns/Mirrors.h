#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

/// Two processes with live contexts over one store, and sometimes a third that is killed: both must end with what the file holds.
void tryMirrors(Trial& trial, Tally& tally);
int runMirror(std::span<char*> arguments);

} // namespace Tessarin::campaigns
