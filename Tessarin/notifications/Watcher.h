#pragma once
#include "Tessarin/notifications/Notifier.h"
#include "Tessarin/platform/foundation/notifications/NSNotificationListener.h"

namespace Tessarin {

/// One registration on a Notifier, which owns it; it owns the Notifier too, until it is removed there. It listens to the
/// notification centre from its creation to its end. Any thread.
class TESSARIN_API Notifier::Watcher : public NSNotificationListener {
public:
    /// The deliveries that are left; absent when there is no limit. With the last one it leaves by position, see
    /// `Notifier::unregister`.
    virtual std::optional<std::int64_t> count() const;
    virtual void setCount(std::optional<std::int64_t> count);
    virtual void modifyCount(FunctionRef<void(std::optional<std::int64_t>&)> change);
    /// The object that gets the message, or to which the watcher is tied, for as long as it lives. Held weakly.
    virtual Ref<NSObject> target() const { return target_.lock(); }
    virtual void setTarget(Ref<NSObject> target);
    virtual void modifyTarget(FunctionRef<void(Ref<NSObject>&)> change);

    /// Delivers: to the target, then to the block; then counts down, and ends with the delivery that finds less than 2 left.
    /// Without a notification one is made up.
    void fired(Ref<NSNotification> const& notification) override;
    /// Removes this watcher from the notification centre, and from its notifier.
    virtual void unregister();
    /// Whether it can never deliver again. False for a watcher with a block.
    virtual bool isObsolete() const { return !block_ && hasLostTarget(); }

    /// The sender filter, kept alive; null when any sender counts.
    Ref<NSObject> const& object() const { return object_; }
    std::optional<Selector> action() const { return hasAction_ ? std::optional(action_) : std::nullopt; }
    Ref<Notifier> const& notifier() const { return notifier_; }
    NotificationBlock const& block() const { return block_; }

    ~Watcher() override;
    NSObject const* sender() const final { return object_.get(); }
    static SelectorTable selectors();

protected:
    Watcher();
    virtual void init(Ref<Notifier> notifier, Ref<NSObject> object, Ref<NSObject> target, Selector action,
                      std::optional<std::int64_t> count);
    virtual void init(Ref<Notifier> notifier, Ref<NSObject> object, NotificationBlock block, std::optional<std::int64_t> count);
    /// Fatal.
    void init() override;
    bool hasLostTarget() const { return target_.expired(); }
    /// To be called when `isObsolete` may say something else than before, for another reason than the end of the target.
    void endMayDiffer();

private:
    friend class Notifier;
    /// It never becomes obsolete, or does with its target, which the notifier follows.
    void endIsKnown(bool isFollowed);
    bool hasKnownEnd() const { return hasKnownEnd_.get(); }
    void firedAs(Ref<NSNotification> notification) { fired(notification); } // as the selector "fired:"
    void start(Ref<Notifier> notifier, Ref<NSObject> object, std::optional<std::int64_t> count);
    void countDown();

    // Ordered so that a watcher takes 208 bytes with its reference counts, and a delivery reads the first half of them.
    Cell<bool> hasCount_{false};
    bool hasAction_ = false; // this, the next, the block and the last three are constant after init
    bool isSubclass_ = false;
    bool isFollowed_ = false;
    Cell<bool> hasKnownEnd_{false};
    Cell<std::int64_t> count_;
    NotificationBlock block_;
    Cell<WeakRef<NSObject>> target_;
    Ref<NSObject> object_;
    Ref<Notifier> notifier_;
    Selector action_; // of no meaning without one
};

/// A watcher for as long as another object lives, its `target`. It ignores its count.
class TESSARIN_API Notifier::WatcherWithLinkedObject : public Notifier::Watcher {
public:
    void fired(Ref<NSNotification> const& notification) override;
    bool isObsolete() const override { return hasLostTarget(); }

protected:
    WatcherWithLinkedObject() = default;
    virtual void init(Ref<Notifier> notifier, Ref<NSObject> object, TiedObject tiedTo, NotificationBlock block,
                      std::optional<std::int64_t> count);
    /// Fatal, all three.
    void init() override { Watcher::init(); }
    void init(Ref<Notifier> notifier, Ref<NSObject> object, Ref<NSObject> target, Selector action,
              std::optional<std::int64_t> count) override;
    void init(Ref<Notifier> notifier, Ref<NSObject> object, NotificationBlock block, std::optional<std::int64_t> count) override;
};

} // namespace Tessarin
