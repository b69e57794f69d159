#pragma once
#include "Tessarin/platform/objectgraph/context/OverruledChangesPrivate.h"
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"
#include <unordered_map>

namespace Tessarin {

class NSMergeConflict;
class NSMergePolicy;

/// Whether others have the values that must be unique of what a context is about to save: its other changes, what was handed up
/// on the way to the store, the store. Costs nothing for entities without constraints. On the context's queue.
class UniqueValuesLook {
public:
    UniqueValuesLook(NSManagedObjectContext& owner, ContextState& context) : owner_(owner), context_(context) {}

    /// Has the merge policy decide until nobody is in anybody's way; `hasUnited` tells whether there was anything to decide. Its
    /// error leaves the objects as they are.
    Ref<NSError> settle(bool& hasUnited);
    /// The same question about a set that was looked at before, without deciding anything.
    bool isFree(ChangeSet const& own) const;
    /// What was decided, where somebody observes what is overruled.
    DecidedConflicts& decided() noexcept { return decided_; }

private:
    struct Clash {
        RecordChange const* change;
        UniqueConstraint const* constraint;
        RowRef holder;
    };
    class Search;
    Ref<NSError> decide(std::vector<Clash> const& clashes, NSMergePolicy& policy);
    Ref<NSError> resolve(std::vector<Ref<NSMergeConflict>> const& conflicts, NSMergePolicy& policy);
    RowRef rowNow(RowRef const& row);
    Ref<NSMergeConflict> conflictOf(Clash const& clash);
    void apply(NSMergeConflict const& conflict);
    void moveLinks(NSManagedObject& from, NSManagedObject& to);
    void forget(NSManagedObject& object);

    NSManagedObjectContext& owner_;
    ContextState& context_;
    void finishLinks();

    DecidedConflicts decided_;
    std::vector<RecordChange> gone_; // new objects that children have seen
    std::unordered_map<RecordKey, RecordKey> survivors_; // of new objects that gave way: links to the one lead to the other
};

} // namespace Tessarin
