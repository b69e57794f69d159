#include "Tessarin/notifications/Notifier.h"

#include "Tessarin/collections/Array.h"
#include "Tessarin/dispatch/Dispatcher.h"
#include "Tessarin/platform/foundation/bundles/NSBundle.h"
#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/foundation/notifications/NSNotificationChannel.h"
#include "Tessarin/platform/foundation/operations/NSOperationQueue.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>

namespace Tessarin {
namespace {

[[maybe_unused]] auto const& registered = registerClass<Notifier>();

bool matches(Notifier::Watcher const& watcher, UnwatchTarget const& options) {
    return (options.object ? equal(watcher.object(), options.object) : !watcher.object()) && *options.target == watcher.target();
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
    if (typeid(*this) == typeid(detail::Made<Notifier>)) changeInPlace();
}

void Notifier::watch(WatchTarget options) {
    serializer_->addOperationWithBlockAndWait([&] {
        insert(make<Watcher>(self<Notifier>(), std::move(options.object), options.target.get(), *options.message, options.count),
               Obsolete::WithTarget);
    });
}

Ref<NSObject> Notifier::watch(WatchBlock options) {
    auto watcher = make<Watcher>(self<Notifier>(), std::move(options.object), std::move(options.block).get(), options.count);
    append(watcher, watcher->block() ? Obsolete::Never : Obsolete::WhenItSaysSo);
    return watcher;
}

void Notifier::watch(WatchTied options) {
    append(make<WatcherWithLinkedObject>(self<Notifier>(), std::move(options.object), std::move(options.tiedTo).get(),
                                         std::move(options.block).get(), options.count),
           Obsolete::WithTarget);
}

void Notifier::append(Ref<Watcher> watcher, Obsolete when) {
    serializer_->addOperationWithBlockAndWait([&] { insert(std::move(watcher), when); });
}

void Notifier::insert(Ref<Watcher> watcher, Obsolete when) {
    auto const target = when == Obsolete::WithTarget ? watcher->target() : nullptr;
    if (target) endedTargets_.follow(*target, watcher.get());
    if (target || when == Obsolete::Never)
        watcher->endIsKnown(target != nullptr);
    else
        mustAsk_.set(true); // the target is no object, or has ended, or the watcher has reasons of its own
    if (changesInPlace_)
        watchers_.append(std::move(watcher));
    else
        modifyWatchers([&](auto& watchers) { watchers.push_back(std::move(watcher)); });
    clean(false);
}

void Notifier::remove(Ref<Watcher> const& watcher) {
    if (changesInPlace_) return watchers_.remove(watcher);
    modifyWatchers([&](auto& watchers) { Array::remove(watchers, watcher); });
}

/// Over the list as it stands now, whatever `visit` does to it.
void Notifier::forEachWatcher(FunctionRef<void(Ref<Watcher> const&)> visit) const {
    if (changesInPlace_) {
        SharedList<Ref<Watcher>>::Reading const now(watchers_);
        for (auto const& watcher : now) visit(watcher);
    } else {
        for (auto const& watcher : watchers())
            if (watcher) visit(watcher);
    }
}

void Notifier::unwatch(UnwatchTarget options) {
    serializer_->addOperationWithBlock([self = self<Notifier>(), snapshot = watchers(), options = std::move(options)] {
        // The first match only, on purpose: what was registered twice takes two calls.
        auto const isMeant = [&](auto const& watcher) { return watcher && matches(*watcher, options); };
        auto const found = std::ranges::find_if(snapshot, isMeant);
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
    std::erase(watchers, nullptr);
    mustAsk_.set(true);
    watchers_.set(std::move(watchers));
}

void Notifier::modifyWatchers(FunctionRef<void(std::vector<Ref<Watcher>>&)> change) {
    auto changed = watchers();
    change(changed);
    setWatchers(std::move(changed));
}

void Notifier::unregister(Watcher const& watcher) {
    std::optional<std::size_t> position;
    std::size_t at = 0;
    forEachWatcher([&](auto const& other) {
        if (!position && other->isEqual(watcher)) position = at;
        ++at;
    });
    if (!position) return;
    // Removal is by the position found at call time, even if the list has changed since: of two watchers that are unregistered
    // at once, the second position may name another watcher by then, or none.
    serializer_->addOperationWithBlock([self = self<Notifier>(), at = *position] {
        auto const missing = [&] {
            fatal("Notifier.unregister: there is no watcher at position " + std::to_string(at) + " any more");
        };
        if (self->changesInPlace_) return self->watchers_.removeAt(at) ? void() : missing();
        self->modifyWatchers([&](auto& watchers) {
            if (at >= watchers.size()) missing();
            watchers.erase(watchers.begin() + static_cast<std::ptrdiff_t>(at));
        });
    });
}

void Notifier::fireAll() {
    // An operation that is under way may be about to append a watcher; then this one has to follow it.
    if (changesInPlace_ && watchers_.isEmpty() && connected_.isEmpty() && !serializer_->hasOperations()) return;
    serializer_->addOperationWithBlock([self = self<Notifier>()] {
        SharedList<Ref<Watcher>>::Reading const connected(self->connected_);
        self->forEachWatcher([](auto const& watcher) { watcher->fired(nullptr); });
        for (auto const& watcher : connected)
            if (watcher->isActive()) watcher->fired(nullptr);
    });
}

void Notifier::clean(bool later) {
    if (later) return serializer_->addOperationWithBlock([self = self<Notifier>()] { self->clean(false); });
    auto const ended = endedTargets_.count(); // before the look: what ends during it is for the next one
    bool const hasNews = ended != seenEnds_.exchange(ended);
    if (!mustAsk_.exchange(false) && !hasNews) return;
    bool others = false;
    forEachWatcher([&](auto const& watcher) {
        if (watcher->isObsolete())
            remove(watcher);
        else
            others = others || !watcher->hasKnownEnd() || watcher->notifier().get() != this;
    });
    if (others) mustAsk_.set(true);
}

} // namespace Tessarin
