#include "Tessarin/platform/objectgraph/persistence/memory/InMemoryLinksPrivate.h"

#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RelationshipStoragePrivate.h"

#include <algorithm>

namespace Tessarin {
namespace {

/// The to-many at the other end that lists who leads to a record; null for none.
NSRelationshipDescription const* listAtOtherEnd(NSRelationshipDescription const& relationship) {
    return relationship.isReciprocal() && relationship.inverseRelationship()->isToMany() ? relationship.inverseRelationship()
                                                                                         : nullptr;
}

void add(std::vector<RecordKey>& members, RecordKey member) {
    if (std::ranges::find(members, member) == members.end()) members.push_back(member);
}

} // namespace

InMemoryLinks::InMemoryLinks(NSManagedObjectModel const& model) {
    for (auto const& entity : model.entities())
        for (auto const* relationship : entity->relationships())
            if (relationship->entity() == entity.get() && !relationship->isTransient()) relationships_.push_back(relationship);
}

InMemoryLinks::Links& InMemoryLinks::reverseOf(NSRelationshipDescription const& relationship) {
    auto const* list = listAtOtherEnd(relationship);
    return list ? links_[list] : referring_[&relationship];
}

void InMemoryLinks::drop(Links& links, RecordKey owner, RecordKey member) {
    auto const found = links.find(owner);
    if (found == links.end()) return;
    std::erase(found->second, member);
    if (found->second.empty()) links.erase(found);
}

void InMemoryLinks::exchange(RecordKey key, Row const* before, Row const* after) {
    auto const cells = (after ? after : before)->layout().cells();
    for (std::size_t cell = 0; cell < cells.size(); ++cell) {
        auto const* relationship = cells[cell].property->asRelationship();
        if (!relationship) continue;
        auto const from = before ? before->reference(cell) : 0;
        auto const to = after ? after->reference(cell) : 0;
        if (from == to) continue;
        auto& reverse = reverseOf(*relationship);
        if (from != 0) drop(reverse, from, key);
        if (to != 0) reverse[to].push_back(key);
    }
}

void InMemoryLinks::apply(RecordChange const& change) {
    for (auto const& changed : change.relationships) {
        auto const& relationship = *changed.relationship;
        if (relationship.isTransient()) continue;
        if (!isKeptInInverse(relationship) && writesItsLinks(relationship)) {
            // One that is its own inverse has a change at each end.
            auto* reverse = relationship.inverseRelationship() == &relationship ? nullptr : &reverseOf(relationship);
            for (auto const member : changed.removed) {
                drop(links_[&relationship], change.key, member);
                if (reverse) drop(*reverse, member, change.key);
            }
            for (auto const member : changed.added) {
                add(links_[&relationship][change.key], member);
                if (reverse) add((*reverse)[member], change.key);
            }
        }
        if (changed.order && relationship.isOrdered()) applyOrder(changed, change.key);
    }
}

void InMemoryLinks::applyOrder(RelationshipChange const& changed, RecordKey owner) {
    auto const found = links_[changed.relationship].find(owner);
    if (found == links_[changed.relationship].end()) return;
    std::unordered_map<RecordKey, std::size_t> places;
    for (auto const member : *changed.order) places.emplace(member, places.size());
    std::ranges::stable_sort(found->second, {},
                             [&](RecordKey member) { return places.contains(member) ? places[member] : places.size(); });
}

std::vector<RecordKey> InMemoryLinks::members(NSRelationshipDescription const& relationship, RecordKey owner) const {
    auto const links = links_.find(&relationship);
    if (links == links_.end()) return {};
    auto const found = links->second.find(owner);
    return found == links->second.end() ? std::vector<RecordKey>() : found->second;
}

void InMemoryLinks::forget(NSEntityDescription const& rootEntity, RecordKey key,
                           FunctionRef<void(RecordKey owner, NSRelationshipDescription const& toOne)> referring) {
    auto const taken = [&](Links& links) {
        auto node = links.extract(key);
        return node ? std::move(node.mapped()) : std::vector<RecordKey>();
    };
    for (auto const* relationship : relationships_) {
        bool const leadsHere = relationship->destinationEntity()->rootEntity() == &rootEntity;
        bool const isKept = relationship->isToMany() && isKeptInInverse(*relationship);
        if (leadsHere && !relationship->isToMany()) {
            auto const found = reverseOf(*relationship).find(key);
            if (found == reverseOf(*relationship).end()) continue;
            for (auto const owner : std::vector(found->second)) referring(owner, *relationship);
        }
        if (leadsHere && relationship->isToMany() && !isKept)
            for (auto const owner : taken(reverseOf(*relationship))) drop(links_[relationship], owner, key);
        if (relationship->entity()->rootEntity() == &rootEntity && relationship->isToMany() && !isKept)
            for (auto const member : taken(links_[relationship])) drop(reverseOf(*relationship), member, key);
    }
}

} // namespace Tessarin
