// What others do to records that are linked here. Nothing is read for it, and it is nobody's step.
#include "Tessarin/platform/objectgraph/context/RelationshipEndsPrivate.h"

#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"

namespace Tessarin {

/// Within a merge: nothing is read for it, and it is nobody's step.
void keepLinkUnsaved(ContextState& context, NSManagedObject& object, NSRelationshipDescription const& relationship) {
    auto const* inverse = relationship.inverseRelationship();
    if (!inverse || !inverse->isToMany() || !relationship.isReciprocal()) return;
    auto& state = GraphAccess::state(object);
    updateKeys(state);
    auto const* value = state.extras ? state.extras->value(relationship.index()) : nullptr;
    auto const destination = value ? value->integer() : readReferenceOf(state, relationship);
    if (destination == 0) return;
    auto const owner = objectWithKey(context, *relationship.destinationEntity(), destination);
    if (GraphAccess::state(*owner).has(ObjectState::Deleted) || GraphAccess::state(*owner).has(ObjectState::Gone)) return;
    if (!value) state.more().values.emplace_back(static_cast<std::uint32_t>(relationship.index()), destination);
    auto& members = toManyOf(*owner, *inverse);
    if (members.added.contains(state.key)) return;
    members.removed.remove(state.key);
    members.added.append(state.key);
    members.holdsTemporaries = members.holdsTemporaries || state.key < 0;
    members.isLoaded = false;
    noteUnshownLink(*owner, *inverse, state.key, true);
    markChanged(*owner, changeOf(*owner));
}

namespace {

/// Within a merge: nothing is read for it, and it is nobody's step.
void letGoOfMember(ContextState& context, RecordKey ownerKey, NSRelationshipDescription const& toMany, RecordKey member) {
    auto const owner = ownerKey == 0 ? nullptr : context.link->find(ownerKey);
    if (!owner) return;
    auto& state = GraphAccess::state(*owner);
    updateKeys(state);
    auto* members = state.extras ? state.extras->find(toMany.index()) : nullptr;
    if (!members) return;
    members->members.remove(member);
    members->removed.remove(member);
    if (!members->added.remove(member)) return;
    noteUnshownLink(*owner, toMany, member, false);
    context.feed.note(context, *owner); // who deleted the record knew nothing of it
}

} // namespace

void letGoOfGone(ContextState& context, NSManagedObject& object) {
    auto& state = GraphAccess::state(object);
    updateKeys(state);
    for (auto const* relationship : object.entity().relationships()) {
        auto const* inverse = relationship->inverseRelationship();
        if (!inverse || !inverse->isToMany() || !relationship->isReciprocal()) continue;
        auto const letGo = [&](RecordKey owner) { letGoOfMember(context, owner, *inverse, state.key); };
        if (!relationship->isToMany()) {
            letGo(readReferenceOf(state, *relationship));
            auto const* value = state.extras ? state.extras->value(relationship->index()) : nullptr;
            if (value) letGo(value->integer());
            continue;
        }
        auto const* members = state.extras ? state.extras->find(relationship->index()) : nullptr;
        if (!members) continue;
        auto const known = *members; // the record may have been its own member
        for (auto const* keys : {&known.members, &known.added})
            for (auto const key : keys->keys()) letGo(key);
    }
}

void cutNewLinks(ContextState& context, NSManagedObject& deleted, RelationshipChange const& change) {
    auto const* inverse = change.relationship->inverseRelationship();
    if (!inverse || !inverse->isToMany() || !change.relationship->isReciprocal()) return;
    auto& known = toManyOf(deleted, *change.relationship).members; // who is let go of by a deletion is among the members
    for (auto const key : change.added) {
        known.add(context.link->current(key));
        auto const owner = context.link->find(context.link->current(key));
        if (!owner || owner.get() == &deleted || GraphAccess::state(*owner).has(ObjectState::Deleted)) continue;
        auto& members = toManyOf(*owner, *inverse);
        members.added.remove(deleted.recordKey());
        members.removed.add(deleted.recordKey());
        members.members.remove(deleted.recordKey());
        noteUnshownLink(*owner, *inverse, deleted.recordKey(), false);
        markChanged(*owner, changeOf(*owner));
    }
}

} // namespace Tessarin
