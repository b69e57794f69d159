#include "Tessarin/platform/foundation/NotificationRegistryPrivate.h"

#include "Tessarin/platform/foundation/NotificationListPrivate.h"

#include <algorithm>
#include <iterator>

namespace Tessarin {

void NotificationRegistry::start() { everyName_.reset(new NSNotificationChannel({}, weak_from_this(), nullptr)); }

Ref<NSNotificationChannel> NotificationRegistry::existingChannel(std::string_view name) {
    std::lock_guard const hold(mutex_);
    auto const found = channels_.find(name);
    return found == channels_.end() ? nullptr : found->second;
}

Ref<NSNotificationChannel> NotificationRegistry::channel(std::optional<std::string_view> name) {
    if (!name) return everyName_;
    std::lock_guard const hold(mutex_);
    return made(*name);
}

Ref<NSNotificationChannel> NotificationRegistry::made(std::string_view name) {
    if (auto const found = channels_.find(name); found != channels_.end()) return found->second;
    if (channels_.size() >= dropAt_) dropEmptyChannels();
    Ref<NSNotificationChannel> channel(new NSNotificationChannel(Text{name}, weak_from_this(), everyName_));
    channels_.emplace(channel->name(), channel);
    return channel;
}

/// Names that were used once and never again do not stay for ever.
void NotificationRegistry::dropEmptyChannels() {
    // A channel that only the table holds can be neither posted to nor copied by anybody else, since both begin here.
    std::erase_if(channels_, [](auto const& entry) { return entry.second.use_count() == 1 && entry.second->count_ == 0; });
    dropAt_ = std::max<std::size_t>(64, channels_.size() * 2);
}

void NotificationRegistry::add(std::optional<std::string_view> name, Ref<NotificationRegistration> registration) {
    Registrations gone;
    std::lock_guard const hold(mutex_);
    addLocked(name ? *made(*name) : *everyName_, std::move(registration), gone);
}

void NotificationRegistry::add(NSNotificationChannel& channel, Ref<NotificationRegistration> registration) {
    Registrations gone;
    std::lock_guard const hold(mutex_);
    addLocked(channel, std::move(registration), gone);
}

void NotificationRegistry::addLocked(NSNotificationChannel& channel, Ref<NotificationRegistration> registration, Registrations& gone) {
    if (channel.count_ >= channel.sweepAt_) sweepLocked(channel, gone);
    registration->sequence_ = ++lastSequence_;
    registration->home_ = this;
    registration->channel_ = &channel;
    auto const* const observer = registration->observer();
    if (observer != registration.get()) byObserver_[observer].push_back(registration);
    std::lock_guard const hold(channel.mutex_);
    channel.writable().places.push_back({lastSequence_, std::move(registration)});
    channel.count_.fetch_add(1, std::memory_order_release);
}

void NotificationRegistry::remove(NSObject const& observer, std::optional<std::string_view> name, NSObject const* sender) {
    Registrations gone;
    std::lock_guard const hold(mutex_);
    if (auto* token = const_cast<NotificationRegistration*>(dynamic_cast<NotificationRegistration const*>(&observer)))
        if (token->home_ == this && token->isActive() && token->matches(name, sender)) retire(*token, gone);
    auto const found = byObserver_.find(&observer);
    if (found == byObserver_.end()) return;
    std::erase_if(found->second, [&](auto const& registration) {
        if (!registration->matches(name, sender)) return false;
        retire(*registration, gone);
        return true;
    });
    if (found->second.empty()) byObserver_.erase(found);
}

void NotificationRegistry::retire(NotificationRegistration& registration, Registrations& gone) {
    registration.isActive_.store(false, std::memory_order_release); // a post that walks an older list passes over it
    auto& channel = *registration.channel_;
    std::lock_guard const hold(channel.mutex_);
    gone.push_back(channel.writable().take(registration.sequence_));
    channel.count_.fetch_sub(1, std::memory_order_release);
}

void NotificationRegistry::sweep(NSNotificationChannel& channel) {
    Registrations gone;
    std::lock_guard const hold(mutex_);
    sweepLocked(channel, gone);
}

void NotificationRegistry::sweepLocked(NSNotificationChannel& channel, Registrations& gone) {
    Registrations dead;
    {
        std::lock_guard const hold(channel.mutex_);
        for (auto const& place : channel.list_->places)
            if (place.registration && place.registration->isDead()) dead.push_back(place.registration);
    }
    for (auto const& registration : dead) {
        retire(*registration, gone);
        auto const found = byObserver_.find(registration->observer());
        if (found == byObserver_.end()) continue;
        std::erase(found->second, registration);
        if (found->second.empty()) byObserver_.erase(found);
    }
    std::ranges::move(dead, std::back_inserter(gone));
    channel.sweepAt_ = std::max<std::size_t>(32, channel.count_ * 2);
}

void NotificationRegistry::removeAll() {
    decltype(channels_) channels;
    decltype(byObserver_) byObserver;
    std::lock_guard const hold(mutex_);
    channels.swap(channels_);
    byObserver.swap(byObserver_);
    silence(*everyName_);
    for (auto const& [name, channel] : channels) silence(*channel);
}

void NotificationRegistry::silence(NSNotificationChannel& channel) {
    std::lock_guard const hold(channel.mutex_);
    for (auto const& place : channel.list_->places)
        if (place.registration) place.registration->isActive_.store(false, std::memory_order_release);
}

} // namespace Tessarin
