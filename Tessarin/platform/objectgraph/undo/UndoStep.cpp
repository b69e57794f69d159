#include "Tessarin/platform/objectgraph/undo/UndoStepPrivate.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace Tessarin {
namespace {

/// A value of a record, or a link that it keeps.
struct Slot {
    RecordKey key, member;
    NSPropertyDescription const* property;
    bool operator==(Slot const&) const = default;
};
struct SlotHash {
    std::size_t operator()(Slot const& slot) const noexcept {
        auto const mixed = static_cast<std::uint64_t>(slot.key) * 0x9E3779B97F4A7C15U ^ static_cast<std::uint64_t>(slot.member);
        return std::hash<std::uint64_t>()(mixed * 0x9E3779B97F4A7C15U ^ slot.property->index());
    }
};
using Places = std::unordered_map<Slot, std::size_t, SlotHash>;

void foldValues(std::vector<UndoStep::ValueChange>& values) {
    if (values.size() < 2) return;
    Places first;
    std::vector<UndoStep::ValueChange> folded;
    for (auto& change : values) {
        auto const [found, isNew] = first.try_emplace({change.record.key, 0, change.property}, folded.size());
        if (isNew)
            folded.push_back(std::move(change));
        else
            folded[found->second].now = std::move(change.now);
    }
    values = std::move(folded);
}

/// Who joins and leaves takes turns: of an even number nothing is left, of an odd one the first.
void foldMembers(std::vector<UndoStep::MemberChange>& members) {
    if (members.size() < 2) return;
    Places first;
    std::vector<UndoStep::MemberChange> folded;
    std::vector<bool> counts;
    for (auto& change : members) {
        auto const [found, isNew] = first.try_emplace({change.owner.key, change.member, change.relationship}, folded.size());
        if (isNew) {
            folded.push_back(change);
            counts.push_back(true);
        } else {
            counts[found->second] = !counts[found->second];
        }
    }
    members.clear();
    for (std::size_t at = 0; at < folded.size(); ++at)
        if (counts[at]) members.push_back(folded[at]);
}

} // namespace

void UndoStep::fold(FunctionRef<RecordKey(RecordKey)> current) {
    for (auto& change : values) {
        change.record.key = current(change.record.key);
        if (!change.property->asRelationship()) continue;
        for (auto* value : {&change.before, &change.now}) *value = Value(current(value->integer()));
    }
    for (auto& change : members) {
        change.owner.key = current(change.owner.key);
        change.member = current(change.member);
    }
    for (auto& change : orders) {
        change.owner.key = current(change.owner.key);
        for (auto* keys : {&change.before, &change.now}) std::ranges::transform(*keys, keys->begin(), current);
    }
    std::unordered_set<RecordKey> inserted;
    for (auto& record : insertions) inserted.insert(record.key = current(record.key));
    for (auto& deletion : deletions) deletion.record.key = current(deletion.record.key);
    std::unordered_set<RecordKey> gone; // inserted, saved, and deleted
    for (auto const& deletion : deletions)
        if (inserted.contains(deletion.record.key)) gone.insert(deletion.record.key);
    std::erase_if(deletions, [&](Deletion const& each) { return gone.contains(each.record.key); });
    std::erase_if(insertions, [&](Record const& each) { return gone.contains(each.key); });
    foldValues(values);
    std::erase_if(values, [&](ValueChange const& each) { return each.before == each.now || inserted.contains(each.record.key); });
    foldMembers(members);
    std::erase_if(members,
                  [&](MemberChange const& each) { return inserted.contains(each.owner.key) || gone.contains(each.member); });
    std::erase_if(orders, [](OrderChange const& each) { return each.before == each.now; });
}

} // namespace Tessarin
