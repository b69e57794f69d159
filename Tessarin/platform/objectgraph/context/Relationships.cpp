// The relationships of an object: both ends are kept up at the moment of the change.
#include "Tessarin/platform/objectgraph/context/RelationshipEndsPrivate.h"

#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/PrefetchingPrivate.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>

namespace Tessarin {
namespace {

void requireFits(NSManagedObject& object, NSRelationshipDescription const& relationship, NSManagedObject& other) {
    auto const place = [&] { return object.entity().name() + "." + relationship.name(); };
    if (GraphAccess::state(object).link() != GraphAccess::state(other).link())
        fatal("illegal attempt to establish the relationship " + place() + " between objects in different contexts");
    if (!mayBeMember(other, relationship))
        fatal("unacceptable object for the relationship " + place() + ": a " + other.entity().name());
}

} // namespace

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
