// Links are taken back and made as wholes, with both ends: first all that the step made go, which frees the ends, then those
// that it ended come back. An end that somebody else has taken meanwhile stays with that.
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"
#include "Tessarin/platform/objectgraph/undo/UndoApplicationPrivate.h"

#include <algorithm>
#include <ranges>

namespace Tessarin {
namespace {

/// The other end, where the two are kept up together.
NSRelationshipDescription const* otherEndOf(NSRelationshipDescription const& relationship) {
    return relationship.isReciprocal() ? relationship.inverseRelationship() : nullptr;
}

} // namespace

void UndoApplication::restoreLinks() {
    for (auto const& change : step_.values | std::views::reverse)
        if (change.property->asRelationship()) letGo(change);
    for (auto const& change : step_.members | std::views::reverse)
        if (change.hasJoined) restoreMember(change, false);
    for (auto const& each : leading_) leadBack(each);
    for (auto const& change : step_.members | std::views::reverse)
        if (!change.hasJoined) restoreMember(change, true);
}

void UndoApplication::letGo(UndoStep::ValueChange const& change) {
    auto const& relationship = *change.property->asRelationship();
    auto const object = there(change.record);
    if (!object || isDoomed(object->recordKey())) return;
    auto const before = change.before.integer(), now = referenceOf(*object, relationship);
    bool const isOurs = now == change.now.integer() || (now == 0 && emptied_.contains({object->recordKey(), &relationship}));
    if (now == before || !isOurs) return;
    if (before != 0 && !there(*relationship.destinationEntity(), before)) return; // somebody has deleted it
    if (auto const other = there(*relationship.destinationEntity(), now))
        unlink(*object, relationship, *other);
    else if (now != 0)
        setReference(*object, relationship, 0);
    emptied_.insert({object->recordKey(), &relationship});
    if (before != 0) leading_.push_back({object, &relationship, before});
}

void UndoApplication::leadBack(Leading const& leading) {
    if (referenceOf(*leading.object, *leading.relationship) != 0) return;
    if (auto const destination = there(*leading.relationship->destinationEntity(), leading.before))
        link(*leading.object, *leading.relationship, *destination);
}

void UndoApplication::restoreMember(UndoStep::MemberChange const& change, bool mustJoin) {
    auto const& relationship = *change.relationship;
    auto const* inverse = otherEndOf(relationship);
    auto const owner = there(change.owner);
    if (!owner || isDoomed(owner->recordKey()) || (inverse && isDoomed(change.member))) return;
    auto const member = there(*relationship.destinationEntity(), change.member);
    if (!member) return;
    if (inverse && !inverse->isToMany()) { // the to-one says whose member it is
        bool const isMember = referenceOf(*member, *inverse) == owner->recordKey();
        if (isMember == hasEnd(*owner, relationship, *member)) return;
        isMember ? putEnd(*owner, relationship, *member) : takeEnd(*owner, relationship, *member);
        return;
    }
    mustJoin ? void(link(*owner, relationship, *member)) : unlink(*owner, relationship, *member);
}

/// The links that an object kept while it was deleted, where their other ends are free and there.
void UndoApplication::linkAgain(NSManagedObject& object) {
    for (auto const* relationship : object.entity().relationships()) {
        auto const& entity = *relationship->destinationEntity();
        if (!relationship->isToMany()) {
            auto const key = referenceOf(object, *relationship);
            if (key != 0 && !isHeldBy(object, *relationship, there(entity, key))) setReference(object, *relationship, 0);
            continue;
        }
        auto const& extras = GraphAccess::state(object).extras;
        auto const* toMany = extras ? extras->find(relationship->index()) : nullptr;
        if (!toMany) continue;
        auto const keys = toMany->isLoaded ? toMany->members.keys() : toMany->added.keys();
        for (auto const key : std::vector(keys.begin(), keys.end()))
            if (!isHeldBy(object, *relationship, there(entity, key))) removeMember(object, *relationship, key);
    }
}

bool UndoApplication::isHeldBy(NSManagedObject& object, Relationship const& relationship, Object const& destination) {
    return destination && link(object, relationship, *destination);
}

/// Without reading what the store would only confirm.
bool UndoApplication::hasEnd(NSManagedObject& object, Relationship const& relationship, NSManagedObject& other) {
    auto& state = GraphAccess::state(object);
    if (!relationship.isToMany()) return referenceOf(object, relationship) == other.recordKey();
    updateKeys(state);
    auto const* toMany = state.extras ? state.extras->find(relationship.index()) : nullptr;
    if (toMany && toMany->isLoaded) return toMany->members.contains(other.recordKey());
    if (toMany && toMany->added.contains(other.recordKey())) return true;
    if (toMany && toMany->removed.contains(other.recordKey())) return false;
    if (object.isInserted() || other.isInserted()) return false; // what the store has does not know it
    auto const* inverse = otherEndOf(relationship);
    if (inverse && !inverse->isToMany() && !relationship.isOrdered())
        return readReferenceOf(GraphAccess::state(other), *inverse) == object.recordKey();
    return loadedMembers(object, relationship).members.contains(other.recordKey());
}

void UndoApplication::putEnd(NSManagedObject& object, Relationship const& relationship, NSManagedObject& other) {
    relationship.isToMany() ? addMember(object, relationship, other.recordKey())
                            : setReference(object, relationship, other.recordKey());
}

void UndoApplication::takeEnd(NSManagedObject& object, Relationship const& relationship, NSManagedObject& other) {
    if (relationship.isToMany()) return removeMember(object, relationship, other.recordKey());
    setReference(object, relationship, 0);
    emptied_.insert({object.recordKey(), &relationship});
}

bool UndoApplication::isFree(NSManagedObject& object, Relationship const& relationship, NSManagedObject& forWhom) {
    if (relationship.isToMany()) return true;
    auto const now = referenceOf(object, relationship);
    return now == 0 || now == forWhom.recordKey();
}

/// Which ends are there, before one of them changes: a list that is read then goes by what its members say.
std::pair<bool, bool> UndoApplication::endsOf(NSManagedObject& object, Relationship const& relationship, NSManagedObject& other) {
    auto const* inverse = otherEndOf(relationship);
    bool const others = inverse && hasEnd(other, *inverse, object);
    return {hasEnd(object, relationship, other), others};
}

bool UndoApplication::link(NSManagedObject& object, Relationship const& relationship, NSManagedObject& other) {
    auto const* inverse = otherEndOf(relationship);
    if (!isFree(object, relationship, other) || (inverse && !isFree(other, *inverse, object))) return false;
    auto const [own, others] = endsOf(object, relationship, other);
    if (!own) putEnd(object, relationship, other);
    if (inverse && !others && (inverse != &relationship || &object != &other)) putEnd(other, *inverse, object);
    return true;
}

void UndoApplication::unlink(NSManagedObject& object, Relationship const& relationship, NSManagedObject& other) {
    auto const* inverse = otherEndOf(relationship);
    auto const [own, others] = endsOf(object, relationship, other);
    if (own) takeEnd(object, relationship, other);
    if (others && (inverse != &relationship || &object != &other)) takeEnd(other, *inverse, object);
}

} // namespace Tessarin
