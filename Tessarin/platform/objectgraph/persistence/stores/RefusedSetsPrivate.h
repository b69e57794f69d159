#pragma once
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <unordered_set>

namespace Tessarin {

/// A set that a store will never take as it is: its place among the sets that were given, and why.
struct RefusedSet {
    std::size_t at = 0;
    Ref<NSError> reason;
};

/// Whether a store's error is one that the same sets meet each time: values that must be unique, a record that is too big. All
/// others (no space, a file that is busy or out of reach, a conflict for a merge policy) may pass.
TESSARIN_API bool isRefusedForGood(NSError const& error);

/// The records of refused sets, for the question which later sets cannot be without them.
class TESSARIN_API RefusedRecords {
public:
    void add(ChangeSet const& set);
    /// Whether the set changes a record that a refused one inserted, deleted or changed, or leads to one that it inserted.
    bool areNeededBy(ChangeSet const& set) const;
    bool empty() const noexcept { return inserted_.empty() && changed_.empty(); }

private:
    std::unordered_set<RecordKey> inserted_;
    std::unordered_set<RecordKey> changed_; // or deleted
};

/// Tries sets one after another. A set that needs a refused one is refused with it, untried. The error of `tryOne` is the
/// result where it may pass; then nothing is known.
TESSARIN_API Ref<NSError> findRefusedSets(std::span<Ref<ChangeSet const> const> sets,
                                          FunctionRef<Ref<NSError>(Ref<ChangeSet const> const&)> tryOne,
                                          std::vector<RefusedSet>& refused);
/// Why a set is refused that needs a refused one.
TESSARIN_API Ref<NSError> needsRefusedError();

} // namespace Tessarin
