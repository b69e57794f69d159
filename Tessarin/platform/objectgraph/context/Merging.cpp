#include "Tessarin/platform/objectgraph/context/MergingPrivate.h"

#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"
#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowBuilderPrivate.h"
#include "Tessarin/platform/queues/Dispatch.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace Tessarin {
namespace {

/// Who wins where a change meets unsaved values. A correction nobody asked for: it moves no unsaved value to another basis, so
/// that a save notices the conflict.
enum class Winner { Incoming, Unsaved, UnsavedUntilSaved };

void dropChanges(ContextState& context, NSManagedObject& object) {
    auto& state = GraphAccess::state(object);
    if (!state.has(ObjectState::Changed)) return;
    unmarkChanged(context, object);
    state.clear(ObjectState::Updated);
    if (!state.extras) return;
    if (!state.extras->toMany.empty()) context.mustShowAnew = true;
    state.extras->values.clear();
    state.extras->toMany.clear();
}

/// Where a child has put members in order on top of an order that is unsaved here, its order is the unsaved one from now on.
void takeOrder(ContextState& context, NSManagedObject& object, RelationshipChange const& change) {
    auto& state = GraphAccess::state(object);
    auto* toMany = state.extras ? state.extras->find(change.relationship->index()) : nullptr;
    if (!toMany || !toMany->isReordered || !change.order) return;
    toMany->members.clear();
    for (auto const key : *change.order) toMany->members.add(context.link->current(key));
    toMany->holdsTemporaries = true; // perhaps
    noteUnshownLink(object, *change.relationship, 0, true); // nobody came or went
}

void forgetMembers(ObjectState& state, std::size_t property) {
    if (!state.extras) return;
    auto* toMany = state.extras->find(property);
    if (toMany) toMany->doubt(); // read again, with what is unsaved here on top, in the order that it was put in here
}

void mergeDeletion(ContextState& context, NSManagedObject& object, Winner winner) {
    auto& state = GraphAccess::state(object);
    // Unsaved values of what somebody else deleted stay until a save finds the record gone. Links alone are none: a save drops
    // them without a word.
    bool const hasValues = state.has(ObjectState::Inserted) || (state.extras && !state.extras->values.empty());
    if (state.has(ObjectState::Changed) && hasValues && winner != Winner::Incoming && !state.has(ObjectState::Deleted)) {
        for (auto const& toMany : state.more().toMany) forgetMembers(state, toMany.property); // gone with the record
        state.extras->isRecordGone = true;
        for (auto const* relationship : object.entity().relationships())
            if (!relationship->isToMany()) keepLinkUnsaved(context, object, *relationship);
        return;
    }
    letGoOfGone(context, object);
    dropChanges(context, object);
    if (context.recorder) context.recorder->noteLoss(object);
    context.link->remove(object, state.key);
    state.set(ObjectState::Deleted);
    state.set(ObjectState::Gone);
}

/// Whether the child itself changed that cell, rather than carrying along what was unsaved here.
bool isChildsOwn(RecordChange const& change, std::size_t cell, RowRef const& unsaved) {
    if (change.after->cellEquals(cell, *change.before)) return false;
    return !unsaved || !unsaved->cellEquals(cell, *change.after);
}

/// An object that only lives here yet takes a child's values as unsaved ones.
void takeValues(ObjectState& state, RecordChange const& change) {
    for (std::size_t cell = 0; cell < state.layout->cells().size(); ++cell) {
        if (change.before && change.after->cellEquals(cell, *change.before)) continue;
        auto const& [property, type] = state.layout->cells()[cell];
        auto value = type == CellType::Reference ? Value(change.after->reference(cell)) : change.after->value(cell);
        if (auto* present = state.more().value(property->index()))
            *present = std::move(value);
        else
            state.extras->values.emplace_back(static_cast<std::uint32_t>(property->index()), std::move(value));
    }
}

/// The row that an object shows after a change. Where its row is none that the change was made on, and may be a later one, the
/// levels above are asked.
RowRef rowAfter(ContextState& context, ObjectState const& state, RecordChange const& change) {
    auto const& current = state.row;
    if (!current) {
        auto row = RecordReader(context).row(*change.entity, state.key);
        return row ? row : change.after;
    }
    if (current == change.before || current == change.after) return change.after;
    auto row = RecordReader(context).row(*change.entity, state.key);
    return row ? row : current;
}

/// Whether a property that has an unsaved value differs between the row it was set on and another one.
bool changesBeneath(ObjectState const& state, Row const& row) {
    if (!state.row || !state.extras || !state.has(ObjectState::Changed)) return false;
    return std::ranges::any_of(state.extras->values, [&](auto const& entry) {
        auto const cell = state.layout->cellOf(entry.first);
        return cell != RowLayout::noCell && !row.cellEquals(static_cast<std::size_t>(cell), *state.row);
    });
}

/// Whoever an object led to, or leads to now, looks again whom it has.
void lookAgainFrom(ContextState& context, NSPropertyDescription const& reference, RecordKey owner) {
    auto const* inverse = reference.asRelationship()->inverseRelationship();
    auto const other =
        owner == 0 || !inverse || !inverse->isToMany() ? nullptr : context.link->find(context.link->current(owner));
    if (other) forgetMembers(GraphAccess::state(*other), inverse->index());
}

/// The same for a record of which no row is known here. Only where a conflict was decided do the owners not tell it themselves.
void lookAgainAround(ContextState& context, RecordChange const& change) {
    if (!change.after || !change.changesRow()) return;
    for (std::size_t cell = 0; cell < change.after->layout().cells().size(); ++cell) {
        auto const& [property, type] = change.after->layout().cells()[cell];
        if (type != CellType::Reference || (change.before && change.after->cellEquals(cell, *change.before))) continue;
        if (change.before) lookAgainFrom(context, *property, change.before->reference(cell));
        lookAgainFrom(context, *property, change.after->reference(cell));
    }
}

void lookAgainWhereMoved(ContextState& context, NSManagedObject& object, RowRef const& before) {
    auto const& row = GraphAccess::state(object).row;
    if (!row || row == before) return;
    for (std::size_t cell = 0; cell < row->layout().cells().size(); ++cell) {
        auto const& [property, type] = row->layout().cells()[cell];
        if (type != CellType::Reference || (before && row->cellEquals(cell, *before))) continue;
        if (before) lookAgainFrom(context, *property, before->reference(cell));
        lookAgainFrom(context, *property, row->reference(cell));
        auto const& extras = GraphAccess::state(object).extras;
        if (extras && extras->value(property->index())) keepLinkUnsaved(context, object, *property->asRelationship());
    }
}

/// Unsaved values leave where a child has changed the same property.
void giveWay(ContextState& context, NSManagedObject& object, RecordChange const& change) {
    auto const& state = GraphAccess::state(object);
    auto const unsaved = rowChangeIn(*context.published.unsaved(), *change.entity, change.key).after;
    std::vector<std::pair<NSPropertyDescription const*, RecordKey>> left;
    std::erase_if(state.extras->values, [&](auto const& entry) {
        auto const cell = state.layout->cellOf(entry.first);
        if (cell == RowLayout::noCell || !isChildsOwn(change, static_cast<std::size_t>(cell), unsaved)) return false;
        auto const& [property, type] = state.layout->cells()[static_cast<std::size_t>(cell)];
        if (type == CellType::Reference) left.emplace_back(property, entry.second.integer());
        return true;
    });
    for (auto const& [property, owner] : left) lookAgainFrom(context, *property, owner);
}

/// One that was asked when there was no such record.
void becomeFault(ContextState& context, NSManagedObject& object) {
    auto& state = GraphAccess::state(object);
    state.clear(ObjectState::Gone);
    state.set(ObjectState::Fault);
    context.feed.note(context, object);
}

void takeRow(ContextState& context, NSManagedObject& object, RecordChange const& change, Winner winner) {
    auto& state = GraphAccess::state(object);
    if (!change.after || !change.changesRow()) return; // the row that its links were changed on is another change's to bring
    if (state.has(ObjectState::Inserted)) {
        takeValues(state, change);
        return context.values.note(object);
    }
    bool const hasValues = state.has(ObjectState::Changed) && state.extras && !state.extras->values.empty();
    if (!state.row && !hasValues) { // a fault reads it when it is asked
        if (state.has(ObjectState::Gone)) becomeFault(context, object);
        return lookAgainAround(context, change);
    }
    auto row = rowAfter(context, state, change);
    if (winner == Winner::UnsavedUntilSaved && changesBeneath(state, *row)) return;
    auto const before = std::exchange(state.row, std::move(row));
    bool const hasMissedChanges = before && change.before && before != change.before && before != state.row;
    if (hasMissedChanges) context.feed.note(context, object); // of which this one says nothing
    state.clear(ObjectState::Gone);
    if (state.extras) state.extras->isRecordGone = false;
    if (winner == Winner::Incoming && state.extras && change.before) giveWay(context, object, change);
    lookAgainWhereMoved(context, object, before);
}

/// Whether a context sees a record. A change that waits to be saved does not bring one back, only an insertion does.
bool isThere(RecordReader const& reader, NSEntityDescription const& entity, RecordKey key) {
    if (!reader.row(entity, key)) return false;
    bool isThere = reader.isInserted(entity, key);
    if (isThere || !reader.store()) return isThere;
    auto const error = reader.store()->rows(*entity.rootEntity(), {&key, 1}, [&](RowRef const&) { isThere = true; });
    if (error) throw ErrorException(error);
    return isThere;
}

/// A deletion that comes late: what was deleted is there again, above the version that went.
bool isThereAgain(ContextState& context, ObjectState const& state, RecordChange const& deletion) {
    if (!deletion.before || !state.row || state.row->savedVersion() <= deletion.before->savedVersion()) return false;
    return isThere(RecordReader(context), *deletion.entity, state.key);
}

/// Whether what a context saves is seen by another one at once: it goes to the store, or to a level from there up.
bool seesSavesOf(ContextState const& sender, ContextState const& context) {
    auto const* const taker = sender.parent ? &GraphAccess::state(*sender.parent) : nullptr;
    auto const* level = &context;
    while (taker && level && level != taker) level = level->parent ? &GraphAccess::state(*level->parent) : nullptr;
    return level != nullptr;
}

/// Without the deletions that have not come to where this context would see them: it would find the records again, but not
/// what it has linked with them.
Ref<ChangeSet const> withoutDeletionsToCome(ContextState& context, Ref<ChangeSet const> const& set) {
    if (set->deletedKeys().empty()) return set;
    RecordReader const reader(context);
    std::vector<RecordChange> come;
    std::ranges::copy_if(set->changes(), std::back_inserter(come), [&](RecordChange const& change) {
        return change.kind != RecordChange::Kind::Delete || !isThere(reader, *change.entity, context.link->current(change.key));
    });
    return std::make_shared<ChangeSet const>(set->sharedSpace(), std::move(come));
}

void merge(ContextState& context, NSManagedObject& object, RecordChange const& change, Winner winner) {
    if (change.kind == RecordChange::Kind::Delete) {
        if (isThereAgain(context, GraphAccess::state(object), change)) return;
        return mergeDeletion(context, object, winner);
    }
    takeRow(context, object, change, winner);
    if (GraphAccess::state(object).has(ObjectState::Changed)) {
        context.values.note(object);
        noteUnshown(context, object);
    }
    for (auto const& each : change.relationships) {
        if (object.isDeleted()) cutNewLinks(context, object, each);
        if (winner == Winner::Incoming) takeOrder(context, object, each);
        forgetMembers(GraphAccess::state(object), each.relationship->index());
    }
}

/// Loaded to-many relationships that may hold, or lack, a record whose row does not say how it changed.
void forgetLinksOf(ContextState& context, ChangeSet const& corrections) {
    if (std::ranges::all_of(corrections.changes(), &RecordChange::changesNoLinks)) return;
    auto const mayHold = [&](NSRelationshipDescription const& relationship) {
        return !corrections.changesOf(*relationship.destinationEntity()->rootEntity()).empty();
    };
    context.loadedMembers.take(mayHold, [](NSManagedObject& object, NSRelationshipDescription const& relationship) {
        auto& state = GraphAccess::state(object);
        auto const* toMany = state.extras ? state.extras->find(relationship.index()) : nullptr;
        if (!toMany || !toMany->isLoaded) return true;
        if (state.key < 0) return false;
        forgetMembers(state, relationship.index());
        return true;
    });
}

/// Before a set is merged: what it means for the context's objects, made where nobody has asked for them yet. Where the context
/// only reads again what others saved, that is not a change of its own.
void noteNewsOf(ContextState& context, Ref<ChangeSet const> const& set, ContextNews::Kind update, bool isCorrection = false) {
    context.feed.note(context, set, isCorrection);
    if (!hasChangeObservers()) return;
    for (auto const& change : set->changes()) {
        bool const isUpdate = change.kind == RecordChange::Kind::Update;
        auto const object = isUpdate && update == ContextNews::Refreshed ? context.link->find(change.key)
                                                                         : objectWithKey(context, *change.entity, change.key);
        if (object)
            noteNews(context, *object,
                     isUpdate                                    ? update
                     : change.kind == RecordChange::Kind::Insert ? ContextNews::Inserted
                                                                 : ContextNews::Deleted);
    }
}

/// Walks whichever is shorter, the set or the register.
void merge(ContextState& context, ChangeSet const& set, Winner winner) {
    context.gone.add(set.deletedKeys());
    if (context.link->count() < set.changes().size()) {
        for (auto const& object : context.link->all())
            if (auto const* change = set.find(object->entity(), object->recordKey())) merge(context, *object, *change, winner);
    } else {
        for (auto const& change : set.changes())
            if (auto const object = context.link->find(change.key)) merge(context, *object, change, winner);
    }
    for (auto const place : set.movedRecords())
        if (auto const& change = set.changes()[place]; !context.link->find(change.key)) lookAgainAround(context, change);
}

using Change = RecordChange;

void addDeletions(ContextState& context, std::vector<Change> deletions) {
    if (deletions.empty()) return;
    context.published.add(std::make_shared<ChangeSet const>(context.coordinator->space(), std::move(deletions)));
}

/// What a child has made of records that had left when it handed that up: they had not been saved.
void dropUnfounded(ContextState& context, ChangeSet const& set) {
    std::vector<Change> deletions;
    std::optional<RecordReader> reader;
    for (auto const& change : set.changes()) {
        bool const isOfNew = change.kind == Change::Kind::Update && change.before && showsNewRecord(*change.before);
        auto const own = isOfNew ? context.link->find(change.key) : nullptr;
        if (!isOfNew || (own && own->isInserted())) continue;
        if (!reader) reader.emplace(context);
        if (!isThere(*reader, *change.entity, change.key))
            deletions.push_back(
                {.kind = Change::Kind::Delete, .key = change.key, .entity = change.entity, .before = change.after});
    }
    addDeletions(context, std::move(deletions));
}

using Arrival = PublishedChanges::Arrival;

void tellBelow(ContextState const& context, Arrival const& arrival) {
    for (auto const& child : context.published.readers()) {
        auto& state = GraphAccess::state(*child);
        state.published.receive(arrival);
        if (arrival.kind == Arrival::Kind::SavedAbove)
            state.feed.wake(*child);
        else
            dispatch_async(state.queue, [context = WeakRef<NSManagedObjectContext>(child)] {
                if (auto const living = context.lock()) living->processPendingChanges();
            });
        tellBelow(state, arrival);
    }
}

} // namespace

