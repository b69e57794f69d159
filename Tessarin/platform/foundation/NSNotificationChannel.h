#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/NSNotification.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/Ref.h"
#include "Tessarin/platform/runtime/Text.h"
#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace Tessarin {

class NotificationRegistration;
class NotificationRegistry;

/// One name at a notification centre: to post there without looking the name up, and to observe it without a selector. Any
/// thread.
///
///     auto const channel = NSNotificationCenter::defaultCenter()->channelForName("DocumentSaved");
///     if (channel->hasObservers()) channel->post(NSNotification::notificationWithName("DocumentSaved", document));
class TESSARIN_API NSNotificationChannel {
public:
    using Block = Closure<void(Ref<NSNotification> const&)>;

    ~NSNotificationChannel();
    NSNotificationChannel(NSNotificationChannel const&) = delete;
    NSNotificationChannel& operator=(NSNotificationChannel const&) = delete;

    Text const& name() const noexcept { return name_; }
    /// Whether a post might reach anybody, whatever its sender.
    bool hasObservers() const noexcept;
    /// As `postNotification` of the centre; the notification must have this channel's name.
    void post(Ref<NSNotification> const& notification);

    /// As at the centre: returns a token, and lasts until the centre removes that token.
    Ref<NSObject> addObserver(Ref<NSObject> const& sender, Block block);
    /// Calls a member of the observer, which is held weakly, without the detour through a selector. Ends when the centre
    /// removes the observer, and when the observer is destroyed.
    template <class T>
    void addObserver(Ref<T> const& observer, void (T::*member)(Ref<NSNotification> const&), Ref<NSObject> const& sender = nullptr) {
        addMember(observer, [member](NSObject& object, Ref<NSNotification> const& notification) {
            std::invoke(member, static_cast<T&>(object), notification);
        }, sender);
    }

private:
    friend class NotificationRegistry;
    struct List;
    class Reading;
    using Member = Closure<void(NSObject&, Ref<NSNotification> const&)>;

    NSNotificationChannel(Text name, WeakRef<NotificationRegistry> registry, Ref<NSNotificationChannel> everyName);
    void addMember(Ref<NSObject> const& observer, Member member, Ref<NSObject> const& sender);
    List& writable(); // with the mutex held

    Text const name_;
    WeakRef<NotificationRegistry> const registry_;
    Ref<NSNotificationChannel> const everyName_; // the observers of every name; null for themselves
    std::atomic<std::size_t> count_{0};          // of registrations
    std::size_t sweepAt_ = 32;                   // guarded by the registry's mutex
    std::mutex mutex_;
    std::unique_ptr<List> list_; // guarded by mutex_; changed in place only while nobody reads it
};

} // namespace Tessarin
