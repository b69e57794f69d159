#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/RowBuilder.h"

#include <algorithm>
#include <unordered_set>

namespace Tessarin {
namespace {

void apply(RelationshipChange const& change, std::vector<RecordKey>& members) {
    if (change.order) {
        members = *change.order;
        return;
    }
    std::unordered_set<RecordKey> const removed(change.removed.begin(), change.removed.end());
    if (!removed.empty()) std::erase_if(members, [&](RecordKey key) { return removed.contains(key); });
    std::unordered_set<RecordKey> present(members.begin(), members.end());
    for (auto const key : change.added)
        if (present.insert(key).second) members.push_back(key);
}

} // namespace

RowRef rowAfter(RecordChange const& change, RowRef const& current) {
    if (change.kind == RecordChange::Kind::Delete) return {};
    if (!change.after || !current || current == change.before) return change.after ? change.after : current;
    if (!change.before) return current->version() > change.after->version() ? current : change.after; // as it was saved in the end
    if (current->version() >= change.after->version()) return current; // it has arrived there already
    return mergedRow(*change.before, *change.after, *current);
}

RecordReader::RecordReader(ContextState& context, Sees sees) : coordinator_(context.coordinator), store_(coordinator_ ? coordinator_->store() : nullptr) {
    std::vector<ChangeSets> levels;
    auto const add = [&](PublishedChanges const& published, bool withUnsaved) {
        if (withUnsaved) return levels.push_back(published.forChildren());
        auto const reading = published.forReading();
        auto& sets = levels.emplace_back(sees == Sees::Accepted ? ChangeSets() : *reading.aside);
        sets.insert(sets.end(), reading.sets->begin(), reading.sets->end());
    };
    add(context.published, false); // its own unsaved changes are in its objects
    for (auto* at = context.parent.get(); at; at = at->parentContext().get()) add(GraphAccess::state(*at).published, sees == Sees::Unsaved);
    for (auto level = levels.rbegin(); level != levels.rend(); ++level)
        for (auto const& set : *level)
            if (std::ranges::find(sets_, set) == sets_.end()) sets_.push_back(set);
}

bool RecordReader::hasChangesOf(NSEntityDescription const& entity) const {
    return std::ranges::any_of(sets_, [&](auto const& set) { return !set->changesOf(*entity.rootEntity()).empty(); });
}

RecordReader::Pending RecordReader::pending(NSEntityDescription const& entity, RecordKey key) const {
    Pending result;
    auto const before = key > 0 ? coordinator_->promotions().temporaryKey(key) : 0;
    for (auto const& set : sets_) {
        auto const* change = set->find(entity, key);
        if (!change && before != 0) change = set->find(entity, before);
        if (!change) continue;
        if (change->kind == RecordChange::Kind::Delete) {
            result = {true, {}};
            continue;
        }
        bool const isGone = result.isKnown && !result.row;
        if (isGone && change->kind == RecordChange::Kind::Update) continue; // only an insertion brings it back
        auto row = rowAfter(*change, result.row);
        if (!row) continue; // only its to-many relationships changed
        result = {true, std::move(row)};
    }
    return result;
}

RowRef RecordReader::row(NSEntityDescription const& entity, RecordKey key, bool fresh) const {
    RowRef result;
    rows(entity, {&key, 1}, [&](RowRef row) { result = std::move(row); }, fresh);
    return result;
}

void RecordReader::rows(NSEntityDescription const& entity, std::span<RecordKey const> keys, FunctionRef<void(RowRef)> each, bool fresh) const {
    std::vector<RecordKey> wanted;
    for (auto key : keys) {
        if (key < 0)
            if (auto const permanent = coordinator_->promotions().permanentKey(key)) key = permanent;
        if (!sets_.empty())
            if (auto const found = pending(entity, key); found.isKnown) {
                if (found.row) each(found.row);
                continue;
            }
        if (!fresh)
            if (auto cached = coordinator_->space()->cache().find(key)) {
                requireSameTree(cached->entity(), entity, key);
                each(std::move(cached));
                continue;
            }
        if (key > 0) wanted.push_back(key);
    }
    if (wanted.empty() || !store_) return;
    if (auto error = store_->rows(*entity.rootEntity(), wanted, each)) throw ErrorException(error);
}

std::vector<RecordKey> RecordReader::members(NSRelationshipDescription const& relationship, NSEntityDescription const& ownerEntity,
                                             RecordKey owner) const {
    MembersByOwner members;
    storedMembers(relationship, {&owner, 1}, members);
    return withChanges(relationship, ownerEntity, owner, std::move(members[owner]));
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

std::vector<RecordKey> RecordReader::withChanges(NSRelationshipDescription const& relationship, NSEntityDescription const& ownerEntity,
                                                 RecordKey owner, std::vector<RecordKey> members) const {
    auto const& destination = *relationship.destinationEntity();
    for (auto const& set : sets_) {
        if (auto const* change = set->find(ownerEntity, owner))
            for (auto const& each : change->relationships)
                if (each.relationship == &relationship) apply(each, members);
        std::erase_if(members, [&](RecordKey key) {
            auto const* change = set->find(destination, key);
            return change && change->kind == RecordChange::Kind::Delete;
        });
    }
    return members;
}

} // namespace Tessarin
