#pragma once
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"

namespace Tessarin {

class NSMergeConflict;

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

private:
    struct Clash {
        RecordChange const* change;
        UniqueConstraint const* constraint;
        RowRef holder;
    };
    class Search;
    Ref<NSError> decide(std::vector<Clash> const& clashes);
    Ref<NSMergeConflict> conflictOf(Clash const& clash);
    void apply(NSMergeConflict const& conflict);
    void moveLinks(NSManagedObject& from, NSManagedObject& to);
    void forget(NSManagedObject& object);

    NSManagedObjectContext& owner_;
    ContextState& context_;
    std::vector<RecordChange> gone_; // new objects that children have seen
};

} // namespace Tessarin
