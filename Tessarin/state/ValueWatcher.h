#pragma once
#include "Tessarin/notifications/Watcher.h"
#include "Tessarin/state/GlobalState.h"

namespace Tessarin {

/// A registration on a GlobalState: calls a block with the current value, or sends a message with itself to an observer, which
/// reads the value from `parentState`. A notification that is posted on the state's channel reaches it, too.
template <class T> class ValueWatcher : public Notifier::Watcher {
public:
    using ValueBlock = typename GlobalState<T>::ValueBlock;

    /// The notification and the count are ignored. A tied watcher goes on being called after the end of its object, until it is
    /// cleaned up.
    void fired(Ref<NSNotification> const& notification) override;
    bool isObsolete() const override {
        return hasTiedObject_.get() ? this->hasLostTarget() : !typeBlock_ && this->hasLostTarget();
    }

    bool hasTiedObject() const { return hasTiedObject_.get(); }
    void setHasTiedObject(bool hasTiedObject) {
        hasTiedObject_.set(hasTiedObject);
        this->endMayDiffer();
    }
    Ref<GlobalState<T>> const& parentState() const { return parentState_; }
    ValueBlock const& typeBlock() const { return typeBlock_; }

    static SelectorTable selectors() {
        return {{"hasTiedObject"_sel, &ValueWatcher::hasTiedObject}, {"setHasTiedObject:"_sel, &ValueWatcher::setHasTiedObject}};
    }

protected:
    ValueWatcher() = default;
    virtual void init(Ref<GlobalState<T>> notifier, TiedObject tiedTo, ValueBlock block);
    virtual void init(Ref<GlobalState<T>> notifier, Ref<NSObject> observer, Selector action);

private:
    using Watcher::init; // a value watcher has a state

    Cell<bool> hasTiedObject_{false};
    Ref<GlobalState<T>> parentState_; // constant after init, as is the next
    ValueBlock typeBlock_;
};

template <class T> void ValueWatcher<T>::init(Ref<GlobalState<T>> notifier, TiedObject tiedTo, ValueBlock block) {
    registerClass<ValueWatcher, Notifier::Watcher>();
    parentState_ = notifier;
    typeBlock_ = std::move(block);
    hasTiedObject_.set(static_cast<bool>(tiedTo));
    this->setTarget(tiedTo.object());
    Watcher::init(std::move(notifier), nullptr, NotificationBlock{}, std::nullopt);
}

template <class T> void ValueWatcher<T>::init(Ref<GlobalState<T>> notifier, Ref<NSObject> observer, Selector action) {
    registerClass<ValueWatcher, Notifier::Watcher>();
    parentState_ = notifier;
    Watcher::init(std::move(notifier), nullptr, std::move(observer), action, std::nullopt);
}

template <class T> void ValueWatcher<T>::fired(Ref<NSNotification> const&) {
    if (typeBlock_) typeBlock_(parentState_->current());
    auto const action = this->action();
    if (!action) return;
    if (auto const observer = this->target())
        if (auto const self = this->weak_from_this().lock())
            observer->performSelector(*action, self); // null in its last delivery
}

} // namespace Tessarin
