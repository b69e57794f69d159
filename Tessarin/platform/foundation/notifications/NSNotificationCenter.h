#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/notifications/NSNotification.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include <memory>
#include <optional>
#include <string_view>

namespace Tessarin {

class NotificationRegistry;
class NSNotificationChannel;
class NSOperationQueue;

/// Carries notifications from those who post to those who observe. A post calls its observers on the posting thread, in the
/// order of their registration, and returns when all have been called; observers added meanwhile are not called, observers
/// removed meanwhile no longer are. Any thread, also from inside an observer. A missing observer, block or notification is fatal.
///
///     auto const& centre = NSNotificationCenter::defaultCenter();
///     centre->addObserver(self, "documentSaved:"_sel, "DocumentSaved");
///     auto const token = centre->addObserverForName("DocumentSaved", document, nullptr, [](auto const& note) { show(note); });
///     centre->postNotificationName("DocumentSaved", document);
///     centre->removeObserver(*token);
class TESSARIN_API NSNotificationCenter : public NSObject {
public:
    using Block = Closure<void(Ref<NSNotification> const&)>;

    static Ref<NSNotificationCenter> const& defaultCenter();

    /// Sends `selector` with the notification to the observer, which is held weakly: a destroyed one is forgotten. An absent
    /// name stands for every name, a null object for every sender. Registered twice, it is called twice. A post is fatal
    /// when the observer does not answer the selector.
    void addObserver(Ref<NSObject> const& observer, Selector selector, std::optional<std::string_view> name = {},
                     Ref<NSObject> const& object = nullptr);
    void addObserver(Ref<NSObject> const& observer, std::string_view name) = delete; // which selector is sent? "reload:"_sel
    /// Calls `block` with the notification: on the posting thread, or, given a queue, in an operation of that queue, and the post
    /// waits until it has ended; a post from inside an operation of the same queue calls the block here and now. So a thread
    /// that posts must hold nothing that the queue's operations wait for. Lasts until the returned token is removed; the token
    /// itself keeps nothing alive.
    Ref<NSObject> addObserverForName(std::optional<std::string_view> name, Ref<NSObject> const& object,
                                     Ref<NSOperationQueue> queue, Block block);

    /// Removes all registrations of an observer, which may be a token. What is not registered is ignored.
    void removeObserver(NSObject const& observer);
    /// Removes those with that name (any when absent) and that sender filter (any when null).
    void removeObserver(NSObject const& observer, std::optional<std::string_view> name, Ref<NSObject> const& object = nullptr);

    void postNotification(Ref<NSNotification> const& notification);
    void postNotificationName(std::string_view name, Ref<NSObject> object = nullptr, Value userInfo = {});

    /// What belongs to one name, for those who post it often.
    Ref<NSNotificationChannel> channelForName(std::string_view name);

    ~NSNotificationCenter() override;

protected:
    NSNotificationCenter();

private:
    Ref<NotificationRegistry> const registry_;
};

} // namespace Tessarin
