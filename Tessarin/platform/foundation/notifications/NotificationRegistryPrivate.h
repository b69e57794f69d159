#pragma once
#include "Tessarin/platform/foundation/notifications/NSNotificationChannel.h"
#include "Tessarin/platform/foundation/notifications/NotificationRegistrationPrivate.h"
#include "Tessarin/platform/runtime/TextHashPrivate.h"
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Tessarin {

/// What a centre knows: a channel per name, and each observer's registrations. Its mutex is taken before a channel's; neither
/// is held while anything of the user's runs, which includes the destruction of registrations.
class NotificationRegistry : public std::enable_shared_from_this<NotificationRegistry> {
public:
    using Registrations = std::vector<Ref<NotificationRegistration>>;

    NotificationRegistry();
    void start();
    /// The channel of a name, made when it is missing. An absent name stands for the channel of every name.
    Ref<NSNotificationChannel> channel(std::optional<std::string_view> name);
    Ref<NSNotificationChannel> existingChannel(std::string_view name);
    Ref<NSNotificationChannel> const& everyName() const noexcept { return everyName_; }

    void add(std::optional<std::string_view> name, OwnRegistration& registration);
    void add(NSNotificationChannel& channel, OwnRegistration& registration);
    void remove(NSObject const& observer, std::optional<std::string_view> name, NSObject const* sender);
    /// Forgets observers and sender filters of this channel that have been destroyed.
    void sweep(NSNotificationChannel& channel);
    /// Nobody is called any more; for the end of the centre.
    void removeAll();

private:
    /// By channel and sender: one observer may listen to very many, and leave them one by one.
    using OfObserver = std::multimap<std::pair<NSNotificationChannel const*, NSObject const*>, Ref<NotificationRegistration>>;

    // With the mutex held; what leaves is moved to `gone`, to be destroyed without it.
    Ref<NSNotificationChannel> made(std::string_view name, Registrations& gone);
    void addLocked(NSNotificationChannel& channel, OwnRegistration& registration, Registrations& gone);
    void sweepLocked(NSNotificationChannel& channel, Registrations& gone);
    void dropEmptyChannels(Registrations& gone);
    void removeLocked(NSNotificationChannel const& channel, NSObject const* sender, OfObserver& registrations,
                      Registrations& gone);

    std::uint32_t const number_; // tells registries apart, also from those that are no more
    std::mutex mutex_;
    // All guarded by mutex_; everyName_ is constant after start.
    std::unordered_map<Text, Ref<NSNotificationChannel>, TextHash, std::equal_to<>> channels_;
    std::unordered_map<NSObject const*, OfObserver> byObserver_; // closure observers are their own index
    std::size_t dropAt_ = 64;
    Ref<NSNotificationChannel> everyName_;
};

} // namespace Tessarin
