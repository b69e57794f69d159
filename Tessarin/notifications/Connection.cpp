#include "Tessarin/notifications/Connection.h"

#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/foundation/operations/NSOperationQueue.h"

namespace Tessarin {

Notifier::Connection Notifier::connect(WatchTarget options) {
    return connect(
        make<Watcher>(self<Notifier>(), std::move(options.object), options.target.get(), *options.message, options.count));
}

Notifier::Connection Notifier::connect(WatchBlock options) {
    return connect(
        make<Watcher>(self<Notifier>(), std::move(options.object), std::move(options.block).get(), options.count));
}

Notifier::Connection Notifier::connect(Ref<Watcher> watcher) {
    serializer_->addOperationWithBlock([self = self<Notifier>(), watcher] { self->connected_.append(watcher); });
    return Connection(std::move(watcher));
}

void Notifier::disconnect(Ref<Watcher> watcher) {
    NSNotificationCenter::defaultCenter()->removeObserver(*watcher);
    // By identity: where it stands by then is of no matter.
    serializer_->addOperationWithBlock(
        [self = self<Notifier>(), watcher = std::move(watcher)] { self->connected_.remove(watcher); });
}

Notifier::Connection& Notifier::Connection::operator=(Connection&& other) noexcept {
    if (this == &other) return *this;
    disconnect();
    watcher_ = std::move(other.watcher_);
    return *this;
}

void Notifier::Connection::disconnect() {
    if (auto watcher = std::exchange(watcher_, nullptr)) {
        auto const notifier = watcher->notifier();
        notifier->disconnect(std::move(watcher));
    }
}

bool Notifier::Connection::isConnected() const { return watcher_ && watcher_->isActive(); }

} // namespace Tessarin
