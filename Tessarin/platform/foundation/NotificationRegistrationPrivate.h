#pragma once
#include "Tessarin/platform/foundation/NSNotification.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include <atomic>
#include <cstdint>
#include <optional>

namespace Tessarin {

class NotificationRegistry;
class NSNotificationChannel;

/// One post on its way; what observers by selector get is boxed once for all of them.
struct NotificationPost {
    Ref<NSNotification> const& notification;
    NSObject const* sender;
    Value boxed;

    explicit NotificationPost(Ref<NSNotification> const& posted) : notification(posted), sender(posted->object().get()) {}
    Value const& argument() {
        if (boxed.isAbsent()) boxed = Value(notification);
        return boxed;
    }
};

/// One observer's place at a centre; of a closure observer also its token. Observers and senders are remembered by address;
/// the weak references beside the addresses see to it that the storage is not used for another object meanwhile.
class NotificationRegistration : public NSObject {
public:
    /// False when the observer is no more.
    virtual bool deliver(NotificationPost& post) = 0;
    virtual bool isDead() const { return senderAddress_ && sender_.expired(); }
    virtual NSObject const* observer() const { return this; }

    bool isActive() const noexcept { return isActive_.load(std::memory_order_acquire); }
    bool accepts(NSObject const* sender) const noexcept { return !senderAddress_ || senderAddress_ == sender; }
    bool matches(std::optional<std::string_view> name, NSObject const* sender) const;
    void setSender(Ref<NSObject> const& sender) {
        sender_ = sender;
        senderAddress_ = sender.get();
    }

private:
    friend class NotificationRegistry;

    std::atomic<bool> isActive_{true};
    std::uint64_t sequence_ = 0; // these are constant once registered
    NSObject const* senderAddress_ = nullptr;
    WeakRef<NSObject> sender_;
    NotificationRegistry const* home_ = nullptr;
    NSNotificationChannel* channel_ = nullptr; // valid while active
};

class BlockRegistration : public NotificationRegistration {
public:
    bool deliver(NotificationPost& post) override {
        block(post.notification);
        return true;
    }
    Closure<void(Ref<NSNotification> const&)> block;
};

class WeakRegistration : public NotificationRegistration {
public:
    void setObserver(Ref<NSObject> const& observer) {
        observer_ = observer;
        observerAddress_ = observer.get();
    }
    bool isDead() const override { return observer_.expired() || NotificationRegistration::isDead(); }
    NSObject const* observer() const override { return observerAddress_; }

protected:
    WeakRef<NSObject> observer_;
    NSObject const* observerAddress_ = nullptr;
};

class MemberRegistration : public WeakRegistration {
public:
    bool deliver(NotificationPost& post) override;
    Closure<void(NSObject&, Ref<NSNotification> const&)> member;
};

class SelectorRegistration : public WeakRegistration {
public:
    bool deliver(NotificationPost& post) override;
    std::optional<Selector> selector;
    SelectorTable::Entry const* entry = nullptr; // what the observer's class answers; null when it does not
};

} // namespace Tessarin
