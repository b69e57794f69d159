#include "Tessarin/platform/objectgraph/context/FoldedChangesPrivate.h"

#include <algorithm>
#include <unordered_set>

namespace Tessarin {
namespace {

using Kind = RecordChange::Kind;
using Keys = std::unordered_set<RecordKey>;

void add(std::vector<RecordKey>& keys, std::vector<RecordKey> const& more) {
    Keys present(keys.begin(), keys.end());
    for (auto const key : more)
        if (present.insert(key).second) keys.push_back(key);
}

void remove(std::vector<RecordKey>& keys, std::vector<RecordKey> const& gone) {
    if (gone.empty()) return;
    Keys const removed(gone.begin(), gone.end());
    std::erase_if(keys, [&](RecordKey key) { return removed.contains(key); });
}

void fold(RelationshipChange& older, RelationshipChange const& newer) {
    if (newer.order)
        older.order = newer.order;
    else if (older.order) {
        remove(*older.order, newer.removed);
        add(*older.order, newer.added);
    }
    remove(older.added, newer.removed);
    add(older.added, newer.added);
    add(older.removed, newer.removed);
}

void foldRelationships(RecordChange& older, RecordChange const& newer) {
    for (auto const& each : newer.relationships) {
        auto const same = std::ranges::find(older.relationships, each.relationship, &RelationshipChange::relationship);
        if (same == older.relationships.end())
            older.relationships.push_back(each);
        else
            fold(*same, each);
    }
}

/// False where one change cannot say it.
bool fold(RecordChange& older, RecordChange const& newer) {
    if (older.entity != newer.entity) return false;
    if (newer.kind == Kind::Insert) return false;
    if (older.kind == Kind::Delete) return true; // there is nothing to change or delete any more
    if (newer.kind == Kind::Delete) {
        older.kind = Kind::Delete;
        older.after = {}; // its links stay, since whoever was linked with it may have to be found
        return true;
    }
    if (newer.changesRow()) {
        if (older.after && newer.before != older.after) return false;
        if (!older.after) older.before = newer.before;
        older.after = newer.after;
    } else if (!older.after) {
        older.before = newer.before;
        older.after = newer.after;
    }
    foldRelationships(older, newer);
    return true;
}

bool isBefore(RecordChange const& a, RecordChange const& b) {
    auto const place = [](RecordChange const& change) { return std::pair(change.entity->rootEntity()->index(), change.key); };
    return place(a) < place(b);
}

} // namespace

RowChange rowChangeIn(ChangeSets const& sets, NSEntityDescription const& entity, RecordKey key) {
    RowChange result;
    for (auto const& set : sets) {
        auto const* change = set->find(entity, key);
        if (!change) continue;
        if (!result.isThere || change->kind == Kind::Delete) result.kind = change->kind;
        if (change->after || change->kind == Kind::Delete) { // links alone may have been changed without the row
            if (!result.after) result.before = change->before;
            result.after = change->after;
        }
        result.changesRelationships = result.changesRelationships || !change->relationships.empty();
        result.isThere = true;
    }
    return result;
}

Ref<ChangeSet const> folded(ChangeSet const& older, ChangeSet const& newer) {
    std::vector<RecordChange> changes;
    changes.reserve(older.changes().size() + newer.changes().size());
    auto left = older.changes(), right = newer.changes();
    while (!left.empty() || !right.empty()) {
        bool const takesRight = left.empty() || (!right.empty() && isBefore(right.front(), left.front()));
        bool const isInBoth = !takesRight && !right.empty() && !isBefore(left.front(), right.front());
        auto& from = takesRight ? right : left;
        changes.push_back(from.front());
        if (isInBoth) {
            if (!fold(changes.back(), right.front())) return nullptr;
            right = right.subspan(1);
        }
        from = from.subspan(1);
    }
    return std::make_shared<ChangeSet const>(older.sharedSpace(), std::move(changes));
}

void addFolded(ChangeSets& list, Ref<ChangeSet const> set) {
    // Long ones are left as they are until there are some: whoever saves would copy them, and that may be the main queue.
    static constexpr std::size_t longSet = 8192, fewSets = 8;
    while (!list.empty() && list.back()->changes().size() < 2 * set->changes().size()) {
        bool const isLong = list.back()->changes().size() + set->changes().size() > longSet;
        if (isLong && list.size() < fewSets) break;
        auto both = folded(*list.back(), *set);
        if (!both) break;
        set = std::move(both);
        list.pop_back();
    }
    list.push_back(std::move(set));
}

} // namespace Tessarin
