#include "Tessarin/platform/foundation/notifications/NSNotificationChannel.h"

#include "Tessarin/platform/foundation/notifications/NotificationListPrivate.h"
#include "Tessarin/platform/foundation/notifications/NotificationRegistryPrivate.h"

#include <algorithm>
#include <mutex>

namespace Tessarin {

namespace {

// One row for all centres, so that a listener's place needs no lock but the channel's.
constinit std::atomic<std::uint64_t> lastSequence{0};

} // namespace

NSNotificationChannel::NSNotificationChannel(Text name, WeakRef<NotificationRegistry> registry, std::uint32_t home,
                                             Ref<NSNotificationChannel> everyName)
    : list_(std::make_unique<List>()),
      everyName_(std::move(everyName)),
      name_(std::move(name)),
      registry_(std::move(registry)),
      home_(home) {}

NSNotificationChannel::~NSNotificationChannel() = default;

NSNotificationChannel::Reading::Reading(NSNotificationChannel& channel, Ref<NSNotification>* plain)
    : channel_(channel), plain_(plain) {
    std::lock_guard const hold(channel.mutex_);
    list_ = channel.list_.get();
    ++list_->readers;
    if (plain_) *plain_ = std::move(channel.plain_);
}

NSNotificationChannel::Reading::~Reading() {
    // It is never written to, so that whoever has just released it need not be waited for.
    bool const isNobodys = plain_ && plain_->use_count() == 1 && !(*plain_)->hasAssociatedObjects();
    std::unique_ptr<List> left; // destroyed after the lock, with what was removed meanwhile
    std::lock_guard const hold(channel_.mutex_);
    if (isNobodys && !channel_.plain_) channel_.plain_ = std::move(*plain_);
    if (--list_->readers > 0 || list_ == channel_.list_.get()) return;
    left.reset(list_);
    std::erase(channel_.formerLists_, list_);
}

NSNotificationChannel::List::Places& NSNotificationChannel::List::Places::operator=(Places const& other) {
    if (this == &other) return *this;
    size_ = 0;
    if (other.size_ > capacity_) grow(other.size_);
    std::ranges::copy(other, first_);
    size_ = other.size_;
    return *this;
}

void NSNotificationChannel::List::Places::append(Place place) {
    if (size_ == capacity_) grow(capacity_ * 2);
    first_[size_++] = place;
}

void NSNotificationChannel::List::Places::clear() noexcept {
    if (first_ != few_) delete[] first_;
    first_ = few_;
    size_ = 0;
    capacity_ = few;
}

void NSNotificationChannel::List::Places::grow(std::uint32_t capacity) {
    auto* const larger = new Place[capacity];
    std::ranges::copy(*this, larger);
    auto const size = size_;
    clear();
    first_ = larger;
    size_ = size;
    capacity_ = capacity;
}

void NSNotificationChannel::List::take(std::uint64_t sequence) {
    std::ranges::lower_bound(places, sequence, {}, &Place::sequence)->markRemoved();
    if (++removed * 2 > places.size()) dropRemoved();
}

void NSNotificationChannel::List::dropRemoved() {
    auto const left = std::ranges::remove_if(places, [](Place const& place) { return !place.registration(); });
    places.resize(static_cast<std::size_t>(left.begin() - places.begin()));
    removed = 0;
}

NSNotificationChannel::List& NSNotificationChannel::writable() {
    if (list_->readers == 0) return *list_;
    auto copy = std::make_unique<List>();
    copy->places = list_->places;
    copy->dropRemoved();
    formerLists_.push_back(list_.release());
    list_ = std::move(copy);
    return *list_;
}

bool NSNotificationChannel::add(NotificationRegistration& registration) {
    std::lock_guard const hold(mutex_);
    if (isSilent_) return false;
    registration.home_ = home_;
    registration.channel_ = this;
    registration.sequence_ = lastSequence.fetch_add(1, std::memory_order_relaxed) + 1;
    registration.isActive_.store(true, std::memory_order_release);
    writable().places.append(List::Place(registration));
    count_.store(count_.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    return true;
}

bool NSNotificationChannel::takeOut(NotificationRegistration& registration) {
    // A post that walks an older list passes over it from now on.
    if (!registration.isActive_.exchange(false, std::memory_order_acq_rel)) return false;
    writable().take(registration.sequence_);
    count_.store(count_.load(std::memory_order_relaxed) - 1, std::memory_order_release);
    return true;
}

void NSNotificationChannel::keepForReaders(Ref<void> const& object) {
    for (auto* const list : formerLists_) {
        if (!list->keeps) list->keeps = std::make_unique<std::vector<Ref<void>>>();
        list->keeps->push_back(object);
    }
}

bool NSNotificationChannel::remove(NotificationRegistration& registration, Registrations& gone) {
    std::lock_guard const hold(mutex_);
    if (!takeOut(registration)) return false;
    release(registration, gone);
    return true;
}

void NSNotificationChannel::release(NotificationRegistration& registration, Registrations& gone) {
    auto kept = registration.takeSelf();
    if (!kept) return;
    keepForReaders(kept);
    gone.push_back(std::move(kept));
}

void NSNotificationChannel::end(NSNotificationListener& listener, void (*destroy)(void*), void* object) {
    {
        std::lock_guard const hold(mutex_);
        takeOut(listener); // if that list was read, it is a former one now
        if (!formerLists_.empty()) return keepForReaders(Ref<void>(object, destroy));
    }
    destroy(object);
}

void NSNotificationChannel::silence(Registrations& gone) {
    std::lock_guard const hold(mutex_);
    isSilent_ = true;
    count_ = 0;
    auto const places = writable().places;
    list_->places.clear();
    for (auto const& place : places) {
        auto* const registration = place.registration();
        if (!registration) continue;
        registration->isActive_.store(false, std::memory_order_release);
        release(*registration, gone);
    }
}

void NSNotificationChannel::post(Ref<NSNotification> const& notification) { deliver(Reading(*this), notification); }

void NSNotificationChannel::postFrom(Ref<NSObject> object, Value userInfo) {
    if (!hasObservers()) return;
    if (object || !userInfo.isAbsent()) return post(make<NSNotification>(name_, std::move(object), std::move(userInfo)));
    Ref<NSNotification> plain;
    Reading const own(*this, &plain);
    if (!plain) plain = make<NSNotification>(name_, nullptr, Value{});
    deliver(own, plain);
}

void NSNotificationChannel::deliver(Reading const& own, Ref<NSNotification> const& notification) {
    NotificationPost post{notification};
    bool sawDead = false;
    auto const offer = [&](List::Place const& place) {
        auto* const registration = place.registration();
        if (!registration || !registration->isActive()) return;
        if (place.isFiltered() && !registration->accepts(post.sender())) return;
        if (place.isListener())
            static_cast<NSNotificationListener*>(registration)->fired(notification);
        else
            sawDead |= !static_cast<OwnRegistration*>(registration)->deliver(post);
    };
    if (!everyName_ || everyName_->count_.load(std::memory_order_acquire) == 0) {
        for (auto const& place : own.places()) offer(place);
    } else {
        Reading const every(*everyName_);
        auto at = own.places().begin(), end = own.places().end();
        for (auto const& place : every.places()) { // two lists in order of registration, merged
            for (; at != end && at->sequence() < place.sequence(); ++at) offer(*at);
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
    if (auto const registry = registry_.lock()) registry->add(*this, *registration);
    return registration;
}

void NSNotificationChannel::addMember(Ref<NSObject> const& observer, Member member, Ref<NSObject> const& sender) {
    auto registration = make<MemberRegistration>();
    registration->member = std::move(member);
    registration->setObserver(observer);
    registration->setSender(sender);
    if (auto const registry = registry_.lock()) registry->add(*this, *registration);
}

} // namespace Tessarin