void applyReceived(ContextState& context) {
    if (!context.link) return;
    context.unsavedAbove = 1; // of all ancestors: the sum changes with any of them
    for (auto const* above = context.parent.get(); above; above = GraphAccess::state(*above).parent.get())
        context.unsavedAbove += GraphAccess::state(*above).published.unsavedChanges();
    applyPromotions(context);
    for (auto const& [set, kind] : context.published.takeUnapplied()) {
        bool const isCorrection = kind != Arrival::Kind::HandedUp;
        noteNewsOf(context, set, isCorrection ? ContextNews::Refreshed : ContextNews::Updated, isCorrection);
        bool const isStep = context.recorder && set->undoStep() && !isCorrection;
        if (isStep) context.recorder->noteArrival(*set);
        RecordingPause const pause(isStep ? context.recorder.get() : nullptr); // it is written down as a whole
        merge(context, *set, isCorrection ? Winner::UnsavedUntilSaved : Winner::Incoming);
        if (kind == Arrival::Kind::Corrections) forgetLinksOf(context, *set);
        if (kind == Arrival::Kind::HandedUp) dropUnfounded(context, *set);
    }
}

void mergeSaved(ContextState& context, ContextState const& sender, ChangeSets const& sets) {
    if (!context.link) return;
    applyPromotions(context);
    bool const areSeen = seesSavesOf(sender, context);
    for (auto const& saved : sets) {
        auto const set = areSeen ? saved : withoutDeletionsToCome(context, saved);
        noteNewsOf(context, set, ContextNews::Refreshed);
        merge(context, *set, Winner::Unsaved);
    }
}

