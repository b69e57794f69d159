#include "Tessarin/platform/foundation/NotificationRegistrationPrivate.h"

#include "Tessarin/platform/foundation/NSNotificationChannel.h"

namespace Tessarin {

bool NotificationRegistration::matches(std::optional<std::string_view> name, NSObject const* sender) const {
    return (!name || channel_->name() == *name) && (!sender || sender == senderAddress_);
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
