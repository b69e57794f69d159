#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

/// Texts of many scripts are written, changed and deleted in every way, and searched in a file and in memory, saved or not: both find
/// the same, in the same order by rank; no index gives another answer than comparing each text; the file's index stays in order.
void trySearch(Trial& trial, Tally& tally);
void judgeSearch(Tally const& tally);

} // namespace Tessarin::campaigns
