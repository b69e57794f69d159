// Who the members of a to-many relationship are, as the levels see it.
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"

#include "Tessarin/platform/objectgraph/context/KeySetPrivate.h"

#include <algorithm>
#include <unordered_set>

namespace Tessarin {
namespace {

/// The key that a record has now: a level that has not run since may still tell of it by its temporary one.
RecordKey currentKey(KeyPromotions& promotions, RecordKey key) {
    auto const permanent = key < 0 ? promotions.permanentKey(key) : 0;
    return permanent == 0 ? key : permanent;
}

/// What came and went says who is a member. An order only says where: whoever has left meanwhile is not back by it, and whom it
/// does not name comes behind the others.
void apply(RelationshipChange const& change, KeyPromotions& promotions, std::vector<RecordKey>& members) {
    std::unordered_set<RecordKey> removed;
    for (auto const key : change.removed) removed.insert(currentKey(promotions, key));
    if (!removed.empty()) std::erase_if(members, [&](RecordKey key) { return removed.contains(key); });
    std::unordered_set<RecordKey> present(members.begin(), members.end());
    for (auto const key : change.added)
        if (present.insert(currentKey(promotions, key)).second) members.push_back(currentKey(promotions, key));
    if (!change.order) return;
    auto const unordered = std::exchange(members, {});
    for (auto const key : *change.order)
        if (present.erase(currentKey(promotions, key)) != 0) members.push_back(currentKey(promotions, key));
    for (auto const key : unordered)
        if (present.contains(key)) members.push_back(key);
}

/// Whoever is named may be a member; their own rows say who is. Those that an order does not name come behind the others.
void addCandidates(RelationshipChange const& change, KeyPromotions& promotions, KeySet& candidates) {
    KeySet const before = change.order ? std::exchange(candidates, {}) : KeySet();
    for (auto const key : change.order ? *change.order : change.added) candidates.add(currentKey(promotions, key));
    for (auto const key : before.keys()) candidates.add(key);
}

} // namespace

ReadMembers RecordReader::members(NSRelationshipDescription const& relationship, NSEntityDescription const& ownerEntity,
                                  RecordKey owner, Former former) const {
    MembersByOwner members;
    storedMembers(relationship, {&owner, 1}, members);
    return withChanges(relationship, ownerEntity, owner, std::move(members[owner]), former);
}

void RecordReader::storedMembers(NSRelationshipDescription const& relationship, std::span<RecordKey const> owners,
                                 MembersByOwner& members) const {
    std::vector<RecordKey> saved;
    for (auto const owner : owners)
        if (owner > 0) saved.push_back(owner);
    if (!store_ || saved.empty()) return;
    auto const note = [&](RecordKey owner, RecordKey member) { members[owner].push_back(member); };
    if (auto error = store_->members(relationship, saved, note)) throw ErrorException(error);
}

ReadMembers RecordReader::withChanges(NSRelationshipDescription const& relationship, NSEntityDescription const& ownerEntity,
                                      RecordKey owner, std::vector<RecordKey> stored, Former former) const {
    auto const* inverse = relationship.inverseRelationship();
    if (inverse && !inverse->isToMany() && relationship.isReciprocal())
        return membersByRow(relationship, ownerEntity, owner, std::move(stored));
    auto const& destination = *relationship.destinationEntity();
    ReadMembers members{std::move(stored)};
    bool isGone = false; // it still has whom it had, for those who are to be told; if it comes back, then without them
    for (std::size_t at = 0; at < sets_.size(); ++at) {
        auto const& set = *sets_[at];
        if (auto const* ofOwner = set.find(ownerEntity, owner)) {
            if (isGone && ofOwner->kind == RecordChange::Kind::Insert) members.keys.clear();
            isGone = ofOwner->kind == RecordChange::Kind::Delete || (isGone && ofOwner->kind == RecordChange::Kind::Update);
        }
        eachChange(set, relationship, ownerEntity, owner, [&](auto const& change) {
            apply(change, coordinator_->promotions(), members.keys);
            members.areUnsaved = members.areUnsaved || isUnsaved(at);
        });
        if (isGone && former == Former::Dropped) members.keys.clear(); // also whom the same set had let join before
        auto const gone = std::erase_if(members.keys, [&](RecordKey key) {
            auto const* change = set.find(destination, key);
            return change && change->kind == RecordChange::Kind::Delete;
        });
        members.areUnsaved = members.areUnsaved || (gone != 0 && isUnsaved(at));
    }
    return members;
}

void RecordReader::eachChange(ChangeSet const& set, NSRelationshipDescription const& relationship,
                              NSEntityDescription const& ownerEntity, RecordKey owner,
                              FunctionRef<void(RelationshipChange const&)> each) const {
    for (auto const key : {formerKey(owner), owner})
        if (auto const* change = key == 0 ? nullptr : set.find(ownerEntity, key))
            for (auto const& changed : change->relationships)
                if (changed.relationship == &relationship) each(changed);
}

/// The row is what a conflict was decided about: an owner whose change of its members did not stand still has it in its set.
ReadMembers RecordReader::membersByRow(NSRelationshipDescription const& relationship, NSEntityDescription const& ownerEntity,
                                       RecordKey owner, std::vector<RecordKey> stored) const {
    auto const& destination = *relationship.destinationEntity();
    if (!hasChangesOf(destination) && !hasChangesOf(ownerEntity)) return {std::move(stored)};
    auto& promotions = coordinator_->promotions();
    KeySet candidates;
    for (auto const key : stored) candidates.append(key);
    ReadMembers members;
    for (std::size_t at = 0; at < sets_.size(); ++at)
        eachChange(*sets_[at], relationship, ownerEntity, owner, [&](auto const& change) {
            addCandidates(change, promotions, candidates);
            members.areUnsaved = members.areUnsaved || isUnsaved(at);
        });
    std::unordered_set<RecordKey> const wasMember(stored.begin(), stored.end());
    members.keys.assign(candidates.keys().begin(), candidates.keys().end());
    std::erase_if(members.keys, [&](RecordKey key) {
        auto const found = pending(destination, key);
        members.areUnsaved = members.areUnsaved || found.isUnsaved;
        if (!found.isKnown) return !wasMember.contains(key);
        if (!found.row) return true;
        auto const& place = found.row->placeOfProperty(relationship.inverseRelationship()->index());
        return currentKey(promotions, found.row->integer(place)) != currentKey(promotions, owner);
    });
    return members;
}

} // namespace Tessarin
