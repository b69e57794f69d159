#pragma once
#include "Tessarin/platform/objectgraph/context/FoldedChangesPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/RefusedSetsPrivate.h"
#include <atomic>
#include <deque>

namespace Tessarin {

/// What was handed up to a root context and the store will never take: kept apart, so that nothing else waits behind it, and
/// shown to the contexts below until it is dropped. Belongs to the root context's queue, but for `count`.
class RefusedChanges {
public:
    struct Refusal {
        Ref<ChangeSet const> set;
        Ref<NSError> reason;
    };
    void add(std::vector<Refusal> const& refusals);
    std::vector<Refusal> const& all() const noexcept { return refusals_; }
    /// Of those that are not dropped.
    RefusedRecords const& records() const noexcept { return records_; }
    std::vector<Refusal> take();
    /// What was taken stays after all.
    void putBack(std::vector<Refusal> refusals);
    /// How many there ever were. Any thread.
    std::uint64_t count() const noexcept { return count_.load(std::memory_order_acquire); }
    /// Why records of those sets were refused since there were `seen`, dropped since or not; null when they were not.
    Ref<NSError> reasonFor(ChangeSets const& sets, std::uint64_t seen) const;

private:
    struct Entry {
        std::uint64_t number;
        std::vector<std::pair<NSEntityDescription const*, RecordKey>> records;
        Ref<NSError> reason;
    };
    static constexpr std::size_t mostEntries = 64;
    std::vector<Refusal> refusals_;
    RefusedRecords records_;
    std::deque<Entry> log_; // the latest, for who waits for a save
    std::atomic<std::uint64_t> count_{0};
};

class ContextState;
/// Forgets the refused sets; the context's objects, and those of the contexts below, show what the store has.
void dropRefused(ContextState& context);

} // namespace Tessarin
