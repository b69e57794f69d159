#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"

#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"

#include <algorithm>
#include <unordered_set>

namespace Tessarin {
namespace {

Ref<NSManagedObject> madeFault(ContextState& context, NSEntityDescription const& entity, RecordKey key, FaultBatchRef const& batch) {
    auto object = context.link->makeObject(entity);
    auto& state = GraphAccess::state(*object);
    state.key = key;
    state.batch = batch;
    state.set(ObjectState::Fault);
    context.link->add(*object, key);
    if (key < 0) context.knowsForeignTemporaries = true;
    return object;
}

/// Faults of the batch, this one first, that have no row yet.
std::vector<RecordKey> unfilledMembers(ContextState& context, NSManagedObject& object) {
    auto const& state = GraphAccess::state(object);
    std::vector<RecordKey> keys{state.key};
    if (!state.batch) return keys;
    for (auto const key : state.batch->members) {
        if (key == state.key) continue;
        auto const other = context.link->find(key);
        if (other && !GraphAccess::state(*other).row && GraphAccess::state(*other).has(ObjectState::Fault)) keys.push_back(key);
    }
    return keys;
}

} // namespace

FaultBatchRef makeBatch(NSEntityDescription const& entity) {
    FaultBatchRef batch{new FaultBatch};
    batch->rootEntity = entity.rootEntity();
    return batch;
}

Ref<NSManagedObject> objectWithRow(ContextState& context, RowRef row, FaultBatchRef const& batch) {
    bool isNew = false;
    auto object = context.link->findOrMake(row->key(), row->entity(), isNew);
    auto& state = GraphAccess::state(*object);
    if (isNew) {
        state.batch = batch;
        state.set(ObjectState::Fault);
        if (row->key() < 0) context.knowsForeignTemporaries = true;
    } else if (state.has(ObjectState::Changed) || (state.row && state.row->version() >= row->version())) {
        return object;
    }
    state.row = std::move(row);
    state.clear(ObjectState::Gone);
    return object;
}

Ref<NSManagedObject> objectWithKey(ContextState& context, NSEntityDescription const& entity, RecordKey key, FaultBatchRef const& batch) {
    if (auto living = context.link->find(key)) return living;
    if (!entity.subentities().empty())
        if (auto row = RecordReader(context).row(entity, key)) return objectWithRow(context, std::move(row), batch);
    return madeFault(context, entity, key, batch);
}

std::vector<Ref<NSManagedObject>> objectsWithKeys(ContextState& context, NSEntityDescription const& entity, std::span<RecordKey const> keys) {
    if (!entity.subentities().empty()) // the rows say of which entity each is
        RecordReader(context).rows(entity, keys, [held = std::vector<Ref<NSManagedObject>>(), &context](RowRef row) mutable {
            held.push_back(objectWithRow(context, std::move(row), {}));
        });
    std::vector<Ref<NSManagedObject>> objects;
    objects.reserve(keys.size());
    FaultBatchRef batch;
    for (auto const key : keys) {
        if (!batch || batch->members.size() == FaultBatch::mostMembers) batch = makeBatch(entity);
        batch->members.push_back(key);
        objects.push_back(objectWithKey(context, entity, key, batch));
    }
    return objects;
}

void walkBatch(ContextState& context, FaultBatch& batch, NSRelationshipDescription const& relationship) {
    auto const property = static_cast<std::uint32_t>(relationship.index());
    if (std::ranges::find(batch.walked, property) != batch.walked.end()) return;
    batch.walked.push_back(property);
    std::unordered_set<RecordKey> seen;
    std::vector<RecordKey> destinations;
    for (auto const key : batch.members) {
        auto const member = context.link->find(key);
        if (!member) continue;
        auto const& state = GraphAccess::state(*member);
        if (!state.row || relationship.index() >= state.layout->entity().properties().size()) continue;
        if (state.layout->entity().properties()[relationship.index()] != &relationship) continue;
        auto const cell = state.layout->cellOf(relationship.index());
        auto const destination = cell == RowLayout::noCell ? 0 : state.row->reference(static_cast<std::size_t>(cell));
        if (destination != 0 && seen.insert(destination).second) destinations.push_back(destination);
    }
    auto objects = objectsWithKeys(context, *relationship.destinationEntity(), destinations);
    batch.held.insert(batch.held.end(), std::make_move_iterator(objects.begin()), std::make_move_iterator(objects.end()));
}

void fillFault(ContextState& context, NSManagedObject& object) {
    auto const keys = unfilledMembers(context, object);
    RecordReader(context).rows(object.entity(), keys, [&](RowRef row) {
        if (row->key() == object.recordKey())
            GraphAccess::state(object).row = std::move(row);
        else if (auto const other = context.link->find(row->key()))
            GraphAccess::state(*other).row = std::move(row);
    });
    auto& state = GraphAccess::state(object);
    if (!state.row) state.set(ObjectState::Gone);
}

void promoteObject(ContextState& context, NSManagedObject& object, RecordKey permanent) {
    auto& state = GraphAccess::state(object);
    context.coordinator->identities().promote(state.key, permanent);
    context.link->add(object, permanent);
    context.promoted.emplace_back(state.key, permanent);
    state.key = permanent;
    state.clear(ObjectState::Published);
}

void applyPromotions(ContextState& context) {
    auto& promotions = context.coordinator->promotions();
    if (promotions.count() == context.promotionsSeen) return;
    auto const log = promotions.since(context.promotionsSeen);
    context.promotionsSeen += log.size();
    for (auto const& [temporary, permanent] : log)
        if (auto const object = context.link->find(temporary); object && object->recordKey() == temporary) promoteObject(context, *object, permanent);
}

void markChanged(NSManagedObject& object, ObjectState::Flag how) {
    auto& state = GraphAccess::state(object);
    state.set(how);
    auto* context = state.link->contextState();
    if (!context) return;
    context->hasUnannouncedChanges = true;
    if (state.has(ObjectState::Changed)) return;
    state.set(ObjectState::Changed);
    context->changed.push_back(object.self<NSManagedObject>());
}

} // namespace Tessarin
