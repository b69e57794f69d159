#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/notifications/NSNotification.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/Ref.h"
#include "Tessarin/platform/runtime/SpinLock.h"
#include "Tessarin/platform/runtime/Text.h"
#include "Tessarin/platform/runtime/Value.h"
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace Tessarin {

class NotificationRegistration;
class NSNotificationListener;
class NotificationRegistry;

/// One name at a notification centre: to post there without looking the name up, and to observe it without a selector. Any
/// thread.
///
///     auto const channel = NSNotificationCenter::defaultCenter()->channelForName("DocumentSaved");
///     channel->postFrom(document);
class TESSARIN_API NSNotificationChannel {
public:
    using Block = Closure<void(Ref<NSNotification> const&)>;

    ~NSNotificationChannel();
    NSNotificationChannel(NSNotificationChannel const&) = delete;
    NSNotificationChannel& operator=(NSNotificationChannel const&) = delete;

    Text const& name() const noexcept { return name_; }
    /// Whether a post might reach anybody, whatever its sender.
    bool hasObservers() const noexcept {
        return count_.load(std::memory_order_acquire) != 0 || (everyName_ && everyName_->hasObservers());
    }
    /// As `postNotification` of the centre; the notification must have this channel's name.
    void post(Ref<NSNotification> const& notification);
    /// The same with a notification of this channel's name, which is only made when there are observers; without a sender or
    /// details, the one of an earlier post serves again when nobody has kept it.
    void postFrom(Ref<NSObject> object = nullptr, Value userInfo = {});

    /// As at the centre: returns a token, and lasts until the centre removes that token.
    Ref<NSObject> addObserver(Ref<NSObject> const& sender, Block block);
    /// Calls a member of the observer, which is held weakly, without the detour through a selector. Ends when the centre
    /// removes the observer, and when the observer is destroyed.
    template <class T>
    void addObserver(Ref<T> const& observer, void (T::*member)(Ref<NSNotification> const&),
                     Ref<NSObject> const& sender = nullptr) {
        addMember(observer, [member](NSObject& object, Ref<NSNotification> const& notification) {
            (static_cast<T&>(object).*member)(notification);
        }, sender);
    }

private:
    friend class NotificationRegistry;
    friend class NSNotificationListener;
    struct List;
    class Reading;
    using Member = Closure<void(NSObject&, Ref<NSNotification> const&)>;
    using Registrations = std::vector<Ref<NotificationRegistration>>;

    NSNotificationChannel(Text name, WeakRef<NotificationRegistry> registry, std::uint32_t home,
                          Ref<NSNotificationChannel> everyName);
    void addMember(Ref<NSObject> const& observer, Member member, Ref<NSObject> const& sender);
    void deliver(Reading const& own, Ref<NSNotification> const& notification);
    bool add(NotificationRegistration& registration);
    /// Makes the registration inactive; false when it was. What kept it alive goes to `gone`, and to the posts that may see it.
    bool remove(NotificationRegistration& registration, Registrations& gone);
    void end(NSNotificationListener& listener, void (*destroy)(void*), void* object);
    void silence(Registrations& gone); // for the end of the centre
    // With the mutex held:
    List& writable();
    bool takeOut(NotificationRegistration& registration);
    void release(NotificationRegistration& registration, Registrations& gone);
    void keepForReaders(Ref<void> const& object); // until those who read now have ended

    // What a post reads comes first.
    alignas(64) SpinLock mutex_; // held for a look at the list, or its copy; the benchmark "notifications" shows why no other
    bool isSilent_ = false;                      // since its centre ended; guarded by mutex_, as are the next two
    std::unique_ptr<List> list_;                 // changed in place only while nobody reads it
    Ref<NSNotification> plain_;                  // no sender, no details, nobody's
    std::atomic<std::size_t> count_{0};          // of registrations; written with mutex_ held
    Ref<NSNotificationChannel> const everyName_; // the observers of every name; null for themselves
    std::vector<List*> formerLists_;             // guarded by mutex_; still read, the last reader destroys them
    Text const name_;
    WeakRef<NotificationRegistry> const registry_;
    std::uint32_t const home_;   // the number of its centre
    std::size_t sweepAt_ = 32;   // guarded by the registry's mutex
};

} // namespace Tessarin
