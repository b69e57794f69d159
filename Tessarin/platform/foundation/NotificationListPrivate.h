#pragma once
#include "Tessarin/platform/foundation/NSNotificationChannel.h"
#include "Tessarin/platform/foundation/NotificationRegistrationPrivate.h"
#include <cstdint>
#include <vector>

namespace Tessarin {

/// A channel's registrations in the order of their sequence numbers, and how many posts walk through them now. Readers are
/// counted under the channel's lock: an atomic count seen at zero would not order the reads before it with a change after it.
struct NSNotificationChannel::List {
    struct Place {
        std::uint64_t sequence;
        Ref<NotificationRegistration> registration; // null once removed
    };
    std::vector<Place> places;
    std::size_t removed = 0; // the null ones; when they are half of all they go, so that removing costs no move of the rest
    std::size_t readers = 0;

    Ref<NotificationRegistration> take(std::uint64_t sequence);
    void dropRemoved();
};

/// Keeps a list from being changed or destroyed while it is read.
class NSNotificationChannel::Reading {
public:
    explicit Reading(NSNotificationChannel& channel);
    ~Reading();
    Reading(Reading const&) = delete;
    Reading& operator=(Reading const&) = delete;

    auto const& places() const noexcept { return list_->places; }

private:
    NSNotificationChannel& channel_;
    List* list_ = nullptr;
};

} // namespace Tessarin
