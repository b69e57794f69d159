// What a child hands up as a step. Its set says what was before and after, so that nothing has to be in memory for it.
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"
#include "Tessarin/platform/objectgraph/undo/UndoRecorderPrivate.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <unordered_set>
#include <utility>

namespace Tessarin {
namespace {

using Kind = RecordChange::Kind;

Value valueOf(Row const& row, std::size_t cell) {
    bool const isReference = row.layout().cells()[cell].type == CellType::Reference;
    return isReference ? Value(row.reference(cell)) : row.value(cell);
}

/// What this context shows until the set is merged: perhaps an unsaved value of its own.
Value shownBefore(NSManagedObject* object, Row const& before, std::size_t cell, NSPropertyDescription const& property) {
    auto* extras = object ? GraphAccess::state(*object).extras.get() : nullptr;
    auto const* unsaved = extras ? extras->value(property.index()) : nullptr;
    return unsaved ? *unsaved : valueOf(before, cell);
}

/// They are sorted by their owners.
std::span<UndoableStep::Members const> membersOf(UndoableStep const& step, RecordKey owner) {
    auto const found = std::ranges::equal_range(step.members, owner, {}, &UndoableStep::Members::owner);
    return {found.begin(), found.end()};
}

/// Of each list there is one order, however many sets change it.
void join(UndoStep& step, UndoStep more) {
    auto const append = [](auto& to, auto& from) {
        to.insert(to.end(), std::make_move_iterator(from.begin()), std::make_move_iterator(from.end()));
    };
    append(step.values, more.values);
    append(step.members, more.members);
    append(step.insertions, more.insertions);
    std::unordered_set<RecordKey> gone;
    for (auto const& deletion : more.deletions) gone.insert(deletion.record.key);
    append(step.deletions, more.deletions);
    // Nobody else is in a list that comes back with its owner, however it was when that went.
    if (!gone.empty())
        for (auto& order : step.orders)
            if (gone.contains(order.owner.key)) order.now.clear();
    if (more.orders.empty()) return;
    using Place = std::pair<RecordKey, NSRelationshipDescription const*>;
    std::map<Place, std::size_t> known;
    for (std::size_t at = 0; at < step.orders.size(); ++at)
        known.emplace(Place(step.orders[at].owner.key, step.orders[at].relationship), at);
    for (auto& order : more.orders) {
        auto const [place, isNew] = known.try_emplace({order.owner.key, order.relationship}, step.orders.size());
        if (isNew)
            step.orders.push_back(std::move(order));
        else
            step.orders[place->second].now = std::move(order.now);
    }
}

} // namespace

void UndoManager::Inside::add(RecordChange const& change, UndoableStep const& told, UndoStep& step) const {
    UndoStep::Record const record{change.entity, change.key};
    if (change.kind == Kind::Insert) return step.insertions.push_back(record);
    auto const object = link_->find(change.key);
    auto const before = membersOf(told, change.key);
    if (change.kind == Kind::Delete) {
        auto& deletion = step.deletions.emplace_back(UndoStep::Deletion{record, object, change.before});
        for (auto const& each : before) deletion.members.push_back({each.relationship, each.keys});
        return;
    }
    if (change.changesRow() && change.before && change.after)
        for (std::size_t cell = 0; cell < change.after->layout().cells().size(); ++cell) {
            if (change.after->cellEquals(cell, *change.before)) continue;
            auto const& property = *change.after->layout().cells()[cell].property;
            step.values.push_back(
                {record, &property, shownBefore(object.get(), *change.before, cell, property), valueOf(*change.after, cell)});
        }
    for (auto const& each : change.relationships) {
        for (auto const key : each.added) step.members.push_back({record, each.relationship, key, true});
        for (auto const key : each.removed) step.members.push_back({record, each.relationship, key, false});
        auto const members = std::ranges::find(before, each.relationship, &UndoableStep::Members::relationship);
        if (each.order && members != before.end())
            step.orders.push_back({record, each.relationship, 0, members->keys, *each.order});
    }
}

void UndoManager::Inside::beginImport(Ref<std::string const> const& import, UndoStep step) {
    step.name = *import;
    step.importStep = import; // whose address no other one has as long as this lives
    auto const kept = std::make_shared<UndoStep>(std::move(step));
    imports_[import.get()] = kept;
    push(undo_, kept);
    redo_.clear();
    std::erase_if(imports_, [](auto const& each) { return each.second.expired(); });
}

/// Later saves may take back what the earlier ones did: then there is no step any more, as where a turn did so.
void UndoManager::Inside::joinImport(Ref<UndoStep> const& step, UndoStep more) {
    join(*step, std::move(more));
    if (!step->mayComeToNothing()) return;
    step->takeKeys([this](RecordKey key) { return current(key); });
    step->fold();
    if (step->empty()) std::erase(undo_, step);
}

void UndoManager::Inside::noteArrival(ChangeSet const& set) {
    if (!isRecording() || set.empty()) return;
    UndoStep arrived;
    for (auto const& change : set.changes()) add(change, *set.undoStep(), arrived);
    arrived.takeKeys([this](RecordKey key) { return current(key); });
    arrived.fold();
    if (arrived.empty()) return;
    if (groups_ == 0 && !isTakingBack_) closeIntoUndo(); // what this turn has changed so far came before it
    auto const& import = set.undoStep()->name;
    auto const known = imports_.find(import.get());
    auto const step = known != imports_.end() ? known->second.lock() : nullptr;
    step ? joinImport(step, std::move(arrived)) : beginImport(import, std::move(arrived));
    awaitEndOfTurn();
}

} // namespace Tessarin
