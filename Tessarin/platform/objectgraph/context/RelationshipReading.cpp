// Where a relationship leads, with what is unsaved here on top of what was read.
#include "Tessarin/platform/objectgraph/context/RelationshipEndsPrivate.h"

#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/context/PrefetchingPrivate.h"
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"

#include <optional>
#include <utility>

namespace Tessarin {

RecordKey referenceOf(NSManagedObject& object, NSRelationshipDescription const& relationship) {
    GraphAccess::fire(object);
    auto& state = GraphAccess::state(object);
    updateKeys(state);
    if (state.extras)
        if (auto const* value = state.extras->value(relationship.index())) return value->integer();
    if (!state.row) return 0;
    auto const& place = state.row->placeOfProperty(relationship.index());
    return place.type == CellType::Reference ? state.link()->current(state.row->integer(place)) : 0;
}

RecordKey readReferenceOf(ObjectState const& state, NSRelationshipDescription const& relationship) {
    auto const cell = state.layout->cellOf(relationship.index());
    return state.row && cell != RowLayout::noCell ? state.link()->current(state.row->reference(static_cast<std::size_t>(cell)))
                                                  : 0;
}

bool hasLoadedMembers(NSManagedObject& owner, NSRelationshipDescription const& relationship) {
    auto& state = GraphAccess::state(owner);
    auto* toMany = state.extras ? state.extras->find(relationship.index()) : nullptr;
    return toMany && isCurrent(state, *toMany);
}

ToManyState& loadedMembers(NSManagedObject& owner, NSRelationshipDescription const& relationship) {
    auto& state = GraphAccess::state(owner);
    if (auto& toMany = toManyOf(owner, relationship); isCurrent(state, toMany)) return toMany;
    auto* context = state.link()->contextState();
    if (!context || relationship.isTransient()) return setLoadedMembers(owner, relationship, {});
    if (readMembersAhead(*context, owner, relationship)) return toManyOf(owner, relationship);
    RecordReader const reader(*context);
    return setLoadedMembers(owner, relationship,
                            reader.members(relationship, owner.entity(), owner.recordKey(), RecordReader::formerOf(owner)));
}

namespace {

/// Whether an unsaved reference, or deletion, of a record says that it leads to the owner; absent where there is none.
std::optional<bool> leadsUnsaved(ObjectState const& owner, NSRelationshipDescription const& inverse, RecordKey member) {
    auto const object = owner.link()->find(member);
    if (!object) return std::nullopt;
    auto& state = GraphAccess::state(*object);
    if (state.has(ObjectState::Deleted)) return false;
    if (state.has(ObjectState::Inserted)) return referenceOf(*object, inverse) == owner.key; // in its row, if it came back
    if (!state.has(ObjectState::Changed) || !state.extras) return std::nullopt;
    updateKeys(state);
    auto const* reference = state.extras->value(inverse.index());
    return reference ? std::optional(reference->integer() == owner.key) : std::nullopt;
}

} // namespace

ToManyState& setLoadedMembers(NSManagedObject& owner, NSRelationshipDescription const& relationship, ReadMembers read) {
    auto& state = GraphAccess::state(owner);
    auto& toMany = toManyOf(owner, relationship);
    auto* living = state.link()->contextState();
    if (living && !toMany.isLoaded) living->loadedMembers.note(owner, relationship);
    toMany.goneSeen = living ? living->gone.count() : 0;
    toMany.unsavedSeen = living && read.areUnsaved ? living->unsavedAbove : 0;
    auto const current = [link = state.link()](RecordKey key) { return link->current(key); };
    toMany.toPermanent(current); // others may have saved a member meanwhile
    for (auto& key : read.keys)
        if (key < 0) key = current(key), toMany.holdsTemporaries = true;
    if (auto* context = toMany.holdsTemporaries ? state.link()->contextState() : nullptr) context->knowsForeignTemporaries = true;
    auto const order = toMany.isReordered ? std::exchange(toMany.members, {}) : KeySet(); // to be kept
    toMany.isLoaded = true;
    toMany.members.clear();
    auto const* inverse = relationship.inverseRelationship();
    bool const isByReference = inverse && !inverse->isToMany() && relationship.isReciprocal() && state.link()->contextState();
    KeySet now;
    // Others may have moved a member that was moved here, or have had their way with it: what it says itself holds.
    for (auto const key : read.keys)
        if (isByReference ? leadsUnsaved(state, *inverse, key).value_or(true) : !toMany.removed.contains(key)) now.append(key);
    for (auto const key : toMany.added.keys())
        if (!isByReference || leadsUnsaved(state, *inverse, key).value_or(false)) now.add(key);
    for (auto const key : order.keys())
        if (now.contains(key)) toMany.members.append(key);
    if (order.empty())
        toMany.members = std::move(now);
    else
        for (auto const key : now.keys()) toMany.members.add(key);
    return toMany;
}

std::span<RecordKey const> memberKeys(NSManagedObject& owner, NSRelationshipDescription const& relationship) {
    return loadedMembers(owner, relationship).members.keys();
}

bool hasMember(NSManagedObject& owner, NSRelationshipDescription const& relationship, NSManagedObject& member) {
    auto const* inverse = relationship.inverseRelationship();
    if (inverse && relationship.isReciprocal() && !inverse->isToMany()) return referenceOf(member, *inverse) == owner.recordKey();
    // A record that is not saved yet has all its links in memory; asking it spares reading the other end.
    if (owner.recordKey() < 0 && !relationship.isOrdered())
        return toManyOf(owner, relationship).added.contains(member.recordKey());
    if (member.recordKey() < 0 && inverse && relationship.isReciprocal() && !inverse->isOrdered())
        return toManyOf(member, *inverse).added.contains(owner.recordKey());
    return loadedMembers(owner, relationship).members.contains(member.recordKey());
}

} // namespace Tessarin
