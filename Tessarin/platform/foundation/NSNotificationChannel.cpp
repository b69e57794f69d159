#include "Tessarin/platform/foundation/NSNotificationChannel.h"

#include "Tessarin/platform/foundation/NotificationListPrivate.h"
#include "Tessarin/platform/foundation/NotificationRegistryPrivate.h"

#include <algorithm>

namespace Tessarin {

NSNotificationChannel::NSNotificationChannel(Text name, WeakRef<NotificationRegistry> registry, Ref<NSNotificationChannel> everyName)
    : name_(std::move(name)), registry_(std::move(registry)), everyName_(std::move(everyName)), list_(std::make_unique<List>()) {}

NSNotificationChannel::~NSNotificationChannel() = default;

bool NSNotificationChannel::hasObservers() const noexcept {
    return count_.load(std::memory_order_acquire) != 0 || (everyName_ && everyName_->hasObservers());
}

NSNotificationChannel::Reading::Reading(NSNotificationChannel& channel) : channel_(channel) {
    std::lock_guard const hold(channel.mutex_);
    list_ = channel.list_.get();
    ++list_->readers;
}

NSNotificationChannel::Reading::~Reading() {
    std::unique_ptr<List> left; // destroyed after the lock, with the closures of observers that were removed meanwhile
    std::lock_guard const hold(channel_.mutex_);
    if (--list_->readers == 0 && list_ != channel_.list_.get()) left.reset(list_);
}

Ref<NotificationRegistration> NSNotificationChannel::List::take(std::uint64_t sequence) {
    auto const at = std::ranges::lower_bound(places, sequence, {}, &Place::sequence);
    auto taken = std::move(at->registration);
    if (++removed * 2 > places.size()) dropRemoved();
    return taken;
}

void NSNotificationChannel::List::dropRemoved() {
    std::erase_if(places, [](Place const& place) { return !place.registration; });
    removed = 0;
}

NSNotificationChannel::List& NSNotificationChannel::writable() {
    if (list_->readers == 0) return *list_;
    auto copy = std::make_unique<List>();
    copy->places = list_->places;
    copy->dropRemoved();
    static_cast<void>(list_.release()); // the last of its readers destroys it
    list_ = std::move(copy);
    return *list_;
}

void NSNotificationChannel::post(Ref<NSNotification> const& notification) {
    NotificationPost post{notification};
    bool sawDead = false;
    auto const offer = [&](List::Place const& place) {
        auto* const registration = place.registration.get();
        if (registration && registration->isActive() && registration->accepts(post.sender)) sawDead |= !registration->deliver(post);
    };
    Reading const own(*this);
    if (!everyName_ || everyName_->count_.load(std::memory_order_acquire) == 0) {
        for (auto const& place : own.places()) offer(place);
    } else {
        Reading const every(*everyName_);
        auto at = own.places().begin(), end = own.places().end();
        for (auto const& place : every.places()) { // two lists in order of registration, merged
            for (; at != end && at->sequence < place.sequence; ++at) offer(*at);
            offer(place);
        }
        for (; at != end; ++at) offer(*at);
    }
    if (!sawDead) return;
    if (auto const registry = registry_.lock()) {
        registry->sweep(*this);
        if (everyName_) registry->sweep(*everyName_);
    }
}

Ref<NSObject> NSNotificationChannel::addObserver(Ref<NSObject> const& sender, Block block) {
    auto registration = make<BlockRegistration>();
    registration->block = std::move(block);
    registration->setSender(sender);
    if (auto const registry = registry_.lock()) registry->add(*this, registration);
    return registration;
}

void NSNotificationChannel::addMember(Ref<NSObject> const& observer, Member member, Ref<NSObject> const& sender) {
    auto registration = make<MemberRegistration>();
    registration->member = std::move(member);
    registration->setObserver(observer);
    registration->setSender(sender);
    if (auto const registry = registry_.lock()) registry->add(*this, std::move(registration));
}

} // namespace Tessarin
