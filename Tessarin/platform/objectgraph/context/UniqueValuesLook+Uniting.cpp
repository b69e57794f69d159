// What becomes of an object whose values must be unique and that another record has.
#include "Tessarin/platform/objectgraph/context/ChangePackerPrivate.h"
#include "Tessarin/platform/objectgraph/context/MergingPrivate.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"
#include "Tessarin/platform/objectgraph/context/UniqueValuesSearchPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowBuilderPrivate.h"

#include <algorithm>
#include <map>
#include <unordered_map>
#include <unordered_set>

namespace Tessarin {
namespace {

/// A row of that layout with what it has in common with another.
RowRef inLayout(RowLayout const& layout, Row const& row) {
    RowBuilder builder;
    builder.begin(layout, row.key(), row.version());
    for (std::size_t cell = 0; cell < layout.cells().size(); ++cell) {
        auto const& [property, type] = layout.cells()[cell];
        auto const& properties = row.entity().properties();
        if (property->index() >= properties.size() || properties[property->index()] != property) continue;
        auto const from = static_cast<std::size_t>(row.layout().cellOf(property->index()));
        if (!row.isPresent(from)) continue;
        switch (type) {
        case CellType::Integer:
        case CellType::Reference: builder.setInteger(cell, row.integer(from)); break;
        case CellType::Real: builder.setReal(cell, row.real(from)); break;
        case CellType::Text:
        case CellType::Bytes: builder.setText(cell, row.text(from)); break;
        }
    }
    return builder.finish();
}

/// What a new object of the layout's entity begins with.
RowRef defaultsOf(RowLayout const& layout, RecordKey key) {
    RowBuilder builder;
    builder.begin(layout, key, Row::firstVersion);
    for (std::size_t cell = 0; cell < layout.cells().size(); ++cell)
        if (auto const* attribute = layout.cells()[cell].property->asAttribute();
            attribute && !attribute->defaultValue().isAbsent())
            builder.setValue(cell, attribute->defaultValue());
    return builder.finish();
}

/// Unsaved references of an object, where nobody keeps up the other end.
void leadElsewhere(NSManagedObject& object, std::unordered_map<RecordKey, RecordKey> const& survivors) {
    auto const survivorOf = [&](RecordKey key) {
        for (auto found = survivors.find(key); found != survivors.end(); found = survivors.find(key)) key = found->second;
        return key;
    };
    updateKeys(GraphAccess::state(object));
    auto& extras = GraphAccess::state(object).extras;
    if (!extras) return;
    for (auto& [property, value] : extras->values)
        if (value.kind() == Value::Kind::Integer && object.entity().properties()[property]->asRelationship())
            value = survivorOf(value.integer());
    if (auto* context = GraphAccess::state(object).link()->contextState()) context->values.note(object);
    for (auto& toMany : extras->toMany)
        for (auto* keys : {&toMany.added, &toMany.members}) {
            if (std::ranges::none_of(keys->keys(), [&](RecordKey key) { return survivors.contains(key); })) continue;
            KeySet led;
            for (auto const key : keys->keys()) led.add(survivorOf(key));
            *keys = std::move(led);
        }
}

} // namespace

Ref<NSError> UniqueValuesLook::decide(Search const& search, NSMergePolicy& policy) {
    std::unordered_set<RecordKey> asked; // an object has one conflict at a time, and none with an object that has one itself
    std::map<std::pair<UniqueConstraint const*, RecordKey>, RowRef> holders; // of those who give way first
    std::vector<Ref<NSMergeConflict>> conflicts;
    auto const clashes = search.found();
    for (auto const& clash : clashes) {
        if (search.gives(clash.holder->key()) || !asked.insert(clash.change->key).second) continue;
        conflicts.push_back(conflictOf(clash));
        holders[{clash.constraint, clash.change->key}] = clash.holder;
    }
    if (conflicts.empty()) conflicts.push_back(conflictOf(search.first()));
    if (auto error = resolve(conflicts, policy)) return error;
    for (auto const& clash : clashes) { // who was behind one that gave way meets the same record, as that has left it
        auto const found = holders.find({clash.constraint, clash.holder->key()});
        if (found == holders.end() || !asked.insert(clash.change->key).second) continue;
        auto const row = rowNow(found->second);
        auto const behind = Clash{clash.change, clash.constraint, row};
        if (auto error = row ? resolve({conflictOf(behind)}, policy) : nullptr) return error;
    }
    finishLinks();
    return nullptr;
}

/// One look at all changed objects for all that gave way, and the children are told.
void UniqueValuesLook::finish() {
    if (!survivors_.empty())
        for (auto const& object : context_.changed) leadElsewhere(*object, survivors_);
    survivors_.clear();
    if (gone_.empty()) return;
    mergeCorrections(context_, std::make_shared<ChangeSet const>(context_.coordinator->space(), std::exchange(gone_, {})));
}

Ref<NSError> UniqueValuesLook::resolve(std::vector<Ref<NSMergeConflict>> const& conflicts, NSMergePolicy& policy) {
    Ref<NSError> error;
    bool const isDecided = policy.resolveConflicts(conflicts, error) &&
                           std::ranges::all_of(conflicts, [](auto const& each) { return each->isResolved_; });
    if (!isDecided && !error) NSErrorMergePolicy()->resolveConflicts(conflicts, error);
    if (isDecided)
        for (auto const& conflict : conflicts) apply(*conflict);
    else
        finishLinks();
    return isDecided ? nullptr : error;
}

/// The row of a record with what is unsaved here; none when it is gone.
RowRef UniqueValuesLook::rowNow(RowRef const& row) {
    auto const object = objectWithKey(context_, row->entity(), row->key());
    if (object->isDeleted()) return {};
    auto const change = object->hasChanges() ? ChangePacker(context_).packed(*object, false) : std::nullopt;
    return change && change->after ? change->after : row;
}

Ref<NSMergeConflict> UniqueValuesLook::conflictOf(Clash const& clash) {
    auto const* const change = clash.change;
    auto const& holder = clash.holder;
    auto const& space = context_.coordinator->space();
    auto const source = context_.link->find(change->key);
    auto const existing = objectWithKey(context_, holder->entity(), holder->key());
    if (change->kind != RecordChange::Kind::Insert) {
        RowConflict const conflict{change->entity, change->key, change->before, change->after, holder, change->after};
        return make<NSMergeConflict>(source, space, conflict, *clash.constraint, existing);
    }
    auto const& layout = holder->layout();
    RowConflict const conflict{
        &holder->entity(), holder->key(), defaultsOf(layout, holder->key()), inLayout(layout, *change->after), holder, holder};
    return make<NSMergeConflict>(source, space, conflict, *clash.constraint, existing);
}

void UniqueValuesLook::apply(NSMergeConflict const& decided) {
    auto const source = decided.sourceObject(), existing = decided.existingObject();
    auto const& conflict = *decided.conflict_;
    bool const isNew = source->isInserted();
    if (hasOverruleObservers()) decided_.push_back({conflict, !isNew});
    auto& target = isNew ? *existing : *source;
    auto const& before = isNew ? conflict.stored : conflict.wanted;
    auto const cells = conflict.final->layout().cells();
    for (std::size_t cell = 0; cell < cells.size(); ++cell) {
        if (conflict.final->cellEquals(cell, *before)) continue;
        auto const* relationship = cells[cell].property->asRelationship();
        auto value = conflict.final->value(cell);
        if (relationship && conflict.final->isPresent(cell))
            value = Value(objectWithKey(context_, *relationship->destinationEntity(), conflict.final->reference(cell)));
        target.setValueForKey(value, cells[cell].property->name());
    }
    if (!isNew) return;
    moveLinks(*source, *existing);
    forget(*source);
}

void UniqueValuesLook::moveLinks(NSManagedObject& from, NSManagedObject& to) {
    for (auto const* relationship : from.entity().relationships()) {
        if (!relationship->isToMany()) {
            from.setValueForKey({}, relationship->name());
            continue;
        }
        auto const& properties = to.entity().properties();
        bool const isShared = relationship->index() < properties.size() && properties[relationship->index()] == relationship;
        for (auto const& member : GraphAccess::destinations(from, *relationship)) {
            if (isShared) to.mutableSetValueForKey(relationship->name()).addObject(member);
            from.mutableSetValueForKey(relationship->name()).removeObject(member);
        }
    }
    survivors_[from.recordKey()] = to.recordKey();
    left_.push_back(from.recordKey());
}

/// Where nobody may keep up the other end.
void UniqueValuesLook::noteReferences(NSManagedObject& object) {
    auto const& extras = GraphAccess::state(object).extras;
    if (!extras) return;
    auto const& properties = object.entity().properties();
    auto const note = [&](RecordKey key) {
        if (key != 0) (*referrers_)[key].push_back(object.self<NSManagedObject>());
    };
    for (auto const& [property, value] : extras->values)
        if (properties[property]->asRelationship() && value.kind() == Value::Kind::Integer) note(value.integer());
    for (auto const& toMany : extras->toMany)
        if (!properties[toMany.property]->asRelationship()->isReciprocal())
            for (auto const* keys : {&toMany.added, &toMany.members})
                for (auto const key : keys->keys()) note(key);
}

/// Who leads to one that gave way leads to who is left, for who is decided next.
void UniqueValuesLook::finishLinks() {
    if (left_.empty()) return;
    if (!referrers_) {
        referrers_.emplace();
        for (auto const& object : context_.changed) noteReferences(*object);
        referring_ = touched_->size();
    }
    for (std::unordered_set<NSManagedObject const*> noted; referring_ < touched_->size(); ++referring_)
        if (auto const& object = (*touched_)[referring_]; noted.insert(object.get()).second) noteReferences(*object);
    for (auto const key : std::exchange(left_, {})) {
        auto const found = referrers_->extract(key);
        if (!found) continue;
        for (auto const& object : found.mapped()) {
            leadElsewhere(*object, survivors_);
            noteReferences(*object);
        }
    }
    context_.mustShowAnew = true;
}

void UniqueValuesLook::forget(NSManagedObject& object) {
    auto& state = GraphAccess::state(object);
    context_.feed.note(context_, object); // a list may show it
    if (state.has(ObjectState::Published) || state.key > 0)
        gone_.push_back({.kind = RecordChange::Kind::Delete,
                         .key = state.key,
                         .entity = &object.entity(),
                         .before = {},
                         .after = {},
                         .relationships = {}});
    context_.link->remove(object, state.key);
    state.clear(ObjectState::Inserted);
    state.set(ObjectState::Deleted);
    state.set(ObjectState::Gone);
    unmarkChanged(context_, object);
}

} // namespace Tessarin
