#pragma once
#include "Tessarin/platform/foundation/NSNotificationChannel.h"
#include "Tessarin/platform/foundation/NotificationRegistrationPrivate.h"
#include <vector>

namespace Tessarin {

/// A channel's registrations in the order of their sequence numbers, and how many posts walk through them now. Readers are
/// counted under the channel's lock: an atomic count seen at zero would not order the reads before it with a change after it.
struct NSNotificationChannel::List {
    std::vector<Ref<NotificationRegistration>> registrations;
    std::size_t readers = 0;
};

/// Keeps a list from being changed or destroyed while it is read.
class NSNotificationChannel::Reading {
public:
    explicit Reading(NSNotificationChannel& channel);
    ~Reading();
    Reading(Reading const&) = delete;
    Reading& operator=(Reading const&) = delete;

    auto const& registrations() const noexcept { return list_->registrations; }

private:
    NSNotificationChannel& channel_;
    List* list_ = nullptr;
};

} // namespace Tessarin
