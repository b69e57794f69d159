// The relationships of an object: both ends are kept up at the moment of the change.
#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"

#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/PrefetchingPrivate.h"
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>
#include <optional>

namespace Tessarin {
namespace {

ObjectState::Flag changeOf(NSManagedObject const& object) {
    return object.isInserted() ? ObjectState::Inserted : ObjectState::Updated;
}

ToManyState& toManyOf(NSManagedObject& owner, NSRelationshipDescription const& relationship) {
    auto& state = GraphAccess::state(owner);
    updateKeys(state);
    return state.toMany(relationship.index());
}

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

} // namespace

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

namespace {

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

bool mayBeMember(NSManagedObject const& object, NSRelationshipDescription const& relationship) {
    return object.entity().isKindOf(relationship.destinationEntity());
}

void requireFits(NSManagedObject& object, NSRelationshipDescription const& relationship, NSManagedObject& other) {
    auto const place = [&] { return object.entity().name() + "." + relationship.name(); };
    if (GraphAccess::state(object).link() != GraphAccess::state(other).link())
        fatal("illegal attempt to establish the relationship " + place() + " between objects in different contexts");
    if (!mayBeMember(other, relationship))
        fatal("unacceptable object for the relationship " + place() + ": a " + other.entity().name());
}

} // namespace

void replaceTemporaryKeys(ObjectState& state) {
    auto const& link = *state.link();
    state.extras->keysAsOf = link.keyChanges();
    auto const& properties = state.layout->entity().properties();
    for (auto& [property, value] : state.extras->values)
        if (value.kind() == Value::Kind::Integer && value.integer() < 0 && properties[property]->asRelationship())
            value = link.current(value.integer());
    for (auto& toMany : state.extras->toMany) toMany.toPermanent([&](RecordKey key) { return link.current(key); });
}

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

void letGoAtOtherEnd(NSManagedObject& object, NSRelationshipDescription const& relationship, NSManagedObject& other) {
    if (auto const* inverse = relationship.inverseRelationship()) detachEnd(other, *inverse, object.recordKey());
}

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

Ref<NSManagedObject> NSManagedObject::destination(NSRelationshipDescription const& relationship) {
    auto const key = referenceOf(*this, relationship);
    auto* context = state_.link()->contextState();
    if (key == 0 || !context) return nullptr;
    auto living = state_.link()->find(key);
    if (!living && !state_.batch->isLone()) {
        walkBatch(*context, *state_.batch, relationship);
        living = state_.link()->find(key);
    }
    if (living) {
        requireSameTree(living->entity(), *relationship.destinationEntity(), key);
        // A link to a record that somebody else deleted is none, once that is known.
        return GraphAccess::state(*living).has(ObjectState::Gone) ? nullptr : living;
    }
    return objectWithKey(*context, *relationship.destinationEntity(), key);
}

std::vector<Ref<NSManagedObject>> NSManagedObject::destinations(NSRelationshipDescription const& relationship) {
    if (queuesAreChecked()) requireQueue();
    auto* context = state_.link()->contextState();
    if (!context) return {};
    return objectsWithKeys(*context, *relationship.destinationEntity(), memberKeys(*this, relationship));
}

void NSManagedObject::setDestination(NSRelationshipDescription const& relationship, NSManagedObject* object) {
    if (object) requireFits(*this, relationship, *object);
    auto const before = referenceOf(*this, relationship);
    auto const after = object ? object->recordKey() : 0;
    if (before == after) return;
    auto* context = state_.link()->contextState();
    auto const* inverse = relationship.inverseRelationship();
    if (before != 0 && inverse && context)
        detachEnd(*objectWithKey(*context, *relationship.destinationEntity(), before), *inverse, recordKey());
    setReference(*this, relationship, after);
    if (object && inverse) attachEnd(*object, *inverse, *this);
}

void NSManagedObject::addDestination(NSRelationshipDescription const& relationship, NSManagedObject& object) {
    if (queuesAreChecked()) requireQueue();
    requireFits(*this, relationship, object);
    if (hasMember(*this, relationship, object)) return;
    addMember(*this, relationship, object.recordKey());
    auto const* inverse = relationship.inverseRelationship();
    if (inverse && (inverse != &relationship || &object != this)) attachEnd(object, *inverse, *this);
}

void NSManagedObject::removeDestination(NSRelationshipDescription const& relationship, NSManagedObject& object) {
    if (queuesAreChecked()) requireQueue();
    if (!mayBeMember(object, relationship) || !hasMember(*this, relationship, object)) return;
    removeMember(*this, relationship, object.recordKey());
    auto const* inverse = relationship.inverseRelationship();
    if (inverse && (inverse != &relationship || &object != this)) detachEnd(object, *inverse, recordKey());
}

void NSManagedObject::setDestinations(NSRelationshipDescription const& relationship, Value const& objects) {
    std::vector<Ref<NSManagedObject>> members;
    auto const take = [&](Value const& value) {
        auto object = value.objectAs<NSManagedObject>();
        if (!object)
            fatal("unacceptable member for the relationship " + entity().name() + "." + relationship.name() + ": " +
                  value.description());
        members.push_back(std::move(object));
    };
    if (objects.kind() == Value::Kind::Set)
        for (auto const& value : objects.set()) take(value);
    else if (objects.kind() == Value::Kind::List)
        for (auto const& value : objects.list()) take(value);
    else if (!objects.isAbsent())
        fatal("unacceptable value for the relationship " + entity().name() + "." + relationship.name() + ": " +
              objects.description());
    MutableObjectSet(self<NSManagedObject>(), relationship).setObjects(members);
}

MutableObjectSet NSManagedObject::mutableSetValueForKey(std::string_view key) {
    auto const* property = entity().propertyNamed(key);
    auto const* relationship = property ? property->asRelationship() : nullptr;
    if (!relationship || !relationship->isToMany())
        fatal("the entity " + entity().name() + " has no to-many relationship \"" + std::string{key} + "\"");
    return {self<NSManagedObject>(), *relationship};
}

bool MutableObjectSet::containsObject(Ref<NSManagedObject> const& object) const {
    return object && mayBeMember(*object, relationship_) && hasMember(*owner_, relationship_, *object);
}

void MutableObjectSet::insertObject(Ref<NSManagedObject> const& object, std::size_t at) {
    requireOrdered();
    auto const before = count();
    auto from = before;
    if (containsObject(object)) {
        loadedMembers(*owner_, relationship_).members.add(object->recordKey()); // what it says itself counts
        auto const keys = memberKeys(*owner_, relationship_);
        from = static_cast<std::size_t>(std::ranges::find(keys, object->recordKey()) - keys.begin());
    } else {
        if (at > before) requirePlace(at, before);
        owner_->addDestination(relationship_, *object);
    }
    moveObject(from, at > from ? at - 1 : at);
}

void MutableObjectSet::moveObject(std::size_t from, std::size_t to) {
    requireOrdered();
    auto& state = loadedMembers(*owner_, relationship_);
    auto const size = state.members.size();
    if (from >= size) requirePlace(from, size);
    if (to >= size) requirePlace(to, size);
    if (from == to) return;
    record(*owner_, relationship_);
    state.members.move(from, to);
    state.isReordered = true;
    noteUnshownLink(*owner_, relationship_, 0, true); // nobody came or went
    markChanged(*owner_, changeOf(*owner_));
}

void MutableObjectSet::requireOrdered() const {
    if (!relationship_.isOrdered())
        fatal("the relationship " + owner_->entity().name() + "." + relationship_.name() + " has no order");
}

void MutableObjectSet::requirePlace(std::size_t at, std::size_t count) const {
    fatal("the relationship " + owner_->entity().name() + "." + relationship_.name() + " has no place " + std::to_string(at) +
          " among " + std::to_string(count) + " members");
}

std::size_t MutableObjectSet::count() const { return loadedMembers(*owner_, relationship_).members.size(); }

void MutableObjectSet::setObjects(std::vector<Ref<NSManagedObject>> const& objects) {
    KeySet wanted;
    for (auto const& object : objects) wanted.add(object->recordKey());
    for (auto const& member : allObjects())
        if (!wanted.contains(member->recordKey())) removeObject(member);
    for (auto const& object : objects) addObject(object);
    if (relationship_.isOrdered()) setOrder(*owner_, relationship_, std::move(wanted));
}

} // namespace Tessarin
