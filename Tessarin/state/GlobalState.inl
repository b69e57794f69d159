#pragma once
#include "Tessarin/state/ValueWatcher.h"

namespace Tessarin {

template <class T> void GlobalState<T>::init(T value, std::string description, ValueBlock watcher) {
    registerClass<GlobalState, Notifier>();
    initial_ = value;
    previous_ = value;
    current_.emplace(std::move(value));
    desc_ = description;
    Notifier::init(std::move(description));
    if (typeid(*this) == typeid(detail::Made<GlobalState>)) this->changeInPlace();
    s_completeGlobalState().set(desc_, self<Notifier>());
    if (watcher) watchValue(std::move(watcher));
}

template <class T> GlobalState<T>::~GlobalState() {
    // Whatever state has the entry by now, on purpose: the description is what is given up, and with it a newer state's entry.
    s_completeGlobalState().remove(desc_);
}

template <class T> void GlobalState<T>::setCurrent(T value) {
    auto const replaced = current_->exchange(value);
    if (!equal(replaced, value)) notify(value, ForceCurrentThread::No);
}

template <class T> void GlobalState<T>::notify(T const&, ForceCurrentThread) { fireAll(); }

template <class T> Ref<ValueWatcher<T>> GlobalState<T>::watchValue(TiedObject object, ValueBlock block) {
    auto const when = object ? Obsolete::WithTarget : block ? Obsolete::Never : Obsolete::WhenItSaysSo;
    auto watcher = make<ValueWatcher<T>>(self<GlobalState>(), std::move(object), std::move(block));
    append(watcher, when);
    return watcher;
}

template <class T> void GlobalState<T>::watchValue(Ref<NSObject> observer, Selector action) {
    append(make<ValueWatcher<T>>(self<GlobalState>(), std::move(observer), action), Obsolete::WithTarget);
}

template <class T> Notifier::Connection GlobalState<T>::connect(ValueBlock block) {
    return Notifier::connect(make<ValueWatcher<T>>(self<GlobalState>(), TiedObject{}, std::move(block)));
}

} // namespace Tessarin
