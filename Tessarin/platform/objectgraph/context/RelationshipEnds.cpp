// One end of a relationship alone: what an object notes when a record comes or goes there.
#include "Tessarin/platform/objectgraph/context/RelationshipEndsPrivate.h"

#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"

#include <algorithm>
#include <utility>

namespace Tessarin {

ObjectState::Flag changeOf(NSManagedObject const& object) {
    return object.isInserted() ? ObjectState::Inserted : ObjectState::Updated;
}

ToManyState& toManyOf(NSManagedObject& owner, NSRelationshipDescription const& relationship) {
    auto& state = GraphAccess::state(owner);
    updateKeys(state);
    return state.toMany(relationship.index());
}

namespace {

/// One end of a link of many to many.
struct LinkEnd {
    NSManagedObject& owner;
    NSRelationshipDescription const& relationship;
    RecordKey member;

    std::pair<RecordKey, std::size_t> place() const { return {owner.recordKey(), relationship.index()}; }
    bool isDoubtful() const {
        auto const& extras = GraphAccess::state(owner).extras;
        auto const* toMany = extras ? extras->find(relationship.index()) : nullptr;
        return toMany && toMany->isDoubtful;
    }
};

bool isMemberBeneath(ContextState& context, LinkEnd const& end) {
    auto const gone = context.gone.count(), above = context.unsavedAbove;
    auto& toMany = toManyOf(end.owner, end.relationship);
    if (!toMany.beneath || toMany.beneath->gone != gone || toMany.beneath->unsavedAbove != above) {
        ToManyState::Beneath beneath{{}, gone, above};
        auto const read = RecordReader(context).members(end.relationship, end.owner.entity(), end.owner.recordKey());
        for (auto const each : read.keys) beneath.members.append(context.link->current(each));
        toMany.beneath = std::make_shared<ToManyState::Beneath const>(std::move(beneath));
    }
    return toMany.beneath->members.contains(end.member);
}

/// Whether a key that came or went here is a member beneath that by now: others may have done the same, and who takes back what was
/// done here must not leave theirs. Both ends of a link are asked one after the other, and have to hear the same: one of them
/// answers for both.
bool isMemberBeneath(NSManagedObject& owner, NSRelationshipDescription const& relationship, RecordKey key, bool wasMember) {
    auto* context = GraphAccess::state(owner).link()->contextState();
    if (relationship.isTransient() || !context) return wasMember;
    LinkEnd const end{owner, relationship, key};
    auto const* inverse = relationship.isReciprocal() ? relationship.inverseRelationship() : nullptr;
    auto const other = inverse && inverse->isToMany() ? context->link->find(key) : nullptr;
    if (!other) return end.isDoubtful() ? isMemberBeneath(*context, end) : wasMember;
    LinkEnd const otherEnd{*other, *inverse, owner.recordKey()};
    if (!end.isDoubtful() && !otherEnd.isDoubtful()) return wasMember;
    return isMemberBeneath(*context, end.place() < otherEnd.place() ? end : otherEnd);
}

} // namespace

/// Whether members were read, and are what would be read now.
bool isCurrent(ObjectState const& owner, ToManyState& toMany) {
    auto const* context = toMany.isLoaded ? owner.link()->contextState() : nullptr;
    if (!context) return toMany.isLoaded;
    auto const seen = std::exchange(toMany.goneSeen, context->gone.count());
    bool const isOutOfDate = (toMany.unsavedSeen != 0 && toMany.unsavedSeen != context->unsavedAbove) ||
                             (seen != toMany.goneSeen && context->gone.isAnyIn(toMany.members, seen));
    if (!isOutOfDate || owner.layout->entity().properties()[toMany.property]->isTransient()) return true;
    toMany.doubt();
    return false;
}

/// Before a member comes or goes, or the order changes.
void record(NSManagedObject& owner, NSRelationshipDescription const& relationship) {
    if (!relationship.isOrdered()) return;
    if (auto* recorder = recorderOf(owner)) recorder->noteOrder(owner, relationship);
}

void setReference(NSManagedObject& object, NSRelationshipDescription const& relationship, RecordKey key) {
    GraphAccess::fire(object);
    if (auto* recorder = recorderOf(object))
        recorder->noteValue(object, relationship, Value(referenceOf(object, relationship)), Value(key));
    auto& extras = GraphAccess::state(object).more();
    if (auto* present = extras.value(relationship.index()))
        *present = key;
    else
        extras.values.emplace_back(static_cast<std::uint32_t>(relationship.index()), key);
    markChanged(object, changeOf(object));
    if (auto* context = GraphAccess::state(object).link()->contextState()) context->values.note(object, relationship);
}

void addMember(NSManagedObject& owner, NSRelationshipDescription const& relationship, RecordKey key) {
    // A new member comes last, whatever stands before it: also one that says so already.
    bool const isReadNow = relationship.isOrdered() && !hasLoadedMembers(owner, relationship);
    if (isReadNow) loadedMembers(owner, relationship).members.remove(key);
    record(owner, relationship);
    if (auto* recorder = recorderOf(owner)) recorder->noteMember(owner, relationship, key, true);
    auto* state = &toManyOf(owner, relationship);
    bool const isBack = state->removed.remove(key) && isMemberBeneath(owner, relationship, key, true);
    if (isBack) state = &toManyOf(owner, relationship); // reading may have moved it
    if (key < 0) state->holdsTemporaries = true;
    if (!isBack) state->added.append(key);
    noteUnshownLink(owner, relationship, key, true);
    if (state->isLoaded) state->members.append(key);
    if (relationship.isOrdered()) state->isReordered = true;
    markChanged(owner, changeOf(owner));
}

void removeMember(NSManagedObject& owner, NSRelationshipDescription const& relationship, RecordKey key) {
    if (relationship.isOrdered()) loadedMembers(owner, relationship);
    record(owner, relationship);
    if (auto* recorder = recorderOf(owner)) recorder->noteMember(owner, relationship, key, false);
    bool const isNew = toManyOf(owner, relationship).added.remove(key) && !isMemberBeneath(owner, relationship, key, false);
    auto& state = toManyOf(owner, relationship);
    if (key < 0) state.holdsTemporaries = true;
    if (!isNew) state.removed.add(key);
    noteUnshownLink(owner, relationship, key, false);
    if (state.isLoaded) state.members.remove(key);
    if (relationship.isOrdered()) state.isReordered = true;
    markChanged(owner, changeOf(owner));
}

void setOrder(NSManagedObject& owner, NSRelationshipDescription const& relationship, KeySet members) {
    auto& state = loadedMembers(owner, relationship);
    if (std::ranges::equal(members.keys(), state.members.keys())) return;
    record(owner, relationship);
    state.members = std::move(members);
    state.isReordered = true;
    noteUnshownLink(owner, relationship, 0, true); // nobody came or went
    markChanged(owner, changeOf(owner));
}

/// `object` lets go of `key` in one relationship, without looking at the other end.
void detachEnd(NSManagedObject& object, NSRelationshipDescription const& relationship, RecordKey key) {
    if (relationship.isToMany())
        removeMember(object, relationship, key);
    else if (referenceOf(object, relationship) == key)
        setReference(object, relationship, 0);
}

/// `object` takes hold of `other` in one relationship; whoever had it there before lets go.
void attachEnd(NSManagedObject& object, NSRelationshipDescription const& relationship, NSManagedObject& other) {
    if (relationship.isToMany()) return addMember(object, relationship, other.recordKey());
    auto const before = referenceOf(object, relationship);
    if (before == other.recordKey()) return;
    auto const* inverse = relationship.inverseRelationship();
    if (before != 0 && inverse && relationship.isReciprocal())
        if (auto* context = GraphAccess::state(object).link()->contextState())
            detachEnd(*objectWithKey(*context, *relationship.destinationEntity(), before), *inverse, object.recordKey());
    setReference(object, relationship, other.recordKey());
}

void letGoAtOtherEnd(NSManagedObject& object, NSRelationshipDescription const& relationship, NSManagedObject& other) {
    if (auto const* inverse = relationship.inverseRelationship()) detachEnd(other, *inverse, object.recordKey());
}

bool mayBeMember(NSManagedObject const& object, NSRelationshipDescription const& relationship) {
    return object.entity().isKindOf(relationship.destinationEntity());
}

void replaceTemporaryKeys(ObjectState& state) {
    auto const& link = *state.link();
    state.extras->keysAsOf = link.keyChanges();
    auto const& properties = state.layout->entity().properties();
    for (auto& [property, value] : state.extras->values)
        if (value.kind() == Value::Kind::Integer && value.integer() < 0 && properties[property]->asRelationship())
            value = link.current(value.integer());
    for (auto& toMany : state.extras->toMany) toMany.toPermanent([&](RecordKey key) { return link.current(key); });
}

} // namespace Tessarin
