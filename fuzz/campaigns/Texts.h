#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

/// Texts of which half are no UTF-8, through every operation on texts, beside slow and obvious ones and beside ICU's own
/// iterator.
void tryText(Trial& trial, Tally& tally);
void judgeTexts(Tally const& tally);

} // namespace Tessarin::campaigns
