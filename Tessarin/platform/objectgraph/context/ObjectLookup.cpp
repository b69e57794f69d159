#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"

#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowBuilderPrivate.h"

#include <algorithm>
#include <iterator>
#include <unordered_set>
#include <utility>

namespace Tessarin {
namespace {

constexpr std::size_t longestRun = 256; // objects that are entered together

void noteIfForeign(ContextState& context, RecordKey key) {
    if (key >= 0) return;
    context.knowsForeignTemporaries = true;
    context.foreignTemporaries.add(key);
}

Ref<NSManagedObject> madeFault(ContextState& context, NSEntityDescription const& entity, RecordKey key,
                               FaultBatchRef const& batch) {
    key = context.link->current(key);
    auto object = context.link->makeObject(entity, key, batch);
    GraphAccess::state(*object).set(ObjectState::Fault);
    context.link->add(*object, key);
    noteIfForeign(context, key);
    return object;
}

/// A record does not change its entity, but in a damaged store.
void requireSameEntity(ObjectState const& state, Row const& row) {
    if (&row.entity() != &state.layout->entity()) throwDamaged(row.entity(), state.layout->entity(), row.key());
}

/// Whether a row shows what an ancestor has not saved, or had not when it was read: of a record that it changed, or inserted.
bool showsUnsaved(Row const& row) { return row.basis() || showsNewRecord(row); }

/// Whether a row that was just read is newer than what an object shows. What a parent has not saved may have changed meanwhile,
/// be saved or gone, and no version tells.
bool isNewer(Row const& read, Row const& shown) {
    if (!showsUnsaved(read) && !showsUnsaved(shown)) return read.version() > shown.version();
    return &read != &shown && read.savedVersion() >= shown.savedVersion();
}

/// Takes a row over when it is newer than what an unchanged object shows.
void takeRow(ObjectState& state, RowRef row) {
    requireSameEntity(state, *row);
    if (state.has(ObjectState::Changed) || (state.row && !isNewer(*row, *state.row))) return;
    state.row = std::move(row);
    state.clear(ObjectState::Gone);
}

/// References to a batch that were counted in one go.
class BatchShare {
public:
    BatchShare(FaultBatch& batch, std::size_t count) noexcept : batch_(batch), left_(static_cast<std::uint32_t>(count)) {
        retainObject(batch, left_);
    }
    BatchShare(BatchShare const&) = delete;
    BatchShare& operator=(BatchShare const&) = delete;
    ~BatchShare() {
        while (left_-- != 0) releaseObject(batch_);
    }
    FaultBatchRef one() noexcept {
        --left_;
        return FaultBatchRef::adopt(&batch_);
    }

private:
    FaultBatch& batch_;
    std::uint32_t left_;
};

/// The objects of a run of rows, entered into the register under one lock.
void findOrMake(ContextState& context, std::span<RowRef> rows, FaultBatch& batch, std::span<Ref<NSManagedObject>> objects) {
    applyPromotions(context);
    context.link->findAll(rows, objects);
    auto const missing = static_cast<std::size_t>(std::ranges::count(objects, nullptr));
    {
        BatchShare share(batch, missing);
        for (std::size_t at = 0; at < rows.size(); ++at) {
            auto const key = context.link->current(rows[at]->key());
            batch.members.push_back(key);
            if (objects[at]) {
                requireSameTree(objects[at]->entity(), rows[at]->entity(), key);
                continue;
            }
            objects[at] = context.link->makeObject(rows[at]->entity(), key, share.one()); // runs the application's initialiser
            GraphAccess::state(*objects[at]).set(ObjectState::Fault);
            noteIfForeign(context, key);
        }
    }
    if (missing != 0) context.link->addAll(objects);
    for (std::size_t at = 0; at < rows.size(); ++at) takeRow(GraphAccess::state(*objects[at]), std::move(rows[at]));
}

/// Faults of the batch, this one first, that have no row yet.
std::vector<RecordKey> unfilledMembers(ContextState& context, NSManagedObject& object) {
    auto const& state = GraphAccess::state(object);
    std::vector<RecordKey> keys{state.key};
    for (auto const key : state.batch->members) {
        if (key == state.key) continue;
        auto const other = context.link->find(key);
        if (other && !GraphAccess::state(*other).row && GraphAccess::state(*other).has(ObjectState::Fault)) keys.push_back(key);
    }
    return keys;
}

} // namespace

Ref<NSManagedObject> objectWithRow(ContextState& context, RowRef row, FaultBatchRef const& batch) {
    applyPromotions(context);
    auto object = context.link->find(row->key());
    if (object) requireSameTree(object->entity(), row->entity(), row->key());
    if (!object) object = madeFault(context, row->entity(), row->key(), batch); // runs the application's initialiser
    takeRow(GraphAccess::state(*object), std::move(row));
    return object;
}

FaultBatchRef makeBatch(ContextState& context, NSEntityDescription const& entity, std::size_t members) {
    FaultBatchRef batch{new FaultBatch(*context.link, entity)};
    batch->members.reserve(std::min(members, FaultBatch::mostMembers));
    return batch;
}

void objectsWithRows(ContextState& context, NSEntityDescription const& entity, std::span<RowRef> rows,
                     FunctionRef<void(std::span<Ref<NSManagedObject>>)> take) {
    if (rows.size() == 1) { // of a look-up: there are no neighbours to be read with it
        auto object = objectWithRow(context, std::move(rows.front()), {});
        return take({&object, 1});
    }
    FaultBatchRef batch;
    std::vector<Ref<NSManagedObject>> objects; // of the run
    while (!rows.empty()) {
        auto const run = rows.first(std::min(rows.size(), longestRun));
        if (!batch || batch->members.size() + run.size() > FaultBatch::mostMembers)
            batch = makeBatch(context, entity, rows.size());
        objects.assign(run.size(), nullptr);
        findOrMake(context, run, *batch, objects);
        take(objects);
        rows = rows.subspan(run.size());
    }
}

Ref<NSManagedObject> objectWithKey(ContextState& context, NSEntityDescription const& entity, RecordKey key,
                                   FaultBatchRef const& batch) {
    applyPromotions(context);
    if (auto living = context.link->find(key)) {
        requireSameTree(living->entity(), entity, key);
        return living;
    }
    if (!entity.subentities().empty())
        if (auto row = RecordReader(context).row(entity, key)) return objectWithRow(context, std::move(row), batch);
    return madeFault(context, entity, key, batch);
}

std::vector<Ref<NSManagedObject>> objectsWithKeys(ContextState& context, NSEntityDescription const& entity,
                                                  std::span<RecordKey const> keys) {
    std::vector<Ref<NSManagedObject>> held; // until they are among the objects
    if (!entity.subentities().empty()) // the rows say of which entity each is
        RecordReader(context).rows(entity, keys, [&](RowRef row) { held.push_back(objectWithRow(context, std::move(row), {})); });
    std::vector<Ref<NSManagedObject>> objects;
    objects.reserve(keys.size());
    FaultBatchRef batch;
    for (auto const key : keys) {
        if (!batch || batch->members.size() == FaultBatch::mostMembers)
            batch = makeBatch(context, entity, keys.size() - objects.size());
        batch->members.push_back(key);
        objects.push_back(objectWithKey(context, entity, key, batch));
    }
    return objects;
}

namespace {

/// The records' rows in the order of the keys; none where a record is gone, has another key now or cannot be read.
std::vector<RowRef> rowsInOrder(ContextState& context, NSEntityDescription const& entity, std::span<RecordKey const> keys) {
    std::vector<RowRef> read, rows(keys.size());
    read.reserve(keys.size());
    try {
        RecordReader(context).rows(entity, keys, [&](RowRef row) { read.push_back(std::move(row)); });
    } catch (ErrorException const&) {
        return {};
    } // faults throw when they are asked
    if (read.size() != keys.size()) return {};
    std::vector<std::pair<RecordKey, std::size_t>> places;
    places.reserve(keys.size());
    for (auto const key : keys) places.emplace_back(key, places.size());
    if (!std::ranges::is_sorted(places)) std::ranges::sort(places);
    auto const keyOf = [](RowRef const& row) { return row->key(); };
    if (!std::ranges::is_sorted(read, {}, keyOf)) std::ranges::sort(read, {}, keyOf);
    for (std::size_t at = 0; at < read.size(); ++at) {
        if (read[at]->key() != places[at].first) return {};
        rows[places[at].second] = std::move(read[at]);
    }
    return rows;
}

} // namespace

std::vector<Ref<NSManagedObject>> filledObjects(ContextState& context, NSEntityDescription const& entity,
                                                std::span<RecordKey const> keys) {
    auto rows = rowsInOrder(context, entity, keys);
    if (rows.empty()) return objectsWithKeys(context, entity, keys);
    std::vector<Ref<NSManagedObject>> objects;
    objects.reserve(keys.size());
    objectsWithRows(context, entity, rows, [&](std::span<Ref<NSManagedObject>> run) {
        objects.insert(objects.end(), std::move_iterator(run.begin()), std::move_iterator(run.end()));
    });
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
    batch.hold(objectsWithKeys(context, *relationship.destinationEntity(), destinations));
}

void fillFault(ContextState& context, NSManagedObject& object) {
    RecordReader const reader(context);
    applyPromotions(context); // which may have come with what the reader sees
    auto const keys = unfilledMembers(context, object);
    reader.rows(object.entity(), keys, [&](RowRef row) {
        auto const other = row->key() == object.recordKey() ? nullptr : context.link->find(row->key());
        if (!other && row->key() != object.recordKey()) return;
        auto& state = GraphAccess::state(other ? *other : object);
        requireSameEntity(state, *row);
        state.row = std::move(row);
    });
    auto& state = GraphAccess::state(object);
    if (!state.row) state.set(ObjectState::Gone);
}

void promoteObject(ContextState& context, NSManagedObject& object, RecordKey permanent) {
    auto& state = GraphAccess::state(object);
    context.coordinator->identities().promote(state.key, permanent);
    context.link->rename(object, state.key, permanent);
    context.values.noteNewKey(state.key, permanent);
    if (context.recorder) context.recorder->noteNewKey(state.key, permanent);
    context.feed.noteNewKey(context, object, permanent);
    state.key = permanent;
    if (state.has(ObjectState::Published)) context.mustShowAnew = true;
    state.clear(ObjectState::Published);
}

void applyPromotions(ContextState& context) {
    auto& promotions = context.coordinator->promotions();
    if (promotions.count() == context.promotionsSeen) return;
    auto const log = promotions.advance(context.promotionsSeen);
    context.link->noteKeyChange();
    context.feed.noteNewKeys(context);
    for (auto const& [temporary, permanent] : log) {
        context.values.noteNewKey(temporary, permanent);
        if (auto const object = context.link->find(temporary); object && object->recordKey() == temporary)
            promoteObject(context, *object, permanent);
    }
}

void markChanged(NSManagedObject& object, ObjectState::Flag how) {
    auto& state = GraphAccess::state(object);
    state.set(how);
    auto* context = state.link()->contextState();
    if (!context) return;
    noteUnshown(*context, object);
    bool const isNew = how == ObjectState::Inserted && !state.has(ObjectState::Changed);
    noteNews(*context, object,
             isNew                         ? ContextNews::Inserted
             : how == ObjectState::Deleted ? ContextNews::Deleted
                                           : ContextNews::Updated);
    if (state.has(ObjectState::Changed)) return;
    state.set(ObjectState::Changed);
    context->changed.add(object.self<NSManagedObject>());
    context->values.noteChanged(object);
}

void unmarkChanged(ContextState& context, NSManagedObject& object) {
    noteUnshown(context, object);
    GraphAccess::state(object).clear(ObjectState::Changed);
    context.changed.remove(object);
}

} // namespace Tessarin
