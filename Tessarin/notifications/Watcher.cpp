#include "Tessarin/notifications/Watcher.h"

#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/foundation/notifications/NSNotificationChannel.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <limits>

namespace Tessarin {
namespace {

[[maybe_unused]] auto const& registered = registerClass<Notifier::Watcher>();
[[maybe_unused]] auto const& registeredTied = registerClass<Notifier::WatcherWithLinkedObject, Notifier::Watcher>();

Selector noAction() {
    static Selector const none{""};
    return none;
}

[[noreturn]] void unavailable(char const* initialiser, char const* type) {
    fatal(std::string{"\""} + initialiser + "\" not implemented on \"Tessarin." + type + "\"");
}

} // namespace

Notifier::Watcher::Watcher() : action_(noAction()) {}
/// The allocator of listeners has taken it off the notification centre before.
Notifier::Watcher::~Watcher() {
    if (!isFollowed_) return;
    if (auto const followed = target_.lock()) notifier_->endedTargets_.unfollow(*followed, this);
}

void Notifier::Watcher::init() { unavailable("init()", "Watcher"); }

void Notifier::Watcher::init(Ref<Notifier> notifier, Ref<NSObject> object, Ref<NSObject> target, Selector action,
                             std::optional<std::int64_t> count) {
    target_.set(std::move(target));
    action_ = action;
    hasAction_ = true;
    start(std::move(notifier), std::move(object), count);
}

void Notifier::Watcher::init(Ref<Notifier> notifier, Ref<NSObject> object, NotificationBlock block,
                             std::optional<std::int64_t> count) {
    block_ = std::move(block);
    start(std::move(notifier), std::move(object), count);
}

void Notifier::Watcher::start(Ref<Notifier> notifier, Ref<NSObject> object, std::optional<std::int64_t> count) {
    NSObject::init();
    notifier_ = std::move(notifier);
    object_ = std::move(object);
    isSubclass_ = typeid(*this) != typeid(detail::Made<Watcher>);
    if (count) setCount(count);
    listenTo(*notifier_->channel_);
}

std::optional<std::int64_t> Notifier::Watcher::count() const {
    return hasCount_.get() ? std::optional(count_.get()) : std::nullopt;
}

void Notifier::Watcher::setCount(std::optional<std::int64_t> count) {
    if (count) count_.set(*count);
    hasCount_.set(count.has_value());
}

void Notifier::Watcher::modifyCount(FunctionRef<void(std::optional<std::int64_t>&)> change) {
    auto changed = count();
    change(changed);
    setCount(changed);
}

void Notifier::Watcher::setTarget(Ref<NSObject> target) {
    if (auto const followed = isFollowed_ ? target_.lock() : nullptr) notifier_->endedTargets_.unfollow(*followed, this);
    isFollowed_ = false;
    target_.set(std::move(target));
    endMayDiffer();
}

void Notifier::Watcher::endMayDiffer() {
    if (hasKnownEnd_.exchange(false)) notifier_->mustAsk_.set(true);
}

void Notifier::Watcher::endIsKnown(bool isFollowed) {
    isFollowed_ = isFollowed;
    hasKnownEnd_.set(true);
}

void Notifier::Watcher::modifyTarget(FunctionRef<void(Ref<NSObject>&)> change) {
    auto changed = target();
    change(changed);
    setTarget(std::move(changed));
}

void Notifier::Watcher::fired(Ref<NSNotification> const& notification) {
    if (!notification) [[unlikely]]
        return Watcher::fired(make<NSNotification>(Text{notifier_->name()}, object_, Value{}));
    if (hasAction_)
        if (auto const addressee = target()) addressee->performSelector(action_, notification);
    if (block_) block_(notification);
    if (hasCount_.get() || isSubclass_) countDown(); // also when there was nobody to deliver to
}

void Notifier::Watcher::countDown() {
    auto const left = count(); // which a subclass may override
    if (!left) return;
    if (*left == std::numeric_limits<std::int64_t>::min())
        fatal("Notifier.Watcher.fired: the count cannot go below the smallest integer");
    setCount(*left - 1);
    if (*left < 2) Watcher::unregister();
}

void Notifier::Watcher::unregister() {
    NSNotificationCenter::defaultCenter()->removeObserver(*this, notifier_->name(), object_);
    notifier_->unregister(*this);
}

SelectorTable Notifier::Watcher::selectors() { return {{"fired:"_sel, &Watcher::firedAs}}; }

void Notifier::WatcherWithLinkedObject::init(Ref<Notifier> notifier, Ref<NSObject> object, TiedObject tiedTo,
                                             NotificationBlock block, std::optional<std::int64_t> count) {
    setTarget(tiedTo.object()); // first, for a post may come as soon as it listens
    Watcher::init(std::move(notifier), std::move(object), std::move(block), count);
}

void Notifier::WatcherWithLinkedObject::fired(Ref<NSNotification> const& notification) {
    auto const tied = target(); // kept while the block runs; what is no object has no address, but an owner
    if (tied.use_count() == 0) return notifier()->clean(true);
    if (notification && block()) block()(notification);
    // The count is not touched, on purpose: only the end of the tied object ends the registration.
}

void Notifier::WatcherWithLinkedObject::init(Ref<Notifier>, Ref<NSObject>, Ref<NSObject>, Selector, std::optional<std::int64_t>) {
    unavailable("init(notifier:object:target:action:count:)", "WatcherWithLinkedObject");
}

void Notifier::WatcherWithLinkedObject::init(Ref<Notifier>, Ref<NSObject>, NotificationBlock, std::optional<std::int64_t>) {
    unavailable("init(notifier:object:block:count:)", "WatcherWithLinkedObject");
}

} // namespace Tessarin
