#pragma once
#include "Tessarin/dispatch/Dispatcher.h"
#include "Tessarin/notifications/Notifier.h"
#include "Tessarin/platform/foundation/bundles/NSBundle.h"
#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/foundation/operations/NSOperationQueue.h"

#include <gtest/gtest.h>
#include <functional>

namespace Tessarin::tests {

/// An application with an identifier, so that channels can be made.
class NotifierTest : public testing::Test {
protected:
    NotifierTest() { NSBundle::mainBundle()->setBundleIdentifier("org.example.tests"); }

    /// Posts here and now.
    static void post(Ref<Notifier> const& notifier, Ref<NSObject> object = nullptr) {
        notifier->notify({.object = std::move(object), .forceCurrentThread = true});
    }
    /// How many watchers there are when the serializer has done what was asked of it.
    static std::size_t settled(Ref<Notifier> const& notifier) {
        // Twice, for `unwatch` finds a watcher in one operation and removes it in another.
        for (int i = 0; i < 2; ++i) notifier->serializer()->waitUntilAllOperationsAreFinished();
        return notifier->watchers().size();
    }
    /// Holds the serializer until the function that it returns is called.
    static std::function<void()> hold(Ref<Notifier> const& notifier) {
        auto const released = dispatch_semaphore_create(0);
        notifier->serializer()->addOperationWithBlock([=] { dispatch_semaphore_wait(released, DISPATCH_TIME_FOREVER); });
        return [=] { dispatch_semaphore_signal(released); };
    }
};

/// Answers "heard:", "poked" and, as objects do, is equal to others of its mark.
class Listener : public NSObject {
public:
    void heard(Ref<NSNotification> notification) {
        ++deliveries;
        last = std::move(notification);
    }
    void poked() { ++deliveries; }
    static SelectorTable selectors() { return {{"heard:"_sel, &Listener::heard}, {"poked"_sel, &Listener::poked}}; }
    bool isEqual(NSObject const& other) const override {
        auto const* const listener = dynamic_cast<Listener const*>(&other);
        return this == listener || (listener && mark != 0 && mark == listener->mark);
    }

    int deliveries = 0;
    int mark = 0;
    Ref<NSNotification> last;
};

} // namespace Tessarin::tests