void mergeDeleted(ContextState& context, DeletedRecords const& records) {
    if (!context.link || records.runs().empty()) return;
    context.feed.noteEverything(context);
    context.gone.addMany(1);
    if (context.recorder) context.recorder->forgetAll();
    for (auto const& object : context.link->all()) {
        if (!records.contains(object->entity(), object->recordKey())) continue;
        noteNews(context, *object, ContextNews::Deleted);
        mergeDeletion(context, *object, Winner::Unsaved);
    }
}

void dropHandedUp(ContextState& context, std::span<Ref<NSManagedObject> const> objects) {
    auto const sets = context.published.forReading().sets;
    if (!sets) return;
    std::vector<Change> deletions;
    for (auto const& object : objects) {
        auto const handedUp = rowChangeIn(*sets, object->entity(), object->recordKey());
        if (handedUp.isThere && handedUp.after)
            deletions.push_back({.kind = Change::Kind::Delete,
                                 .key = object->recordKey(),
                                 .entity = &object->entity(),
                                 .before = handedUp.after});
    }
    addDeletions(context, std::move(deletions));
}

void showRow(ContextState& context, NSManagedObject& object, RowRef row) {
    auto const before = std::exchange(GraphAccess::state(object).row, std::move(row));
    lookAgainWhereMoved(context, object, before);
}

void noteGone(ContextState& context, NSManagedObject& object) {
    auto const key = object.recordKey();
    context.gone.add({&key, 1});
    mergeDeletion(context, object, Winner::Unsaved);
}

void tellSavedAbove(ContextState const& root, Ref<ChangeSet const> const& set) {
    tellBelow(root, {set, Arrival::Kind::SavedAbove});
}

void mergeCorrections(ContextState& context, Ref<ChangeSet const> const& set) {
    noteNewsOf(context, set, ContextNews::Refreshed, true);
    merge(context, *set, Winner::UnsavedUntilSaved);
    forgetLinksOf(context, *set);
    tellBelow(context, {set, Arrival::Kind::Corrections});
}

} // namespace Tessarin
