#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

/// Hundreds of subprocesses of all kinds at once, under few descriptors, whatever the application does with SIGCHLD.
void trySubprocesses(Trial& trial, Tally& tally);
void judgeSubprocesses(Tally const& tally);

} // namespace Tessarin::campaigns
