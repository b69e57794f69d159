#include "Tessarin/platform/foundation/NSNotificationChannel.h"

#include "Tessarin/platform/foundation/NotificationListPrivate.h"
#include "Tessarin/platform/foundation/NotificationRegistryPrivate.h"

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

NSNotificationChannel::List& NSNotificationChannel::writable() {
    if (list_->readers == 0) return *list_;
    auto copy = std::make_unique<List>();
    copy->registrations = list_->registrations;
    static_cast<void>(list_.release()); // the last of its readers destroys it
    list_ = std::move(copy);
    return *list_;
}

void NSNotificationChannel::post(Ref<NSNotification> const& notification) {
    NotificationPost post{notification};
    bool sawDead = false;
    auto const offer = [&](NotificationRegistration& registration) {
        if (registration.isActive() && registration.accepts(post.sender)) sawDead |= !registration.deliver(post);
    };
    Reading const own(*this);
    if (!everyName_ || everyName_->count_.load(std::memory_order_acquire) == 0) {
        for (auto const& registration : own.registrations()) offer(*registration);
    } else {
        Reading const every(*everyName_);
        auto at = own.registrations().begin(), end = own.registrations().end();
        for (auto const& registration : every.registrations()) { // two lists in order of registration, merged
            for (; at != end && (*at)->sequence() < registration->sequence(); ++at) offer(**at);
            offer(*registration);
        }
        for (; at != end; ++at) offer(**at);
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
