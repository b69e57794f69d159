// Writing down: what happens at each change of the context.
#include "Tessarin/platform/objectgraph/undo/UndoRecorderPrivate.h"

#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"

#include <algorithm>
#include <iterator>

namespace Tessarin {
namespace {

UndoStep::Record recordOf(NSManagedObject const& object) { return {&object.entity(), object.recordKey()}; }

/// Its own undoing takes the other end along.
bool hasOwnEnd(NSRelationshipDescription const& relationship) { return relationship.isReciprocal(); }

/// What a deletion leaves alone is read before it, so that it can come back.
void readMembersThatStay(NSManagedObject& object) {
    for (auto const* relationship : object.entity().relationships())
        if (relationship->isToMany() && relationship->deleteRule() == NSDeleteRule::NoAction) memberKeys(object, *relationship);
}

} // namespace

UndoManager::Inside::Open& UndoManager::Inside::open(RecordKey firstNew) {
    if (!open_) {
        if (firstNew == 0) firstNew = NSPersistentStoreCoordinator::temporaryKey();
        open_ = std::make_unique<Open>(Open{{}, firstNew, {}, {}});
        open_->step.name = nextName_;
    }
    return *open_;
}

bool UndoManager::Inside::isNewKey(RecordKey key) const { return open_ && key < open_->firstNew; }
bool UndoManager::Inside::isNew(NSManagedObject const& object) const {
    return object.isInserted() && isNewKey(object.recordKey());
}

void UndoManager::Inside::noteInsertion(NSManagedObject& object) {
    open(object.recordKey() + 1).step.insertions.push_back(recordOf(object));
}

void UndoManager::Inside::noteDeletion(NSManagedObject& object) {
    if (isNew(object)) return void(open().gone.insert(object.recordKey()));
    if (GraphAccess::state(object).has(ObjectState::Gone)) return;
    readMembersThatStay(object);
    noteOrdersWith(object);
    open().step.deletions.push_back({recordOf(object), object.self<NSManagedObject>()});
}

/// A list that is read later does not show who is deleted any more.
void UndoManager::Inside::noteOrdersWith(NSManagedObject& object) {
    for (auto const* relationship : object.entity().relationships()) {
        auto const* inverse = relationship->isReciprocal() ? relationship->inverseRelationship() : nullptr;
        if (!inverse || !inverse->isOrdered()) continue;
        std::vector<RecordKey> owners;
        if (relationship->isToMany())
            std::ranges::copy(memberKeys(object, *relationship), std::back_inserter(owners));
        else if (auto const key = referenceOf(object, *relationship))
            owners.push_back(key);
        for (auto const key : owners) {
            auto const owner = objectWithKey(*context(), *relationship->destinationEntity(), key);
            GraphAccess::fire(*owner);
            if (!owner->isDeleted() && !GraphAccess::state(*owner).has(ObjectState::Gone)) noteOrder(*owner, *inverse);
        }
    }
}

void UndoManager::Inside::noteValue(NSManagedObject& object, NSPropertyDescription const& property, Value before,
                                    Value const& now) {
    if (isNew(object) || before == now) return;
    auto& values = open().step.values;
    bool const isSame = !values.empty() && values.back().property == &property && values.back().record.key == object.recordKey();
    if (isSame)
        values.back().now = now;
    else
        values.push_back({recordOf(object), &property, std::move(before), now});
}

void UndoManager::Inside::noteMember(NSManagedObject& owner, NSRelationshipDescription const& relationship, RecordKey member,
                                     bool isMember) {
    if (isNew(owner)) return;
    if (hasOwnEnd(relationship) && isNewKey(member))
        if (auto const object = link_->find(member); object && isNew(*object)) return; // who is new comes back with its links
    open().step.members.push_back({recordOf(owner), &relationship, member, isMember});
}

void UndoManager::Inside::noteOrder(NSManagedObject& owner, NSRelationshipDescription const& relationship) {
    if (isNew(owner)) return;
    auto [at, isFirst] = open().orders.try_emplace({&owner, &relationship});
    if (!isFirst) return;
    auto const keys = memberKeys(owner, relationship);
    at->second = {owner.self<NSManagedObject>(), {keys.begin(), keys.end()}};
}

void UndoManager::Inside::noteNewKey(RecordKey before, RecordKey now) {
    if (before < 0 && aliases_.find(before) == 0) aliases_.add(before, now);
}

void UndoManager::Inside::noteLoss(NSManagedObject const& object) {
    bool const isStepKept = open_ || !undo_.empty() || !redo_.empty();
    if (object.isDeleted() || (isRecording() && isStepKept)) lost_.insert(object.recordKey());
}

RecordKey UndoManager::Inside::current(RecordKey key) const {
    if (key >= 0) return key;
    auto const own = aliases_.find(key);
    return own != 0 ? own : link_->current(key);
}

/// What stood between the places that are the same before and after.
void UndoManager::Inside::finishOrders(Open& open) {
    for (auto& [place, order] : open.orders) {
        auto const& relationship = *place.second;
        auto& before = order.before;
        std::ranges::transform(before, before.begin(), [this](RecordKey key) { return current(key); });
        std::vector<RecordKey> now;
        try {
            std::ranges::copy(memberKeys(*order.owner, relationship), std::back_inserter(now));
        } catch (ErrorException const&) { // at the end of a turn there is nobody who could be told
            continue;
        }
        std::erase_if(now, [&](RecordKey key) { return open.gone.contains(key); });
        auto const start = std::ranges::mismatch(before, now);
        auto const first = start.in1 - before.begin();
        auto beforeEnd = before.end();
        auto nowEnd = now.end();
        while (beforeEnd != start.in1 && nowEnd != start.in2 && beforeEnd[-1] == nowEnd[-1]) --beforeEnd, --nowEnd;
        if (beforeEnd == start.in1 && nowEnd == start.in2) continue;
        open.step.orders.push_back({recordOf(*order.owner),
                                    &relationship,
                                    static_cast<std::size_t>(first),
                                    {start.in1, beforeEnd},
                                    {start.in2, nowEnd}});
    }
}

Ref<UndoStep> UndoManager::Inside::close() {
    auto const open = std::exchange(open_, nullptr);
    if (!open) return nullptr;
    finishOrders(*open);
    std::erase_if(open->step.insertions, [&](UndoStep::Record const& each) { return open->gone.contains(each.key); });
    open->step.takeKeys([this](RecordKey key) { return current(key); });
    open->step.fold();
    return open->step.empty() ? nullptr : std::make_shared<UndoStep>(std::move(open->step));
}

} // namespace Tessarin
