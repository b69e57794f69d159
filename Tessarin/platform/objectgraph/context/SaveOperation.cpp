#include "Tessarin/platform/objectgraph/context/SaveOperationPrivate.h"

#include "Tessarin/platform/objectgraph/context/ContextNotificationsPrivate.h"
#include "Tessarin/platform/objectgraph/context/MergingPrivate.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"
#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"
#include "Tessarin/platform/objectgraph/context/UniqueValuesLookPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/SaveDoorPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <utility>

namespace Tessarin {
namespace {

bool isTransient(NSManagedObject const& object, std::size_t property) {
    return object.entity().properties()[property]->isTransient();
}

} // namespace

Ref<NSError> SaveOperation::run(ChangeSets* handed) {
    using Saves = SaveDoor::Saves;
    auto const what = context_.published.empty() ? Saves::OwnChanges : Saves::WhatWasHandedUp;
    SaveDoor::Entry const entry(context_.coordinator->saves(), what);
    processChanges(owner_, context_);
    if (auto error = whyNothingCanBeSaved(!entry.isInside())) return error;
    auto error = runSteps(handed);
    tellOverruled(!error);
    return error;
}

/// Where the save failed, what it met is still undecided.
void SaveOperation::tellOverruled(bool isSaved) {
    auto decided = std::exchange(decidedUnique_, {});
    bool areOwn = !decided.empty();
    if (isSaved)
        for (auto& each : decided_) {
            areOwn = areOwn || (own_ && own_->find(*each.conflict.entity, each.conflict.key));
            decided.push_back(std::move(each));
        }
    if (!decided.empty()) postDidOverrule(owner_, std::move(decided), areOwn);
}

/// A level further up would find out, and nobody would be told.
Ref<NSError> SaveOperation::whyNothingCanBeSaved(bool isClosed) const {
    auto const* store = context_.coordinator->store();
    if (!store || !(isClosed || store->isReadOnly()) || !owner_.hasChanges()) return nullptr;
    if (isClosed) return storeClosed(store->url().path());
    return storeError(StoreErrorCode::StoreReadOnly, "The store was opened for reading: " + store->url().path());
}

Ref<NSError> SaveOperation::runSteps(ChangeSets* handed) {
    try {
        if (auto error = handOn()) return error;
    } catch (ErrorException const& failure) { // what had to be read for it could not be
        return failure.error();
    }
    if (handed) *handed = sets_;
    settle(); // what observers throw from here on does not undo the save
    return ownRefusal_;
}

Ref<NSError> SaveOperation::handOn() {
    if (auto error = announce()) return error;
    if (auto error = validate()) return error;
    do {
        if (auto error = prepare()) return error;
        sets_ = context_.published.stage(own_);
        Ref<NSError> error;
        try {
            error = deliver();
        } catch (...) { // a merge policy's own exception, too: the changes are the objects' again
            context_.published.unstage(own_);
            throw;
        }
        if (!error && !mustLookAgain_) break;
        context_.published.unstage(own_);
        if (error) return error;
    } while (std::exchange(mustLookAgain_, false));
    return nullptr;
}

/// Until others arrive nothing is in the way of what is packed then.
Ref<NSError> SaveOperation::prepare() {
    lookedHere_ = context_.published.arrivals();
    lookedAbove_ = context_.parent ? GraphAccess::state(*context_.parent).published.arrivals() : 0;
    bool hasUnited = false;
    RecordingPause const pause(context_.recorder.get()); // what a policy decides is nobody's step
    UniqueValuesLook look(owner_, context_);
    auto error = look.settle(hasUnited);
    std::ranges::move(look.decided(), std::back_inserter(decidedUnique_));
    if (error) return error;
    if (hasUnited)
        if (error = validate(); error) return error;
    if (error = givePermanentKeys(); error) return error;
    own_ = packer_.pack();
    return nullptr;
}

Ref<NSError> SaveOperation::givePermanentKeys() {
    std::vector<NSManagedObject*> fresh;
    bool isPublished = false;
    for (auto const& object : context_.changed) {
        if (object->recordKey() >= 0) continue;
        bool const isKnownElsewhere = !object->isInserted() || GraphAccess::state(*object).has(ObjectState::Published);
        isPublished = isPublished || isKnownElsewhere;
        if (!isKnownElsewhere) fresh.push_back(object.get());
    }
    if (isPublished || context_.knowsForeignTemporaries) {
        if (auto error = promotePublished()) return error;
        if (auto error = promoteReferences()) return error;
    }
    if (auto error = promoteFresh(fresh)) return error;
    for (auto const& object : context_.changed) updateKeys(GraphAccess::state(*object));
    return nullptr;
}

Ref<NSError> SaveOperation::promoteFresh(std::span<NSManagedObject* const> fresh) {
    if (fresh.empty()) return nullptr;
    auto* store = context_.coordinator->store();
    if (!store) return storeError(StoreErrorCode::ContextWithoutStore, "There is no store to save to.");
    Ref<NSError> error;
    auto next = store->reserveKeys(fresh.size(), error);
    if (error) return error;
    context_.link->noteKeyChange();
    for (auto* object : fresh) {
        context_.link->noteAlias(object->recordKey(), next);
        promoteObject(context_, *object, next++);
    }
    return nullptr;
}

/// Records that other contexts know by temporary keys: those of this context that children saw, and those of its ancestors
/// that it refers to.
Ref<NSError> SaveOperation::promotePublished() {
    auto* store = context_.coordinator->store();
    if (!store) return storeError(StoreErrorCode::ContextWithoutStore, "There is no store to save to.");
    std::vector<Ref<NSManagedObject>> objects(context_.changed.begin(), context_.changed.end());
    for (auto const key : context_.foreignTemporaries.keys())
        if (auto object = context_.link->find(key); object && !object->hasChanges()) objects.push_back(std::move(object));
    std::erase_if(objects, [](auto const& object) {
        return object->recordKey() >= 0 || (object->isInserted() && !GraphAccess::state(*object).has(ObjectState::Published));
    });
    std::ranges::sort(objects, std::ranges::greater(), [](auto const& object) { return object->recordKey(); }); // oldest first
    for (auto const& object : objects) {
        Ref<NSError> error;
        auto const permanent = context_.coordinator->promotions().permanentKey(object->recordKey(), *store, error);
        if (error) return error;
        context_.link->noteKeyChange();
        promoteObject(context_, *object, permanent);
    }
    context_.foreignTemporaries.clear();
    return nullptr;
}

/// Unsaved records of ancestors that changed objects lead to, though nobody here keeps an object of them.
Ref<NSError> SaveOperation::promoteReferences() {
    RecordReader const reader(context_);
    auto& promotions = context_.coordinator->promotions();
    Ref<NSError> error;
    auto const promote = [&](NSRelationshipDescription const& relationship, RecordKey key) {
        if (error || key >= 0 || context_.link->find(key) || promotions.permanentKey(key) != 0) return;
        if (!reader.row(*relationship.destinationEntity(), key)) return; // there is no such record any more
        auto const permanent = promotions.permanentKey(key, *reader.store(), error);
        if (!error) context_.coordinator->identities().promote(key, permanent);
    };
    for (auto const& object : context_.changed) {
        auto const& extras = GraphAccess::state(*object).extras;
        if (!extras || object->isDeleted()) continue;
        auto const& properties = object->entity().properties();
        for (auto const& [property, value] : extras->values)
            if (auto const* relationship = properties[property]->asRelationship()) promote(*relationship, value.integer());
        for (auto const& toMany : extras->toMany)
            if (toMany.holdsTemporaries && toMany.isChanged())
                for (auto const* keys : {&toMany.added, &toMany.removed, &toMany.members})
                    for (auto const key : keys->keys()) promote(*properties[toMany.property]->asRelationship(), key);
    }
    context_.link->noteKeyChange();
    return error;
}

void SaveOperation::settle() {
    if (!outcome_.corrected.empty())
        corrections_ = std::make_shared<ChangeSet const>(context_.coordinator->space(), std::move(outcome_.corrected));
    if (!ownRefusal_) settleObjects();
    setAside();
    if (ownRefusal_) context_.published.unstage(own_);
    if (!context_.parent) noteCommitted();
    if (!context_.parent) context_.published.remove(sets_); // only now: in the file they can be read already
    if (!context_.parent && own_ && !ownRefusal_) tellSavedAbove(context_, handed_.back());
    if (corrections_) {
        mergeCorrections(context_, corrections_);
        handed_.push_back(corrections_);
    }
    for (auto const& [set, reason] : refusals_) postDidRefuse(owner_, {set}, reason);
    if (!ownRefusal_ || !handed_.empty()) postDidSave(owner_, std::move(handed_));
}

void SaveOperation::noteCommitted() const {
    auto& log = context_.coordinator->space()->commits();
    log.note(handed_);
    if (corrections_) log.note({&corrections_, 1});
}

void SaveOperation::setAside() {
    if (refusals_.empty()) return;
    context_.refused.add(refusals_);
    ChangeSets sets;
    for (auto const& each : refusals_) sets.push_back(each.set);
    context_.published.setAside(sets);
}

void SaveOperation::settleObjects() {
    auto const changed = std::exchange(context_.changed, {});
    bool const isAsPacked = !own_ || handed_.back() == own_;
    std::vector<Ref<NSManagedObject>> asTheyWere;
    for (std::size_t at = 0; at < changed.size(); ++at) {
        auto& object = *changed[at];
        auto const* correction = corrections_ ? corrections_->find(object.entity(), object.recordKey()) : nullptr;
        if (correction && correction->changesRow()) {
            correct(object, *correction);
            continue;
        }
        auto const* change = isAsPacked ? nullptr : handed_.back()->find(object.entity(), object.recordKey());
        auto const row = change ? change->after : isAsPacked && own_ ? packer_.rows()[at] : nullptr;
        if (wasSetToWhatItWas(object, row)) asTheyWere.push_back(changed[at]);
        settle(object, row);
    }
    showWhatOthersMade(asTheyWere);
    context_.link->forgetAliases();
}

/// A deletion that was given up, or an object whose record is gone; its relationships are read again.
void SaveOperation::correct(NSManagedObject& object, RecordChange const& correction) {
    auto& state = GraphAccess::state(object);
    correction.after ? state.clear(ObjectState::Deleted) : state.set(ObjectState::Deleted);
    if (state.extras) state.extras->toMany.clear();
    settle(object, correction.after);
}

bool SaveOperation::wasSetToWhatItWas(NSManagedObject& object, RowRef const& row) const {
    auto const& state = GraphAccess::state(object);
    if (!state.row || (row && row != state.row) || !state.extras || state.extras->values.empty() || object.isDeleted())
        return false;
    auto const* own = own_ ? own_->find(object.entity(), object.recordKey()) : nullptr;
    return !own || !own->changesRow();
}

/// Values that were set to what they had been kept from view what others have stored since. The save has succeeded by now: what
/// cannot be read is shown as it was.
void SaveOperation::showWhatOthersMade(std::span<Ref<NSManagedObject> const> objects) try {
    if (objects.empty()) return;
    RecordReader const reader(context_);
    for (auto const& object : objects) {
        auto& state = GraphAccess::state(*object);
        auto row = reader.row(object->entity(), state.key);
        if (row == state.row) continue;
        context_.feed.note(context_, *object);
        if (row)
            showRow(context_, *object, std::move(row));
        else
            noteGone(context_, *object);
    }
} catch (ErrorException const&) {}

void SaveOperation::settle(NSManagedObject& object, RowRef const& row) {
    auto& state = GraphAccess::state(object);
    state.flags = static_cast<std::uint8_t>(state.flags & ~(ObjectState::Inserted | ObjectState::Updated | ObjectState::Changed));
    if (object.isDeleted()) {
        context_.feed.note(context_, object); // what has been linked with it since shows it no longer
        context_.gone.add({&state.key, 1});
        context_.link->remove(object, state.key);
        state.set(ObjectState::Gone);
        return;
    }
    if (row) state.row = row;
    if (row) state.clear(ObjectState::Gone);
    if (!state.extras) return;
    state.extras->isRecordGone = false;
    std::erase_if(state.extras->values, [&](auto const& entry) { return !isTransient(object, entry.first); });
    for (auto& toMany : state.extras->toMany) {
        toMany.isReordered = toMany.isDoubtful = false;
        toMany.beneath = nullptr;
        toMany.added.clear();
        toMany.removed.clear();
    }
    std::erase_if(state.extras->toMany, [](ToManyState const& toMany) { return !toMany.isLoaded; });
    if (state.extras->isEmpty()) state.extras.reset();
}

} // namespace Tessarin
