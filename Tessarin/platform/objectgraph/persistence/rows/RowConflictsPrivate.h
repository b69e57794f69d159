#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSMergePolicyType.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSPersistentStore.h"
#include "Tessarin/platform/runtime/FunctionRef.h"

namespace Tessarin {

/// A record that a save changes or deletes, and that is no longer as it was when it was read.
struct RowConflict {
    NSEntityDescription const* entity = nullptr;
    RecordKey key = 0;
    RowRef base;   // as it was read
    RowRef wanted; // as the save would have it; none: it deletes the record
    RowRef stored; // as it is; none: it was deleted
    RowRef final;  // for the resolver to set: what it will be; none: deleted. The version is not the resolver's concern
};

/// What the record becomes under a policy; for `Error` as it is.
TESSARIN_API RowRef resolvedRow(RowConflict const& conflict, NSMergePolicyType policy);

/// The row of a record as it is now; none when it does not exist.
using StoredRow = FunctionRef<RowRef(NSEntityDescription const& entity, RecordKey key)>;

/// Who takes the sets. Something may come to a context later which they are made on; what a store does not have then was never
/// saved, and is gone.
enum class SetTaker { Context, Store };

/// What became of change sets.
struct SaveOutcome {
    std::vector<Ref<ChangeSet const>> sets; // as they were saved, one for each; empty: as they were given
    /// Records that ended otherwise than the given sets say: updates to their row, or deletions.
    std::vector<RecordChange> corrected;
};

/// Makes sets fit records as they are: what was changed elsewhere meanwhile is a conflict, what was made on something that
/// was not saved before it is made again on what is there. To-many relationships merge by what was added and removed and
/// are no conflict. Changes nothing but `outcome`; an error is the resolver's.
TESSARIN_API Ref<NSError> reconcile(std::span<Ref<ChangeSet const> const> sets, StoredRow stored, ConflictResolver resolve,
                                    SaveOutcome& outcome, SetTaker taker);

} // namespace Tessarin
