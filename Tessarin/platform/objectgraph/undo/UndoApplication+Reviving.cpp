// Deleted objects come back as themselves: as they were where their deletion was not saved, else as new records under their keys.
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"
#include "Tessarin/platform/objectgraph/undo/UndoApplicationPrivate.h"

#include <algorithm>

namespace Tessarin {
namespace {

/// A row that showed what was not saved may lead to records by keys that have become others, or will.
void keepNewDestinations(ObjectState& state) {
    auto const& cells = state.layout->cells();
    for (std::size_t cell = 0; cell < cells.size(); ++cell) {
        auto const key = cells[cell].type == CellType::Reference ? state.row->reference(cell) : 0;
        auto const property = cells[cell].property->index();
        if (key < 0 && !state.more().value(property)) state.more().values.emplace_back(static_cast<std::uint32_t>(property), key);
    }
}

} // namespace

void UndoApplication::revive(UndoStep::Deletion const& deletion, Known& known) {
    auto const key = current(deletion.record.key);
    if (isLost_(key) || (key != deletion.record.key && isLost_(deletion.record.key))) return;
    auto const made = deletion.object ? nullptr : context_.link->makeObject(*deletion.record.entity, key);
    if (made) GraphAccess::state(*made).flags = ObjectState::Deleted | ObjectState::Gone;
    auto const& object = made ? made : deletion.object;
    auto const& state = GraphAccess::state(*object);
    if (!state.has(ObjectState::Deleted)) return; // it has come back already
    if (!state.has(ObjectState::Gone))
        reviveUnsaved(*object);
    else if (known.object && there(known, known.object->entity(), key))
        return;
    else
        reviveGone(*object, key, deletion);
    if (auto* recorder = recorderOf(*object)) recorder->noteInsertion(*object);
    if (known.object != object) known.object = object;
    known.isRevived = true;
    revived_.push_back(&known);
}

/// Lists that a merge has made doubtful since are read again, and take the order that they had.
void UndoApplication::keepOrders(NSManagedObject& object) {
    auto const& extras = GraphAccess::state(object).extras;
    if (!extras) return;
    for (auto const& toMany : extras->toMany) {
        auto const* relationship = object.entity().properties()[toMany.property]->asRelationship();
        auto const keys = toMany.members.keys();
        if (relationship->isOrdered() && !toMany.isLoaded && !keys.empty())
            orders_.push_back({&object, relationship, {keys.begin(), keys.end()}});
    }
}

/// Its deletion was not saved, so there is none.
void UndoApplication::reviveUnsaved(NSManagedObject& object) {
    auto& state = GraphAccess::state(object);
    state.clear(ObjectState::Deleted);
    keepOrders(object);
    bool const isChanged =
        state.extras && (!state.extras->values.empty() || std::ranges::any_of(state.extras->toMany, &ToManyState::isChanged));
    if (isChanged) return markChanged(object, ObjectState::Updated);
    state.clear(ObjectState::Updated);
    unmarkChanged(context_, object);
    noteNews(context_, object, ContextNews::Inserted);
    context_.values.note(object);
}

/// A record under the key that it had, with the values of its last row and what was unsaved on top.
void UndoApplication::reviveGone(NSManagedObject& object, RecordKey key, UndoStep::Deletion const& deletion) {
    auto& state = GraphAccess::state(object);
    state.key = key;
    state.flags &= ObjectState::Unshown;
    state.batch = context_.link->lone();
    if (deletion.row) {
        state.row = deletion.row;
        if (state.extras) state.extras->values.clear(), state.extras->toMany.clear();
        for (auto const& [relationship, keys] : deletion.members) {
            auto& toMany = state.toMany(relationship->index());
            for (auto const member : keys) toMany.members.add(member);
            toMany.isLoaded = true;
        }
    }
    if (state.row) keepNewDestinations(state);
    if (state.extras) {
        auto const& properties = object.entity().properties();
        for (auto& [property, value] : state.extras->values)
            if (properties[property]->asRelationship()) value = Value(current_(value.integer()));
        for (auto& toMany : state.extras->toMany) {
            auto const& relationship = *properties[toMany.property]->asRelationship();
            toMany.toPermanent(current_);
            toMany.isLoaded = toMany.isLoaded || toMany.members.size() != 0; // a merge only made it doubtful; `linkAgain` looks
            if (toMany.isLoaded) {
                toMany.added = toMany.members;
                context_.loadedMembers.note(object, relationship);
            }
            toMany.removed.clear();
            toMany.isReordered = relationship.isOrdered();
        }
    }
    context_.link->add(object, key);
    markChanged(object, ObjectState::Inserted);
}

} // namespace Tessarin
