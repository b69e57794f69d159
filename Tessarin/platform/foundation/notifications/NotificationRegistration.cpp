#include "Tessarin/platform/foundation/notifications/NotificationRegistrationPrivate.h"

#include "Tessarin/platform/foundation/notifications/NSNotificationChannel.h"

namespace Tessarin {

bool NotificationRegistration::matches(std::optional<std::string_view> name, NSObject const* from) const {
    return (!name || channel_->name() == *name) && (!from || from == sender());
}

void NSNotificationListener::listenTo(NSNotificationChannel& channel) { channel.add(*this); }

void NSNotificationListener::endWith(void (*destroy)(void*), void* object) {
    if (channel_)
        channel_->end(*this, destroy, object);
    else
        destroy(object);
}

bool MemberRegistration::deliver(NotificationPost& post) {
    auto const observer = observer_.lock();
    if (observer) member(*observer, post.notification);
    return observer != nullptr;
}

bool SelectorRegistration::deliver(NotificationPost& post) {
    auto const observer = observer_.lock();
    if (!observer) return false;
    if (!entry)
        observer->performSelector(*selector, post.notification); // answered since, or fatal
    else if (entry->parameterCount() == 0)
        (*entry)(observer.get(), {});
    else
        (*entry)(observer.get(), {&post.argument(), 1});
    return true;
}

} // namespace Tessarin
