#include "Tessarin/platform/objectgraph/context/SaveOperationPrivate.h"

#include "Tessarin/platform/objectgraph/context/ContextNotificationsPrivate.h"
#include "Tessarin/platform/objectgraph/context/MergingPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/StoreErrors.h"

#include <algorithm>

namespace Tessarin {
namespace {

bool isTransient(NSManagedObject const& object, std::size_t property) { return object.entity().properties()[property]->isTransient(); }

Ref<NSError> combined(std::vector<Ref<NSError>> errors) {
    if (errors.empty()) return nullptr;
    if (errors.size() == 1) return errors.front();
    std::string text = "Several objects cannot be saved:";
    List details;
    for (auto const& error : errors) {
        text += " " + error->localizedDescription();
        details.push_back(Value(error));
    }
    return storeError(StoreErrorCode::SeveralErrors, text, {{"NSDetailedErrors", details}});
}

} // namespace

Ref<NSError> SaveOperation::run() {
    owner_.processPendingChanges();
    for (std::size_t at = 0; at < context_.changed.size(); ++at) Ref(context_.changed[at])->willSave(); // which may change more
    if (auto error = validate()) return error;
    if (auto error = givePermanentKeys()) return error;
    own_ = packed();
    sets_ = *context_.published.current();
    if (own_) sets_.push_back(own_);
    if (auto error = deliver()) return error;
    settle();
    return nullptr;
}

Ref<NSError> SaveOperation::validate() {
    static constexpr std::size_t mostErrors = 100; // a failed import would otherwise report every record
    std::vector<Ref<NSError>> errors;
    for (auto const& object : context_.changed) {
        auto error = object->isDeleted() ? checkDenied(*object) : object->validateForSave();
        if (error) errors.push_back(std::move(error));
        if (errors.size() == mostErrors) break;
    }
    return combined(std::move(errors));
}

Ref<NSError> SaveOperation::checkDenied(NSManagedObject& object) {
    auto const& state = GraphAccess::state(object);
    if (!state.extras) return nullptr;
    for (auto const& [property, key] : state.extras->denied) {
        auto const other = context_.link->find(key);
        if (other && other->isDeleted()) continue;
        auto const name = object.entity().name() + "." + object.entity().properties()[property]->name();
        return storeError(StoreErrorCode::RelationshipDenied, name + " denies the deletion while it has a destination.", {{"NSValidationErrorKey", name}});
    }
    return nullptr;
}

Ref<NSError> SaveOperation::givePermanentKeys() {
    std::vector<NSManagedObject*> fresh;
    for (auto const& object : context_.changed)
        if (object->recordKey() < 0) fresh.push_back(object.get());
    if (fresh.empty()) return nullptr;
    auto* store = context_.coordinator->store();
    if (!store) return storeError(StoreErrorCode::ContextWithoutStore, "There is no store to save to.");
    Ref<NSError> error;
    auto next = store->reserveKeys(fresh.size(), error);
    if (error) return error;
    auto& identities = context_.coordinator->identities();
    for (auto* object : fresh) {
        auto& state = GraphAccess::state(*object);
        identities.promote(state.key, next);
        // It stays known under its temporary key until everything that refers to that is packed.
        context_.link->add(*object, next);
        context_.promoted.emplace_back(state.key, next);
        state.key = next++;
    }
    return nullptr;
}

RecordKey SaveOperation::permanent(RecordKey key) const {
    if (key >= 0) return key;
    auto const object = context_.link->find(key);
    return object ? object->recordKey() : 0;
}

std::vector<RecordKey> SaveOperation::permanent(std::span<RecordKey const> keys) const {
    std::vector<RecordKey> result;
    result.reserve(keys.size());
    for (auto const key : keys)
        if (auto const found = permanent(key); found > 0) result.push_back(found);
    return result;
}

Ref<ChangeSet const> SaveOperation::packed() {
    std::vector<RecordChange> changes;
    changes.reserve(context_.changed.size());
    for (auto const& object : context_.changed) changes.push_back(packedChange(*object));
    std::erase_if(changes, [](RecordChange const& change) {
        return change.kind == RecordChange::Kind::Update && change.before == change.after && change.relationships.empty();
    });
    return changes.empty() ? nullptr : std::make_shared<ChangeSet const>(context_.coordinator->space(), std::move(changes));
}

RecordChange SaveOperation::packedChange(NSManagedObject& object) {
    auto const& state = GraphAccess::state(object);
    RecordChange change;
    change.key = state.key;
    change.entity = &object.entity();
    change.before = state.row;
    if (object.isDeleted()) {
        change.kind = RecordChange::Kind::Delete;
        return change;
    }
    change.kind = object.isInserted() ? RecordChange::Kind::Insert : RecordChange::Kind::Update;
    change.after = packedRow(object);
    packRelationships(object, change);
    return change;
}

RowRef SaveOperation::packedRow(NSManagedObject& object) {
    auto const& state = GraphAccess::state(object);
    bool const isNew = object.isInserted();
    if (!isNew && (!state.extras || state.extras->values.empty())) return state.row;
    if (!isNew && !state.row) return {}; // its record is gone: there is nothing to change
    if (isNew)
        builder_.begin(*state.layout, state.key, 1);
    else
        builder_.begin(*state.row, state.row->version() + 1);
    bool differs = isNew;
    if (state.extras)
        for (auto const& [property, value] : state.extras->values) {
            auto const cell = state.layout->cellOf(property);
            if (cell == RowLayout::noCell) continue;
            auto const at = static_cast<std::size_t>(cell);
            if (state.layout->cells()[at].type == CellType::Reference)
                builder_.setReference(at, permanent(value.integer()));
            else
                builder_.setValue(at, value);
            differs = true;
        }
    if (!differs) return state.row;
    auto row = builder_.finish();
    if (isNew) return row;
    for (std::size_t cell = 0; cell < state.layout->cells().size(); ++cell)
        if (!row->cellEquals(cell, *state.row)) return row;
    return state.row; // set to what it was
}

void SaveOperation::packRelationships(NSManagedObject& object, RecordChange& change) {
    auto const& state = GraphAccess::state(object);
    if (!state.extras) return;
    for (auto const& toMany : state.extras->toMany) {
        auto const* relationship = object.entity().properties()[toMany.property]->asRelationship();
        if (!toMany.isChanged() || relationship->isTransient()) continue;
        auto& packed = change.relationships.emplace_back();
        packed.relationship = relationship;
        packed.added = permanent(toMany.added.keys());
        packed.removed = permanent(toMany.removed.keys());
        if (relationship->isOrdered()) packed.order = permanent(toMany.order);
    }
}

Ref<NSError> SaveOperation::deliver() {
    if (context_.parent) {
        if (!sets_.empty()) GraphAccess::state(*context_.parent).published.receive(sets_);
        return nullptr;
    }
    auto* store = context_.coordinator ? context_.coordinator->store() : nullptr;
    if (!store) return storeError(StoreErrorCode::ContextWithoutStore, "There is no store to save to.");
    return store->save(sets_, outcome_);
}

void SaveOperation::settle() {
    auto const changed = std::exchange(context_.changed, {});
    for (auto const& object : changed) {
        RecordChange nothing;
        auto const* change = own_ ? own_->find(object->entity(), object->recordKey()) : nullptr;
        settle(*object, change ? *change : nothing);
    }
    for (auto const& [temporary, key] : context_.promoted)
        if (auto const object = context_.link->find(temporary)) context_.link->remove(*object, temporary);
    context_.promoted.clear();
    // Only now may the sets leave here: above, or in the file, they can be read already.
    context_.published.remove(sets_);
    if (!outcome_.corrected.empty()) sets_.push_back(correctionsOf(context_, outcome_.corrected));
    postDidSave(owner_, sets_);
}

void SaveOperation::settle(NSManagedObject& object, RecordChange const& change) {
    auto& state = GraphAccess::state(object);
    state.flags = static_cast<std::uint8_t>(state.flags & ~(ObjectState::Inserted | ObjectState::Updated | ObjectState::Changed));
    if (object.isDeleted()) {
        context_.link->remove(object, state.key);
        state.set(ObjectState::Gone);
        return;
    }
    if (change.after) state.row = change.after;
    if (!state.extras) return;
    std::erase_if(state.extras->values, [&](auto const& entry) { return !isTransient(object, entry.first); });
    for (auto& [property, value] : state.extras->values)
        if (object.entity().properties()[property]->asRelationship()) value = permanent(value.integer());
    for (auto& toMany : state.extras->toMany) {
        toMany.isReordered = false;
        toMany.added.clear();
        toMany.removed.clear();
        if (toMany.isLoaded) toMany.toPermanent([&](RecordKey key) { return permanent(key); });
    }
    std::erase_if(state.extras->toMany, [](ToManyState const& toMany) { return !toMany.isLoaded; });
}

} // namespace Tessarin
