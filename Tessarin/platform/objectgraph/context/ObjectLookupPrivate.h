#pragma once
#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"

namespace Tessarin {

/// One object per record and context: these give the one that lives, else make it. On the context's queue.

/// The object of a row that was just read; takes the row over when it is newer than what an unchanged object shows.
Ref<NSManagedObject> objectWithRow(ContextState& context, RowRef row, FaultBatchRef const& batch);
/// The same for many, which fill and are walked together; hands them on in runs.
void objectsWithRows(ContextState& context, NSEntityDescription const& entity, std::span<RowRef> rows,
                     FunctionRef<void(std::span<Ref<NSManagedObject>>)> take);
/// The object of a record that was not read. `entity` may be an ancestor of the record's own; the record is read then.
Ref<NSManagedObject> objectWithKey(ContextState& context, NSEntityDescription const& entity, RecordKey key,
                                   FaultBatchRef const& batch = {});
/// The objects of several records, in their order, as faults that fill together.
std::vector<Ref<NSManagedObject>> objectsWithKeys(ContextState& context, NSEntityDescription const& entity,
                                                  std::span<RecordKey const> keys);
/// The same with their values, read in one go: for whoever will ask for those. What cannot be read comes as a fault.
std::vector<Ref<NSManagedObject>> filledObjects(ContextState& context, NSEntityDescription const& entity,
                                                std::span<RecordKey const> keys);
/// Before the destination of a to-one is looked up: makes the destinations of the whole batch, to be filled together.
void walkBatch(ContextState& context, FaultBatch& batch, NSRelationshipDescription const& relationship);
/// Reads the row of a fault, and of its batch's other faults with it.
void fillFault(ContextState& context, NSManagedObject& object);

/// Keeps the object in the context's list of changed objects.
void markChanged(NSManagedObject& object, ObjectState::Flag how);
/// Its changes are none any more.
void unmarkChanged(ContextState& context, NSManagedObject& object);

/// Who writes down what is changed in an object's context; null while nobody does.
inline ChangeRecorder* recorderOf(NSManagedObject const& object) noexcept {
    auto const* context = GraphAccess::state(object).link()->contextState();
    return context && context->recorder && context->recorder->isRecording() ? context->recorder.get() : nullptr;
}

/// The record has its permanent key from now on; what refers to it by the other is told by `updateKeys`.
void promoteObject(ContextState& context, NSManagedObject& object, RecordKey permanent);
/// Goes through what became permanent elsewhere since the last time.
void applyPromotions(ContextState& context);

} // namespace Tessarin
