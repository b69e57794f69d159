#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"

#include "Tessarin/platform/foundation/notifications/NSNotificationChannel.h"
#include "Tessarin/platform/foundation/notifications/NotificationRegistryPrivate.h"
#include "Tessarin/platform/foundation/operations/NSOperationQueue.h"
#include "Tessarin/platform/runtime/Fatal.h"

namespace Tessarin {
namespace {

/// Has an operation of the queue call the block, when its turn comes and the observer is still there, and waits for it.
class QueueRegistration : public BlockRegistration {
public:
    bool deliver(NotificationPost& post) override {
        if (queue->runsHere())
            block(post.notification);
        else
            queue->runAndWait([&] {
                if (isActive()) block(post.notification);
            });
        return true;
    }
    Ref<NSOperationQueue> queue;
};

Ref<BlockRegistration> blockRegistration(Ref<NSOperationQueue> queue) {
    if (!queue) return make<BlockRegistration>();
    auto registration = make<QueueRegistration>();
    registration->queue = std::move(queue);
    return registration;
}

} // namespace

NSNotificationCenter::NSNotificationCenter() : registry_(std::make_shared<NotificationRegistry>()) { registry_->start(); }
NSNotificationCenter::~NSNotificationCenter() { registry_->removeAll(); }

Ref<NSNotificationCenter> const& NSNotificationCenter::defaultCenter() {
    static auto const& shared = *new Ref<NSNotificationCenter>(make<NSNotificationCenter>());
    return shared;
}

void NSNotificationCenter::addObserver(Ref<NSObject> const& observer, Selector selector, std::optional<std::string_view> name,
                                       Ref<NSObject> const& object) {
    if (!observer) fatal("addObserver: there is no observer");
    auto registration = make<SelectorRegistration>();
    registration->selector = selector;
    registration->entry = observer->objectClass().find(selector);
    registration->setObserver(observer);
    registration->setSender(object);
    registry_->add(name, *registration);
}

Ref<NSObject> NSNotificationCenter::addObserverForName(std::optional<std::string_view> name, Ref<NSObject> const& object,
                                                       Ref<NSOperationQueue> queue, Block block) {
    if (!block) fatal("addObserverForName: there is no block");
    auto registration = blockRegistration(std::move(queue));
    registration->block = std::move(block);
    registration->setSender(object);
    registry_->add(name, *registration);
    return registration;
}

void NSNotificationCenter::removeObserver(NSObject const& observer) { registry_->remove(observer, {}, nullptr); }

void NSNotificationCenter::removeObserver(NSObject const& observer, std::optional<std::string_view> name,
                                          Ref<NSObject> const& object) {
    registry_->remove(observer, name, object.get());
}

void NSNotificationCenter::postNotification(Ref<NSNotification> const& notification) {
    if (!notification) fatal("postNotification: there is no notification");
    if (auto const channel = registry_->existingChannel(notification->name()))
        channel->post(notification);
    else
        registry_->everyName()->post(notification);
}

void NSNotificationCenter::postNotificationName(std::string_view name, Ref<NSObject> object, Value userInfo) {
    auto channel = registry_->existingChannel(name);
    if (!channel) channel = registry_->everyName();
    if (channel->hasObservers())
        channel->post(NSNotification::notificationWithName(name, std::move(object), std::move(userInfo)));
}

Ref<NSNotificationChannel> NSNotificationCenter::channelForName(std::string_view name) { return registry_->channel(name); }

} // namespace Tessarin
