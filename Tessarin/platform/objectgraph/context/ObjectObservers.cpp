#include "Tessarin/platform/objectgraph/context/ObjectObserversPrivate.h"

#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"

namespace Tessarin {

ScopedConnection ObjectObservers::add(Ref<NSManagedObject> object, std::vector<std::string> keys, Told told) {
    auto observer = std::make_shared<Observer>(Observer{std::move(object), {}, std::move(told)});
    for (auto& key : keys) {
        auto now = observer->object->valueForKey(key);
        observer->values.push_back({std::move(key), {}, std::move(now)});
    }
    if (observers_.size() > 2 * leftByLastSweep_ + 16) forgetEnded();
    observers_.emplace(observer->object.get(), observer);
    return ScopedConnection(std::move(observer));
}

void ObjectObservers::forgetEnded() {
    std::erase_if(observers_, [](auto const& each) { return each.second.expired(); });
    leftByLastSweep_ = observers_.size();
}

void ObjectObservers::follow(ContextTurn const& turn) {
    std::vector<Ref<NSManagedObject>> touched;
    auto const find = [&](RecordKey key) {
        if (auto object = context_.link->find(key); object && observers_.contains(object.get()))
            touched.push_back(std::move(object));
    };
    for (auto const& record : turn.records) find(record.key);
    for (auto const& [set, isCorrection] : turn.sets) {
        if (set->changes().size() <= observers_.size()) {
            for (auto const& change : set->changes()) find(change.key);
            continue;
        }
        for (auto const& [object, observer] : observers_)
            if (auto const living = observer.lock(); living && set->find(object->entity(), object->recordKey()))
                touched.push_back(living->object);
    }
    if (turn.isEverything)
        for (auto const& [object, observer] : observers_)
            if (auto const living = observer.lock()) touched.push_back(living->object);
    for (auto const& object : touched) look(*object);
}

void ObjectObservers::look(NSManagedObject const& object) {
    std::vector<Ref<Observer>> living; // who is told may begin to observe, or end
    auto const [first, last] = observers_.equal_range(&object);
    for (auto at = first; at != last; ++at)
        if (auto observer = at->second.lock()) living.push_back(std::move(observer));
    for (auto const& observer : living) look(*observer);
}

void ObjectObservers::look(Observer& observer) {
    if (observer.object->isDeleted() || GraphAccess::state(*observer.object).has(ObjectState::Gone)) return;
    std::vector<ValueChange> changes;
    for (auto& [key, before, now] : observer.values) {
        auto value = observer.object->valueForKey(key);
        if (value == now) continue;
        before = std::exchange(now, std::move(value));
        changes.push_back({key, before, now});
    }
    if (!changes.empty()) observer.told(changes);
}

ScopedConnection NSManagedObject::observe(std::vector<std::string> keys, Closure<void(std::span<ValueChange const>)> told) {
    auto* context = state_.link()->contextState();
    if (!context) return {};
    if (!context->observers) context->feed.add(context->observers = std::make_shared<ObjectObservers>(*context));
    return context->observers->add(self<NSManagedObject>(), std::move(keys), std::move(told));
}

} // namespace Tessarin
