// How a save hands its change sets on: to the parent context, or to the store.
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"
#include "Tessarin/platform/objectgraph/context/SaveOperationPrivate.h"
#include "Tessarin/platform/objectgraph/context/UniqueValuesLookPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowBuilderPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

#include <algorithm>
#include <ranges>
#include <unordered_map>

namespace Tessarin {

namespace {

/// A record that was deleted, as a context shows it that has inserted it again and not saved it: null for all others.
RowRef rowBroughtBack(ChangeSets const& unsaved, NSEntityDescription const& entity, RecordKey key) {
    auto const shown = rowChangeIn(unsaved, entity, key);
    bool const isBack = shown.isThere && shown.kind == RecordChange::Kind::Insert && shown.after && !showsNewRecord(*shown.after);
    return isBack ? shown.after : RowRef();
}

} // namespace

Ref<NSError> SaveOperation::deliver() {
    if (!isStillFree(context_.published.arrivals() - (own_ ? 1 : 0), lookedHere_)) return nullptr;
    if (context_.parent) return handUp(*context_.parent);
    auto* store = context_.coordinator ? context_.coordinator->store() : nullptr;
    if (!store) return storeError(StoreErrorCode::ContextWithoutStore, "There is no store to save to.");
    return write(*store);
}

/// All at once; where the store refuses that for good, without the sets that are at fault, and those that need them.
Ref<NSError> SaveOperation::write(NSPersistentStore& store) {
    auto const resolve = [this](std::span<RowConflict> conflicts) { return decide(conflicts); };
    handed_ = sets_;
    std::vector<RefusedSet> found;
    auto records = context_.refused.records();
    for (std::size_t at = 0; at < handed_.size() && !records.empty(); ++at) {
        if (!records.areNeededBy(*handed_[at])) continue;
        records.add(*handed_[at]);
        found.push_back({at, needsRefusedError()});
    }
    for (;;) {
        takeApart(found);
        decided_.clear();
        auto const error = store.save(handed_, resolve, outcome_);
        if (!error) break;
        bool const isOwnAlone = handed_.size() == 1 && handed_.front() == own_ && refusals_.empty();
        if (isOwnAlone || !isRefusedForGood(*error)) return error;
        found.clear();
        if (auto passing = store.findRefused(handed_, resolve, found)) return passing;
        if (found.empty()) return error;
    }
    if (!outcome_.sets.empty()) handed_ = outcome_.sets;
    return nullptr;
}

void SaveOperation::takeApart(std::vector<RefusedSet> const& found) {
    for (auto const& [at, reason] : std::views::reverse(found)) {
        auto const set = handed_[at];
        handed_.erase(handed_.begin() + static_cast<std::ptrdiff_t>(at));
        if (set == own_)
            ownRefusal_ = reason;
        else
            refusals_.insert(refusals_.begin(), {set, reason});
    }
}

/// What siblings saved is read from the sets that they published; should more come meanwhile, it is looked at again.
Ref<NSError> SaveOperation::handUp(NSManagedObjectContext& parent) {
    auto& state = GraphAccess::state(parent);
    for (;;) {
        auto const seen = state.published.arrivals();
        if (!isStillFree(seen, lookedAbove_)) return nullptr;
        handed_ = rebased(sets_, *state.published.unsaved());
        outcome_ = {};
        decided_.clear();
        if (!fitsAbove(state)) {
            RecordReader const above(state, RecordReader::Sees::Saved);
            auto const unsaved = state.published.unsaved();
            auto const stored = [&](NSEntityDescription const& entity, RecordKey key) {
                auto row = above.row(entity, key);
                return row ? row : rowBroughtBack(*unsaved, entity, key);
            };
            try {
                if (auto error = reconcile(
                        handed_, stored, [this](std::span<RowConflict> conflicts) { return decide(conflicts); }, outcome_,
                        SetTaker::Context))
                    return error;
            } catch (ErrorException const& failure) { // it cannot be read now
                return failure.error();
            }
            if (!outcome_.sets.empty()) handed_ = outcome_.sets;
        }
        if (!context_.published.handUp(sets_, handed_, state.published, seen)) continue;
        state.feed.wake(parent);
        return nullptr;
    }
}

/// False when somebody who came since the look for unique values has those of the own changes.
bool SaveOperation::isStillFree(std::uint64_t arrivals, std::uint64_t& looked) {
    if (arrivals == std::exchange(looked, arrivals) || !own_) return true;
    mustLookAgain_ = !UniqueValuesLook(owner_, context_).isFree(*own_);
    return !mustLookAgain_;
}

/// Whether every change was made on what the level above has: on a set before it, or on the row that was saved last.
bool SaveOperation::fitsAbove(ContextState& parent) const {
    RecordReader const above(parent, RecordReader::Sees::Saved);
    auto const& cache = context_.coordinator->space()->cache();
    auto const unsaved = parent.published.unsaved();
    std::unordered_map<RecordKey, RecordChange const*> handed; // the latest so far
    auto const latest = [&](RecordChange const& change) -> RecordChange const* {
        if (auto const found = handed.find(change.key); found != handed.end()) return found->second;
        for (auto const& set : std::views::reverse(above.sets()))
            if (auto const* found = set->find(*change.entity, change.key)) return found;
        return nullptr;
    };
    for (auto const& set : handed_) {
        for (auto const& change : set->changes()) {
            if (!change.before || change.before == change.after) continue;
            if (showsNewRecord(*change.before)) { // what an ancestor showed of a new record, which it may have saved by now
                if (above.row(*change.entity, change.key)) return false;
                continue;
            }
            auto const* basis = latest(change);
            if ((basis ? basis->after : cache.find(change.key)) == change.before) continue;
            auto const back = rowBroughtBack(*unsaved, *change.entity, change.key);
            if (!back || back->version() != change.before->version()) return false;
        }
        if (set == handed_.back()) break;
        for (auto const& change : set->changes()) handed[change.key] = &change;
    }
    return true;
}

/// Asks the policy. The rows of records that only children changed are known to objects here, too: as faults at least.
Ref<NSError> SaveOperation::decide(std::span<RowConflict> conflicts) {
    std::vector<Ref<NSMergeConflict>> list;
    for (auto const& each : conflicts)
        list.push_back(
            make<NSMergeConflict>(objectWithKey(context_, *each.entity, each.key), context_.coordinator->space(), each));
    auto const policy = owner_.mergePolicy();
    Ref<NSError> error;
    bool const isDecided =
        policy->resolveConflicts(list, error) && std::ranges::all_of(list, [](auto const& each) { return each->isResolved_; });
    if (!isDecided && !error) NSErrorMergePolicy()->resolveConflicts(list, error);
    if (!isDecided) return error;
    for (std::size_t at = 0; at < conflicts.size(); ++at) conflicts[at].final = list[at]->conflict_->final;
    if (hasOverruleObservers())
        for (auto const& conflict : conflicts) decided_.push_back({conflict});
    return nullptr;
}

} // namespace Tessarin
