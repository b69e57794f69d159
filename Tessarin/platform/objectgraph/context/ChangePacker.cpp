#include "Tessarin/platform/objectgraph/context/ChangePackerPrivate.h"

#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"

#include <algorithm>

namespace Tessarin {
namespace {

bool changesNothing(RecordChange const& change) {
    return change.kind == RecordChange::Kind::Update && change.before == change.after && change.relationships.empty();
}

} // namespace

RecordKey ChangePacker::current(RecordKey key) const {
    key = context_.link->current(key);
    return key >= 0 || context_.link->find(key) || isAncestors(key) ? key : 0; // one that was never saved, and is gone
}

bool ChangePacker::isAncestors(RecordKey key) const {
    if (!context_.parent) return false;
    if (!above_) above_ = std::make_unique<RecordReader>(context_);
    return above_->knowsUnsaved(key);
}

std::vector<RecordKey> ChangePacker::current(std::span<RecordKey const> keys) const {
    std::vector<RecordKey> result(keys.begin(), keys.end());
    for (auto& key : result) key = current(key);
    std::erase(result, 0);
    return result;
}

Ref<ChangeSet const> ChangePacker::pack() {
    std::vector<RecordChange> changes;
    changes.reserve(context_.changed.size());
    rows_.clear();
    rows_.reserve(context_.changed.size());
    for (auto const& object : context_.changed) rows_.push_back(changes.emplace_back(packedChange(*object)).after);
    blocks_.close();
    std::erase_if(changes, changesNothing);
    if (changes.empty()) return nullptr;
    return std::make_shared<ChangeSet const>(context_.coordinator->space(), std::move(changes), originOf(context_),
                                             undoableStep());
}

/// Null where nobody is to undo it.
Ref<UndoableStep const> ChangePacker::undoableStep() const {
    if (!context_.undoStep) return nullptr;
    auto step = std::make_shared<UndoableStep>(UndoableStep{context_.undoStep, {}});
    RecordReader const before(context_);
    for (auto const& object : context_.changed) {
        if (object->isInserted()) continue;
        auto const& extras = GraphAccess::state(*object).extras;
        for (auto const* relationship : object->entity().relationships()) {
            if (!relationship->isToMany() || relationship->isTransient()) continue;
            auto const* toMany = extras ? extras->find(relationship->index()) : nullptr;
            bool const isReordered = relationship->isOrdered() && toMany && toMany->isChanged();
            bool const isTold = relationship->isReciprocal() && !relationship->inverseRelationship()->isToMany(); // by rows
            bool const isAlone = object->isDeleted() && (relationship->isOrdered() || !isTold);
            if (isReordered || isAlone)
                step->members.push_back({relationship, object->recordKey(),
                                         before.members(*relationship, object->entity(), object->recordKey()).keys});
        }
    }
    std::ranges::stable_sort(step->members, {}, &UndoableStep::Members::owner);
    return step;
}

Ref<ChangeSet const> ChangePacker::pack(UniqueConstraints const& constraints) {
    std::vector<RecordChange> changes;
    for (auto const& object : context_.changed)
        if (!constraints.of(object->entity()).empty()) changes.push_back(packedChange(*object));
    blocks_.close();
    return changes.empty() ? nullptr : std::make_shared<ChangeSet const>(context_.coordinator->space(), std::move(changes));
}

std::optional<RecordChange> ChangePacker::packed(NSManagedObject& object, bool withRelationships) {
    auto change = packedChange(object, withRelationships);
    blocks_.close();
    return withRelationships && changesNothing(change) ? std::nullopt : std::optional(std::move(change));
}

RecordChange ChangePacker::packedChange(NSManagedObject& object, bool withRelationships) {
    auto const& state = GraphAccess::state(object);
    RecordChange change;
    change.key = state.key;
    change.entity = &object.entity();
    change.before = basisOf(object);
    if (object.isDeleted()) {
        change.kind = RecordChange::Kind::Delete;
        return change;
    }
    change.kind = object.isInserted() ? RecordChange::Kind::Insert : RecordChange::Kind::Update;
    change.after = packedRow(object, change.before);
    if (withRelationships) packRelationships(object, change);
    return change;
}

/// What the changes were made on. An object that was changed though its record is gone was made on nothing: a conflict, then.
RowRef ChangePacker::basisOf(NSManagedObject& object) {
    auto const& state = GraphAccess::state(object);
    if (object.isInserted() && !object.isDeleted()) return {}; // its row, if any, is that of a record that was deleted
    if (state.row || object.isDeleted() || !state.extras || state.extras->values.empty()) return state.row;
    builder_.begin(*state.layout, state.key, Row::firstVersion - 1);
    return builder_.finish();
}

RowRef ChangePacker::packedRow(NSManagedObject& object, RowRef const& basis) {
    auto const& state = GraphAccess::state(object);
    bool const isNew = object.isInserted();
    if (!isNew && (!state.extras || state.extras->values.empty())) return basis;
    if (isNew && !state.row)
        builder_.begin(*state.layout, state.key, purpose_ == Purpose::Show ? unsavedVersion : Row::firstVersion);
    else if (isNew) // above every version that anybody may have seen of what was deleted
        builder_.begin(*state.row, state.key, state.row->version() + 1);
    else // which an ancestor may have shown under the temporary key that it had then
        builder_.begin(*basis, state.key, basis->version() + 1);
    bool differs = isNew;
    if (state.extras)
        for (auto const& [property, value] : state.extras->values) {
            auto const cell = state.layout->cellOf(property);
            if (cell == RowLayout::noCell) continue;
            auto const at = static_cast<std::size_t>(cell);
            if (state.layout->cells()[at].type == CellType::Reference)
                builder_.setReference(at, current(value.integer()));
            else
                builder_.setValue(at, value);
            differs = true;
        }
    if (!differs) return basis;
    auto row = purpose_ == Purpose::Show && !isNew ? builder_.finishOn(basis) : builder_.finish(isNew ? &blocks_ : nullptr);
    if (isNew) return row;
    for (std::size_t cell = 0; cell < state.layout->cells().size(); ++cell)
        if (!row->cellEquals(cell, *basis)) return row;
    return basis; // set to what it was
}

std::vector<RecordKey> ChangePacker::order(NSManagedObject& object, NSRelationshipDescription const& relationship) const {
    return current(memberKeys(object, relationship)); // which others may have made doubtful
}

void ChangePacker::packRelationships(NSManagedObject& object, RecordChange& change) {
    auto const& state = GraphAccess::state(object);
    if (!state.extras) return;
    for (auto const& toMany : state.extras->toMany) {
        auto const* relationship = object.entity().properties()[toMany.property]->asRelationship();
        if (!toMany.isChanged() || relationship->isTransient()) continue;
        auto& packed = change.relationships.emplace_back();
        packed.relationship = relationship;
        packed.added = current(toMany.added.keys());
        packed.removed = current(toMany.removed.keys());
        if (relationship->isOrdered()) packed.order = order(object, *relationship);
    }
}

} // namespace Tessarin
