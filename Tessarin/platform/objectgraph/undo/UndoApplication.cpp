#include "Tessarin/platform/objectgraph/undo/UndoApplicationPrivate.h"

#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/RelationshipEndsPrivate.h"

#include <algorithm>
#include <ranges>
#include <unordered_map>
#include <utility>

namespace Tessarin {

void UndoApplication::run() {
    readAhead();
    inserted_.reserve(made_.size());
    for (std::size_t at = 0; at < made_.size(); ++at) {
        auto& made = *made_[at];
        auto const& record = step_.insertions[at];
        if (!there(made, *record.entity, current(record.key)) || std::exchange(made.isDoomed, true)) continue;
        inserted_.push_back(made.object);
    }
    revived_.reserve(deleted_.size());
    for (std::size_t at = 0; at < deleted_.size(); ++at) revive(step_.deletions[at], *deleted_[at]);
    findOrders();
    for (auto const& change : step_.values | std::views::reverse) restoreValue(change);
    restoreLinks();
    for (auto const* revived : revived_) linkAgain(*revived);
    for (auto const& order : orders_) restoreOrder(order);
    deleteAlone(context_, inserted_);
}

UndoApplication::Known& UndoApplication::known(RecordKey key) {
    if (auto* present = byKey_.find(key)) return *present;
    auto& added = all_.emplace_back(Known{context_.link->find(key)});
    byKey_.set(key, &added);
    return added;
}

bool UndoApplication::isDoomed(RecordKey key) const {
    auto const* known = inserted_.empty() ? nullptr : byKey_.find(current(key));
    return known && known->isDoomed;
}

/// There is no record now. The object of a deletion that is not saved is still the register's.
UndoApplication::Known& UndoApplication::knownDeleted(UndoStep::Deletion const& deletion) {
    auto const key = current(deletion.record.key);
    auto* known = byKey_.find(key);
    if (!known) {
        auto const* state = deletion.object ? &GraphAccess::state(*deletion.object) : nullptr;
        bool const isRegistered =
            state && state->key == key && state->has(ObjectState::Deleted) && !state->has(ObjectState::Gone);
        known = &all_.emplace_back(Known{isRegistered ? deletion.object : context_.link->find(key)});
        byKey_.set(key, known);
    }
    known->isSought = true;
    return *known;
}

/// All records that the step names, in one go for each entity: what cannot be read throws before anything has changed.
void UndoApplication::readAhead() {
    deleted_.reserve(step_.deletions.size());
    for (auto const& deletion : step_.deletions) deleted_.push_back(&knownDeleted(deletion));
    std::unordered_map<NSEntityDescription const*, std::vector<RecordKey>> keys;
    auto const want = [&](NSEntityDescription const* entity, RecordKey key) {
        key = current(key);
        auto* const wanted = key == 0 ? nullptr : &known(key);
        if (wanted && key > 0 && !wanted->object && !std::exchange(wanted->isSought, true)) keys[entity].push_back(key);
        return wanted;
    };
    made_.reserve(step_.insertions.size());
    for (auto const& record : step_.insertions) made_.push_back(want(record.entity, record.key));
    for (auto const& change : step_.values) {
        want(change.record.entity, change.record.key);
        if (auto const* relationship = change.property->asRelationship())
            want(relationship->destinationEntity(), change.before.integer());
    }
    ends_.reserve(step_.members.size());
    for (auto const& change : step_.members) {
        auto* const owner = want(change.owner.entity, change.owner.key);
        ends_.push_back({owner, want(change.relationship->destinationEntity(), change.member)});
    }
    for (auto const& change : step_.orders) want(change.owner.entity, change.owner.key);
    for (auto const& [entity, wanted] : keys)
        for (auto& object : filledObjects(context_, *entity, wanted)) {
            GraphAccess::fire(*object);
            known(object->recordKey()).object = object;
        }
}

/// The object of a record that exists; null for one that is gone, or goes with the next save.
NSManagedObject* UndoApplication::there(NSEntityDescription const& entity, RecordKey key) {
    key = current(key);
    return key == 0 ? nullptr : there(known(key), entity, key);
}
NSManagedObject* UndoApplication::there(Known& known, NSEntityDescription const& entity, RecordKey key) {
    auto& object = known.object;
    if (!object && key < 0) return nullptr;
    if (!object) object = objectWithKey(context_, entity, key);
    GraphAccess::fire(*object);
    return object->isDeleted() || GraphAccess::state(*object).has(ObjectState::Gone) ? nullptr : object.get();
}

void UndoApplication::restoreValue(UndoStep::ValueChange const& change) {
    auto const* attribute = change.property->asAttribute();
    auto* const object = attribute ? there(change.record) : nullptr;
    if (!object || isDoomed(object->recordKey())) return;
    if (object->valueForKey(attribute->name()) == change.now) object->setValueForKey(change.before, attribute->name());
}

/// Those of an object that has just come back may have gone with it and not come back.
std::vector<RecordKey> UndoApplication::membersThere(NSManagedObject& owner, Relationship const& relationship) {
    auto const keys = memberKeys(owner, relationship);
    std::vector<RecordKey> members(keys.begin(), keys.end());
    if (known(owner.recordKey()).isRevived)
        std::erase_if(members, [&](RecordKey key) { return !there(*relationship.destinationEntity(), key); });
    return members;
}

/// Places are known where nobody else has been at them; otherwise what comes back comes last.
void UndoApplication::findOrders() {
    for (auto const& change : step_.orders) {
        auto* const owner = there(change.owner);
        if (!owner || isDoomed(owner->recordKey())) continue;
        auto const members = membersThere(*owner, *change.relationship);
        if (change.at > members.size() || change.now.size() > members.size() - change.at) continue;
        auto const from = members.begin() + static_cast<std::ptrdiff_t>(change.at);
        auto const to = from + static_cast<std::ptrdiff_t>(change.now.size());
        if (!std::equal(from, to, change.now.begin())) continue;
        Order order{owner, change.relationship, {members.begin(), from}};
        order.keys.insert(order.keys.end(), change.before.begin(), change.before.end());
        order.keys.insert(order.keys.end(), to, members.end());
        orders_.push_back(std::move(order));
    }
}

void UndoApplication::restoreOrder(Order const& order) {
    auto const& members = loadedMembers(*order.owner, *order.relationship).members;
    KeySet wanted;
    for (auto const key : order.keys)
        if (members.contains(key)) wanted.add(key);
    for (auto const key : members.keys()) wanted.add(key);
    setOrder(*order.owner, *order.relationship, std::move(wanted));
}

} // namespace Tessarin
