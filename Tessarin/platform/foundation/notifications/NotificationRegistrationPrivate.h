#pragma once
#include "Tessarin/platform/foundation/notifications/NSNotificationListener.h"
#include "Tessarin/platform/runtime/Closure.h"
#include <optional>

namespace Tessarin {

/// One post on its way; what observers by selector get is boxed once for all of them.
struct NotificationPost {
    Ref<NSNotification> const& notification;
    Value boxed = {};

    NSObject const* sender() const { return notification->object().get(); }
    Value const& argument() {
        if (boxed.isAbsent()) boxed = Value(notification);
        return boxed;
    }
};

/// A registration that keeps itself alive while it is in a list. Senders and observers are remembered by address; the weak
/// references beside the addresses see to it that the storage is not used for another object meanwhile.
class OwnRegistration : public NotificationRegistration {
public:
    OwnRegistration() : NotificationRegistration(Kind::Own) {}
    /// False when the observer is no more.
    virtual bool deliver(NotificationPost& post) = 0;
    bool isDead() const override { return senderAddress_ && sender_.expired(); }
    NSObject const* sender() const final { return senderAddress_; }
    void setSender(Ref<NSObject> const& sender) {
        sender_ = sender;
        senderAddress_ = sender.get();
    }
    void keepSelf() { self_ = self<OwnRegistration>(); }

protected:
    Ref<NotificationRegistration> takeSelf() final { return std::move(self_); }

private:
    NSObject const* senderAddress_ = nullptr;
    WeakRef<NSObject> sender_;
    Ref<OwnRegistration> self_; // guarded by the registry's mutex
};

class BlockRegistration : public OwnRegistration {
public:
    bool deliver(NotificationPost& post) override {
        block(post.notification);
        return true;
    }
    Closure<void(Ref<NSNotification> const&)> block;
};

class WeakRegistration : public OwnRegistration {
public:
    void setObserver(Ref<NSObject> const& observer) {
        observer_ = observer;
        observerAddress_ = observer.get();
    }
    bool isDead() const override { return observer_.expired() || OwnRegistration::isDead(); }
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
