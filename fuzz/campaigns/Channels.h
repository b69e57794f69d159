#pragma once
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

/// Threads register, remove, destroy and post at random: at a notification centre, and at a channel of watchers.
void tryChannels(Trial& trial, Tally& tally);
void tryCentrePosts(Trial& trial, Tally& tally);
void tryNotifierPosts(Trial& trial, Tally& tally);

} // namespace Tessarin::campaigns
