#include "Tessarin/platform/objectgraph/context/RefusedChangesPrivate.h"

#include "Tessarin/platform/objectgraph/context/MergingPrivate.h"
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"

#include <algorithm>
#include <iterator>
#include <unordered_set>

namespace Tessarin {

void RefusedChanges::add(std::vector<Refusal> const& refusals) {
    for (auto const& refusal : refusals) {
        auto& entry = log_.emplace_back(Entry{count() + 1, {}, refusal.reason});
        for (auto const& change : refusal.set->changes()) entry.records.emplace_back(change.entity, change.key);
        if (log_.size() > mostEntries) log_.pop_front();
        count_.fetch_add(1, std::memory_order_release);
        records_.add(*refusal.set);
        refusals_.push_back(refusal);
    }
}

std::vector<RefusedChanges::Refusal> RefusedChanges::take() {
    records_ = {};
    return std::exchange(refusals_, {});
}

void RefusedChanges::putBack(std::vector<Refusal> refusals) {
    for (auto const& refusal : refusals) records_.add(*refusal.set);
    refusals_.insert(refusals_.begin(), std::make_move_iterator(refusals.begin()), std::make_move_iterator(refusals.end()));
}

Ref<NSError> RefusedChanges::reasonFor(ChangeSets const& sets, std::uint64_t seen) const {
    auto const isOf = [&](RecordChange const& change) {
        return std::ranges::any_of(sets, [&](auto const& set) { return set->find(*change.entity, change.key); });
    };
    auto at = count() - refusals_.size(); // the log holds the latest only, also of what was dropped
    for (auto const& refusal : refusals_)
        if (++at > seen && std::ranges::any_of(refusal.set->changes(), isOf)) return refusal.reason;
    for (auto const& [number, records, reason] : log_) {
        if (number <= seen) continue;
        for (auto const& [entity, key] : records)
            if (std::ranges::any_of(sets, [&, kind = entity, at = key](auto const& set) { return set->find(*kind, at); }))
                return reason;
    }
    return nullptr;
}

namespace {

/// The records of the refused sets as they are without them.
std::vector<RecordChange> correctionsOf(ContextState& context, std::span<RefusedChanges::Refusal const> refusals) {
    RecordReader const reader(context);
    std::vector<RecordChange> now;
    std::unordered_set<RecordKey> told;
    for (auto const& refusal : refusals)
        for (auto const& change : refusal.set->changes()) {
            if (!told.insert(change.key).second) continue;
            RecordChange correction{.kind = RecordChange::Kind::Update, .key = change.key, .entity = change.entity};
            correction.after = reader.row(*change.entity, change.key, true);
            if (!correction.after) correction.kind = RecordChange::Kind::Delete;
            now.push_back(std::move(correction));
        }
    return now;
}

} // namespace

void dropRefused(ContextState& context) {
    auto refusals = context.refused.take();
    if (refusals.empty()) return;
    context.published.dropAside();
    try {
        auto corrections = correctionsOf(context, refusals);
        mergeCorrections(context, std::make_shared<ChangeSet const>(context.coordinator->space(), std::move(corrections)));
    } catch (...) { // a store that cannot be read: they stay
        ChangeSets sets;
        for (auto const& refusal : refusals) sets.push_back(refusal.set);
        context.published.setAside(sets);
        context.refused.putBack(std::move(refusals));
        throw;
    }
}

} // namespace Tessarin
