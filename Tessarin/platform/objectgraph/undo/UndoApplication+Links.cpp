// Links are taken back and made as wholes, with both ends: first all that the step made go, which frees the ends, then those
// that it ended come back. An end that somebody else has taken meanwhile stays with that.
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/RelationshipEndsPrivate.h"
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
    auto const restoreMembers = [this](bool whoJoined) {
        for (auto at = step_.members.size(); at-- > 0;)
            if (step_.members[at].hasJoined == whoJoined) restoreMember(step_.members[at], ends_[at]);
    };
    restoreMembers(true);
    for (auto const& each : leading_) leadBack(each);
    restoreMembers(false);
}

void UndoApplication::letGo(UndoStep::ValueChange const& change) {
    auto const& relationship = *change.property->asRelationship();
    auto* const object = there(change.record);
    if (!object || isDoomed(object->recordKey())) return;
    auto const before = change.before.integer(), now = referenceOf(*object, relationship);
    bool const isOurs = now == change.now.integer() || (now == 0 && emptied_.contains({object->recordKey(), &relationship}));
    if (now == before || !isOurs) return;
    if (before != 0 && !there(*relationship.destinationEntity(), before)) return; // somebody has deleted it
    if (auto* const other = there(*relationship.destinationEntity(), now))
        unlink(*object, relationship, *other);
    else if (now != 0)
        setReference(*object, relationship, 0);
    emptied_.insert({object->recordKey(), &relationship});
    if (before != 0) leading_.push_back({object, &relationship, before});
}

void UndoApplication::leadBack(Leading const& leading) {
    if (referenceOf(*leading.object, *leading.relationship) != 0) return;
    if (auto* const destination = there(*leading.relationship->destinationEntity(), leading.before))
        link(*leading.object, *leading.relationship, *destination);
}

void UndoApplication::restoreMember(UndoStep::MemberChange const& change, Ends const& ends) {
    auto const& relationship = *change.relationship;
    auto const* inverse = otherEndOf(relationship);
    if (ends.owner->isDoomed || (inverse && ends.member->isDoomed)) return;
    auto* const owner = there(*ends.owner, *change.owner.entity, current(change.owner.key));
    auto* const member = owner ? there(*ends.member, *relationship.destinationEntity(), current(change.member)) : nullptr;
    if (!member) return;
    if (inverse && !inverse->isToMany()) { // the to-one says whose member it is
        bool const isMember = referenceOf(*member, *inverse) == owner->recordKey();
        if (isMember != hasEnd(*owner, relationship, *member))
            isMember ? putEnd(*owner, relationship, *member) : takeEnd(*owner, relationship, *member);
        if (isMember && !change.hasJoined) noteLinked(*ends.member, *inverse);
        return;
    }
    change.hasJoined ? unlink(*owner, relationship, *member) : void(link(*owner, relationship, *member));
}

/// From here on nobody takes such a link away.
void UndoApplication::noteLinked(Known& known, Relationship const& relationship) {
    if (relationship.index() < 32) known.linked |= std::uint32_t{1} << relationship.index();
}

/// The links that an object kept while it was deleted, where their other ends are free and there.
void UndoApplication::linkAgain(Known const& revived) {
    auto& object = *revived.object;
    for (auto const* relationship : object.entity().relationships()) {
        auto const& entity = *relationship->destinationEntity();
        if (!relationship->isToMany()) {
            if (relationship->index() < 32 && (revived.linked >> relationship->index() & 1) != 0) continue;
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

bool UndoApplication::isHeldBy(NSManagedObject& object, Relationship const& relationship, NSManagedObject* destination) {
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
