#include "Tessarin/platform/foundation/notifications/NotificationRegistryPrivate.h"

#include "Tessarin/platform/foundation/notifications/NotificationListPrivate.h"

#include <algorithm>
#include <atomic>

namespace Tessarin {

namespace {

std::uint32_t nextNumber() {
    static constinit std::atomic<std::uint32_t> last{0};
    return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

} // namespace

NotificationRegistry::NotificationRegistry() : number_(nextNumber()) {}

void NotificationRegistry::start() { everyName_.reset(new NSNotificationChannel({}, weak_from_this(), number_, nullptr)); }

Ref<NSNotificationChannel> NotificationRegistry::existingChannel(std::string_view name) {
    std::lock_guard const hold(mutex_);
    auto const found = channels_.find(name);
    return found == channels_.end() ? nullptr : found->second;
}

Ref<NSNotificationChannel> NotificationRegistry::channel(std::optional<std::string_view> name) {
    if (!name) return everyName_;
    Registrations gone;
    std::lock_guard const hold(mutex_);
    return made(*name, gone);
}

Ref<NSNotificationChannel> NotificationRegistry::made(std::string_view name, Registrations& gone) {
    if (auto const found = channels_.find(name); found != channels_.end()) return found->second;
    if (channels_.size() >= dropAt_) dropEmptyChannels(gone);
    Ref<NSNotificationChannel> channel(new NSNotificationChannel(Text{name}, weak_from_this(), number_, everyName_));
    channels_.emplace(channel->name(), channel);
    return channel;
}

/// Names that were used once and never again do not stay for ever, nor does what was observed under them and has ended.
void NotificationRegistry::dropEmptyChannels(Registrations& gone) {
    for (auto const& [name, channel] : channels_)
        if (channel->count_ != 0) sweepLocked(*channel, gone);
    // A channel that only the table holds can be neither posted to nor copied by anybody else, since both begin here.
    std::erase_if(channels_, [](auto const& entry) { return entry.second.use_count() == 1 && entry.second->count_ == 0; });
    dropAt_ = std::max<std::size_t>(64, channels_.size() * 2);
}

void NotificationRegistry::add(std::optional<std::string_view> name, OwnRegistration& registration) {
    Registrations gone;
    std::lock_guard const hold(mutex_);
    addLocked(name ? *made(*name, gone) : *everyName_, registration, gone);
}

void NotificationRegistry::add(NSNotificationChannel& channel, OwnRegistration& registration) {
    Registrations gone;
    std::lock_guard const hold(mutex_);
    addLocked(channel, registration, gone);
}

void NotificationRegistry::addLocked(NSNotificationChannel& channel, OwnRegistration& registration, Registrations& gone) {
    if (channel.count_ >= channel.sweepAt_) sweepLocked(channel, gone);
    if (!channel.add(registration)) return;
    registration.keepSelf();
    auto const* const observer = registration.observer();
    if (observer != &registration)
        byObserver_[observer].emplace(std::pair(&channel, registration.sender()), registration.self<NotificationRegistration>());
}

void NotificationRegistry::remove(NSObject const& observer, std::optional<std::string_view> name, NSObject const* sender) {
    Registrations gone;
    std::lock_guard const hold(mutex_);
    if (auto* token = const_cast<NotificationRegistration*>(dynamic_cast<NotificationRegistration const*>(&observer)))
        if (token->home_ == number_ && token->isActive() && token->matches(name, sender)) token->channel_->remove(*token, gone);
    auto const found = byObserver_.find(&observer);
    if (found == byObserver_.end()) return;
    auto& registrations = found->second;
    if (name) {
        if (auto const named = channels_.find(*name); named != channels_.end())
            removeLocked(*named->second, sender, registrations, gone);
        if (name->empty()) removeLocked(*everyName_, sender, registrations, gone);
    } else {
        std::erase_if(registrations, [&](auto const& entry) {
            auto const& registration = entry.second;
            if (!registration->matches(name, sender)) return false;
            registration->channel_->remove(*registration, gone);
            return true;
        });
    }
    if (found->second.empty()) byObserver_.erase(found);
}

/// Those of one observer at a channel, from that sender or, when null, from any.
void NotificationRegistry::removeLocked(NSNotificationChannel const& channel, NSObject const* sender, OfObserver& registrations,
                                        Registrations& gone) {
    auto const first = registrations.lower_bound({&channel, sender}); // null is before every sender
    auto last = first;
    for (; last != registrations.end() && last->first.first == &channel && (!sender || last->first.second == sender); ++last)
        last->second->channel_->remove(*last->second, gone);
    registrations.erase(first, last);
}

void NotificationRegistry::sweep(NSNotificationChannel& channel) {
    Registrations gone;
    std::lock_guard const hold(mutex_);
    sweepLocked(channel, gone);
}

void NotificationRegistry::sweepLocked(NSNotificationChannel& channel, Registrations& gone) {
    std::vector<NotificationRegistration*> dead; // which the registry's mutex keeps from being removed meanwhile
    {
        std::lock_guard const hold(channel.mutex_);
        for (auto const& place : channel.list_->places)
            if (auto* const registration = place.registration(); registration && registration->isDead())
                dead.push_back(registration);
    }
    for (auto* const registration : dead) {
        if (!channel.remove(*registration, gone)) continue; // it went with another of its observer
        auto const found = byObserver_.find(registration->observer());
        if (found == byObserver_.end()) continue;
        // All of the observer that are dead, under whatever names: so it is looked through once and not for each of them.
        std::erase_if(found->second, [&](auto const& entry) {
            auto const& other = entry.second;
            if (!other->isDead()) return false;
            other->channel_->remove(*other, gone);
            return true;
        });
        if (found->second.empty()) byObserver_.erase(found);
    }
    channel.sweepAt_ = std::max<std::size_t>(32, channel.count_ * 2);
}

void NotificationRegistry::removeAll() {
    decltype(channels_) channels;
    decltype(byObserver_) byObserver;
    Registrations gone;
    std::lock_guard const hold(mutex_);
    channels.swap(channels_);
    byObserver.swap(byObserver_);
    everyName_->silence(gone);
    for (auto const& [name, channel] : channels) channel->silence(gone);
}

} // namespace Tessarin
