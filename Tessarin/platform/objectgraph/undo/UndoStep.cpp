#include "Tessarin/platform/objectgraph/undo/UndoStepPrivate.h"

#include <algorithm>
#include <bit>
#include <functional>

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
/// The places of slots in a list that grows, without an allocation for each.
class SlotPlaces {
public:
    explicit SlotPlaces(std::size_t most) : places_(std::bit_ceil(most + most / 2 + 1), none) {}

    /// The place of the same slot; `place`, which is that of a new one, where there is none.
    template <class SlotAt> std::size_t find(Slot const& slot, std::size_t place, SlotAt slotAt) {
        for (auto at = SlotHash()(slot);; ++at) {
            auto& known = places_[at & (places_.size() - 1)];
            if (known == none) return known = static_cast<std::uint32_t>(place), place;
            if (slotAt(known) == slot) return known;
        }
    }

private:
    static constexpr std::uint32_t none = UINT32_MAX;
    std::vector<std::uint32_t> places_;
};

void foldValues(std::vector<UndoStep::ValueChange>& values) {
    if (values.size() < 2) return;
    SlotPlaces places(values.size());
    std::size_t count = 0;
    auto const slotAt = [&](std::size_t at) { return Slot{values[at].record.key, 0, values[at].property}; };
    for (std::size_t at = 0; at < values.size(); ++at) {
        auto const first = places.find(slotAt(at), count, slotAt);
        if (first != count)
            values[first].now = std::move(values[at].now);
        else if (count++ != at)
            values[first] = std::move(values[at]);
    }
    values.erase(values.begin() + static_cast<std::ptrdiff_t>(count), values.end());
}

/// Who joins and leaves takes turns: of an even number nothing is left, of an odd one the first.
void foldMembers(std::vector<UndoStep::MemberChange>& members) {
    if (members.size() < 2) return;
    SlotPlaces places(members.size());
    std::vector<bool> isVain; // by place, once somebody did both
    std::size_t count = 0;
    auto const slotAt = [&](std::size_t at) { return Slot{members[at].owner.key, members[at].member, members[at].relationship}; };
    for (std::size_t at = 0; at < members.size(); ++at) {
        auto const first = places.find(slotAt(at), count, slotAt);
        if (first != count) {
            isVain.resize(members.size());
            isVain[first] = !isVain[first];
        } else if (count++ != at) {
            members[first] = members[at];
        }
    }
    members.resize(count);
    if (!isVain.empty())
        std::erase_if(members, [&](auto const& each) { return isVain[static_cast<std::size_t>(&each - members.data())]; });
}

/// Keys to be looked up, neighbours beside each other.
class Keys {
public:
    template <class Changes, class KeyOf> Keys(Changes const& changes, KeyOf keyOf) {
        if (changes.empty()) return;
        places_.resize(std::bit_ceil(changes.size() + changes.size() / 2 + neighbours));
        for (auto const& each : changes) placeOf(keyOf(each)) = keyOf(each);
    }
    bool empty() const noexcept { return places_.empty(); }
    bool contains(RecordKey key) const { return !empty() && const_cast<Keys*>(this)->placeOf(key) == key; }

private:
    static constexpr std::uint64_t neighbours = 8; // on a cache line
    RecordKey& placeOf(RecordKey key) {
        auto const bits = static_cast<std::uint64_t>(key);
        auto const mixed = (bits / neighbours * 0x9E3779B97F4A7C15U) >> 32;
        for (auto at = mixed * neighbours + bits % neighbours;; ++at) {
            auto& place = places_[at & (places_.size() - 1)];
            if (place == 0 || place == key) return place; // 0 is no record's key
        }
    }
    std::vector<RecordKey> places_;
};

} // namespace

void UndoStep::expectInverseOf(UndoStep const& step) {
    values.reserve(step.values.size());
    members.reserve(step.members.size());
    insertions.reserve(step.deletions.size());
    deletions.reserve(step.insertions.size());
}

bool UndoStep::takeKeys(FunctionRef<RecordKey(RecordKey)> current) {
    bool isAnother = false;
    auto const take = [&](RecordKey& key) {
        if (key >= 0) return;
        auto const now = current(key);
        isAnother = isAnother || now != key;
        key = now;
    };
    auto const takeValue = [&](Value& value) {
        auto key = value.integer(); // 0 where there is none
        take(key);
        value = Value(key);
    };
    for (auto& change : values) {
        take(change.record.key);
        if (change.property->asRelationship()) takeValue(change.before), takeValue(change.now);
    }
    for (auto& change : members) take(change.owner.key), take(change.member);
    for (auto& change : orders) {
        take(change.owner.key);
        for (auto* keys : {&change.before, &change.now}) std::ranges::for_each(*keys, take);
    }
    for (auto& record : insertions) take(record.key);
    for (auto& deletion : deletions) take(deletion.record.key);
    return isAnother;
}

void UndoStep::fold() {
    Keys const inserted(insertions, [](Record const& each) { return each.key; });
    std::vector<RecordKey> both; // inserted, saved, and deleted
    if (!inserted.empty())
        for (auto const& deletion : deletions)
            if (inserted.contains(deletion.record.key)) both.push_back(deletion.record.key);
    Keys const gone(both, std::identity());
    if (!gone.empty()) {
        std::erase_if(deletions, [&](Deletion const& each) { return gone.contains(each.record.key); });
        std::erase_if(insertions, [&](Record const& each) { return gone.contains(each.key); });
        for (auto& order : orders) // they do not come back with a list that was deleted
            std::erase_if(order.now, [&](RecordKey key) { return gone.contains(key); });
    }
    foldValues(values);
    std::erase_if(values, [&](ValueChange const& each) { return each.before == each.now || inserted.contains(each.record.key); });
    foldMembers(members);
    if (!inserted.empty())
        std::erase_if(members,
                      [&](MemberChange const& each) { return inserted.contains(each.owner.key) || gone.contains(each.member); });
    std::erase_if(orders, [&](OrderChange const& each) { return each.before == each.now || inserted.contains(each.owner.key); });
    folded_ = {values.size(), members.size(), insertions.size(), deletions.size()};
}

/// The links of what was inserted go with it, and need no change of their own.
bool UndoStep::mayComeToNothing() const noexcept {
    return values.size() >= 2 * folded_.values && (folded_.insertions != 0 || members.size() >= 2 * folded_.members) &&
           deletions.size() >= folded_.deletions + folded_.insertions &&
           insertions.size() >= folded_.insertions + folded_.deletions;
}

} // namespace Tessarin
