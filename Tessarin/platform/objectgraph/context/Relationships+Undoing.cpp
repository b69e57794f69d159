// Unsaved links are taken back, at both ends.
#include "Tessarin/platform/objectgraph/context/RelationshipEndsPrivate.h"

#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"

#include <algorithm>
#include <utility>

namespace Tessarin {
namespace {

/// After links were undone: an object that is as it was has no unsaved changes.
void forgetIfUnchanged(ContextState& context, NSManagedObject& object) {
    auto& state = GraphAccess::state(object);
    if (!state.has(ObjectState::Changed) || !state.extras || state.has(ObjectState::Inserted) || state.has(ObjectState::Deleted))
        return;
    std::erase_if(state.extras->values, [&](auto const& entry) {
        auto const* relationship = object.entity().properties()[entry.first]->asRelationship();
        return relationship && readReferenceOf(state, *relationship) == entry.second.integer();
    });
    if (!state.extras->values.empty() || std::ranges::any_of(state.extras->toMany, &ToManyState::isChanged)) return;
    state.clear(ObjectState::Updated);
    unmarkChanged(context, object);
}

/// The to-one leads where it did when it was read, if that is still there.
void lookBack(ContextState& context, NSManagedObject& object, NSRelationshipDescription const& relationship) {
    auto const key = readReferenceOf(GraphAccess::state(object), relationship);
    auto destination = key == 0 ? nullptr : objectWithKey(context, *relationship.destinationEntity(), key);
    if (destination && destination->isDeleted()) destination = nullptr;
    object.setValueForKey(destination ? Value(destination) : Value(), relationship.name());
    if (destination) forgetIfUnchanged(context, *destination);
}

/// One end alone takes its own change back: what others have done to the same link stays, and is shown.
void takeBackEnd(NSManagedObject& end, NSRelationshipDescription const& relationship, NSManagedObject& other, bool wasRemoved) {
    auto const trust = [](NSManagedObject& object, NSRelationshipDescription const* toMany) {
        return toMany && toMany->isToMany() && std::exchange(toManyOf(object, *toMany).isDoubtful, false);
    };
    auto const* inverse = relationship.inverseRelationship();
    bool const wasDoubtful = trust(end, &relationship), wasOtherDoubtful = trust(other, inverse);
    wasRemoved ? attachEnd(end, relationship, other) : detachEnd(end, relationship, other.recordKey());
    if (wasDoubtful) toManyOf(end, relationship).doubt();
    if (wasOtherDoubtful) toManyOf(other, *inverse).doubt();
}

} // namespace

void undoLinks(ContextState& context, NSManagedObject& object) {
    auto& state = GraphAccess::state(object);
    if (!state.extras || !state.has(ObjectState::Changed)) return;
    RecordingPause const pause(context.recorder.get()); // nothing new: what was unsaved goes
    updateKeys(state);
    using Keys = std::span<RecordKey const>;
    auto const undo = [&](NSRelationshipDescription const& relationship, Keys added, Keys removed) {
        auto const* inverse = relationship.inverseRelationship();
        if (!inverse) return;
        for (bool const wasRemoved : {false, true})
            for (auto const key : wasRemoved ? removed : added) {
                auto const other = objectWithKey(context, *relationship.destinationEntity(), key);
                if (other.get() == &object || other->isDeleted()) continue;
                // Whoever has found another one meanwhile keeps it.
                if (wasRemoved && !inverse->isToMany() && referenceOf(*other, *inverse) != 0) continue;
                bool const ledHere = // where others have led it elsewhere meanwhile, it leads there
                    inverse->isToMany() || readReferenceOf(GraphAccess::state(*other), *inverse) == object.recordKey();
                if (!ledHere || (!wasRemoved && !inverse->isToMany()))
                    lookBack(context, *other, *inverse);
                else
                    takeBackEnd(*other, *inverse, object, wasRemoved);
                forgetIfUnchanged(context, *other);
            }
    };
    for (auto const* relationship : object.entity().relationships()) {
        bool const isNullified = object.isDeleted() && relationship->deleteRule() == NSDeleteRule::Nullify;
        if (relationship->isToMany()) {
            auto const* toMany = state.extras->find(relationship->index());
            auto added = toMany ? toMany->added : KeySet(), removed = toMany ? toMany->removed : KeySet();
            if (isNullified) { // whoever was let go of by the deletion is still among the members
                for (auto const key : memberKeys(object, *relationship))
                    if (!added.contains(key)) removed.add(key);
                added.clear();
            }
            undo(*relationship, added.keys(), removed.keys());
            continue;
        }
        auto const before = readReferenceOf(state, *relationship);
        auto const now = referenceOf(object, *relationship);
        if (before == now && !isNullified) continue;
        undo(*relationship, now == 0 || isNullified ? Keys() : Keys(&now, 1), before == 0 ? Keys() : Keys(&before, 1));
    }
}

} // namespace Tessarin
