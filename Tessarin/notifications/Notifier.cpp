#include "Tessarin/notifications/Notifier.h"

#include "Tessarin/dispatch/Dispatcher.h"
#include "Tessarin/platform/foundation/NSBundle.h"
#include "Tessarin/platform/foundation/NSNotificationCenter.h"
#include "Tessarin/platform/foundation/NSNotificationChannel.h"
#include "Tessarin/platform/foundation/NSOperationQueue.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>

namespace Tessarin {
namespace {

[[maybe_unused]] auto const& registered = registerClass<Notifier>();

bool matches(Notifier::Watcher const& watcher, UnwatchTarget const& options) {
    return (options.object ? equal(watcher.object(), options.object) : !watcher.object()) && *options.target == watcher.target();
}

/// A plain watcher with a block never ends by itself; what another class says of itself must be asked.
bool isForGood(Notifier::Watcher const& watcher) {
    return watcher.block() && typeid(watcher) == typeid(detail::Made<Notifier::Watcher>);
}

} // namespace

std::optional<Notifier::Coalescent> Notifier::Coalescent::fromRawValue(std::int64_t rawValue) {
    if (rawValue < 0 || rawValue > 2) return {};
    return Coalescent{rawValue};
}

Notifier::Notifier() = default;
Notifier::~Notifier() = default;

void Notifier::init() { fatal("\"init()\" not implemented on \"Tessarin.Notifier\""); }

void Notifier::init(std::string name) {
    NSObject::init();
    auto const identifier = NSBundle::mainBundle()->bundleIdentifier();
    if (!identifier) fatal("Notifier.init: the main bundle has no identifier");
    serializer_ = make<NSOperationQueue>(Serial::Yes);
    name_ = std::move(name) + "." + *identifier;
    channel_ = NSNotificationCenter::defaultCenter()->channelForName(name_);
}

void Notifier::watch(WatchTarget options) {
    serializer_->addOperationWithBlockAndWait([&] {
        auto watcher =
            make<Watcher>(self<Notifier>(), std::move(options.object), options.target.get(), *options.message, options.count);
        mayBecomeObsolete_.set(true);
        watchers_.append(std::move(watcher));
        clean(false);
    });
}

Ref<NSObject> Notifier::watch(WatchBlock options) {
    auto watcher = make<Watcher>(self<Notifier>(), std::move(options.object), std::move(options.block).get(), options.count);
    append(watcher);
    return watcher;
}

void Notifier::watch(WatchTied options) {
    append(make<WatcherWithLinkedObject>(self<Notifier>(), std::move(options.object), std::move(options.tiedTo).get(),
                                         std::move(options.block).get(), options.count));
}

void Notifier::append(Ref<Watcher> watcher) {
    if (!isForGood(*watcher)) mayBecomeObsolete_.set(true);
    serializer_->addOperationWithBlockAndWait([&] {
        watchers_.append(std::move(watcher));
        clean(false);
    });
}

void Notifier::unwatch(UnwatchTarget options) {
    serializer_->addOperationWithBlock([self = self<Notifier>(), snapshot = watchers(), options = std::move(options)] {
        // The first match only, on purpose: what was registered twice takes two calls.
        auto const found = std::ranges::find_if(snapshot, [&](auto const& watcher) { return matches(*watcher, options); });
        if (found != snapshot.end()) (*found)->unregister();
        self->clean(false);
    });
}

void Notifier::notify(NotifyOptions options) {
    // `coalescent` is not looked at, on purpose: every call posts, so that nobody's delivery depends on somebody else's.
    if (options.forceCurrentThread) return channel_->postFrom(std::move(options.object), std::move(options.info));
    Dispatcher::main()->async([channel = channel_, object = std::move(options.object), info = std::move(options.info)] {
        channel->postFrom(object, info);
    });
}

void Notifier::unwatch(Ref<NSObject> const& observer) {
    auto const watcher = std::dynamic_pointer_cast<Watcher>(observer);
    if (watcher) watcher->Watcher::unregister();
}

void Notifier::setWatchers(std::vector<Ref<Watcher>> watchers) {
    if (!std::ranges::all_of(watchers, [](auto const& watcher) { return isForGood(*watcher); })) mayBecomeObsolete_.set(true);
    watchers_.set(std::move(watchers));
}

void Notifier::modifyWatchers(FunctionRef<void(std::vector<Ref<Watcher>>&)> change) {
    auto changed = watchers();
    change(changed);
    setWatchers(std::move(changed));
}

void Notifier::unregister(Watcher const& watcher) {
    std::size_t position = 0;
    {
        SharedList<Ref<Watcher>>::Reading const now(watchers_);
        auto const found = std::find_if(now.begin(), now.end(), [&](auto const& other) { return other->isEqual(watcher); });
        if (found == now.end()) return;
        position = static_cast<std::size_t>(found - now.begin());
    }
    // Removal is by the position found at call time, even if the list has changed since: of two watchers that are unregistered
    // at once, the second position may name another watcher by then, or none.
    serializer_->addOperationWithBlock([self = self<Notifier>(), position] {
        if (!self->watchers_.removeAt(position))
            fatal("Notifier.unregister: there is no watcher at position " + std::to_string(position) + " any more");
    });
}

void Notifier::fireAll() {
    // An operation that is under way may be about to append a watcher; then this one has to follow it.
    if (watchers_.isEmpty() && connected_.isEmpty() && !serializer_->hasOperations()) return;
    serializer_->addOperationWithBlock([self = self<Notifier>()] {
        SharedList<Ref<Watcher>>::Reading const now(self->watchers_), connected(self->connected_);
        for (auto const& watcher : now) watcher->fired(nullptr);
        for (auto const& watcher : connected)
            if (watcher->isActive()) watcher->fired(nullptr);
    });
}

void Notifier::clean(bool later) {
    if (later) return serializer_->addOperationWithBlock([self = self<Notifier>()] { self->clean(false); });
    if (!mayBecomeObsolete_.get()) return;
    SharedList<Ref<Watcher>>::Reading const now(watchers_);
    for (auto const& watcher : now)
        if (watcher->isObsolete()) watchers_.remove(watcher);
}

} // namespace Tessarin
