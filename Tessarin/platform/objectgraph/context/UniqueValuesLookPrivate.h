#pragma once
#include "Tessarin/platform/objectgraph/context/OverruledChangesPrivate.h"
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"
#include <optional>
#include <unordered_map>
#include <vector>

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
        bool isStored = false; // the store told of the holder
    };
    class Search;
    using Objects = std::vector<Ref<NSManagedObject>>;
    Ref<NSError> settleClashes(Search& search, bool goesOn, Objects const& touched);
    Ref<NSError> decide(Search const& search, NSMergePolicy& policy);
    Ref<NSError> resolve(std::vector<Ref<NSMergeConflict>> const& conflicts, NSMergePolicy& policy);
    RowRef rowNow(RowRef const& row);
    Ref<NSMergeConflict> conflictOf(Clash const& clash);
    void apply(NSMergeConflict const& conflict);
    void moveLinks(NSManagedObject& from, NSManagedObject& to);
    void forget(NSManagedObject& object);
    void noteReferences(NSManagedObject& object);
    void finishLinks();
    void finish();

    NSManagedObjectContext& owner_;
    ContextState& context_;
    DecidedConflicts decided_;
    std::vector<RecordChange> gone_; // new objects that children have seen
    std::unordered_map<RecordKey, RecordKey> survivors_; // of new objects that gave way: links to the one lead to the other
    std::vector<RecordKey> left_; // those of them whose links have not been looked at
    // Whose unsaved references lead to a record, where the other end may not say so; once something has given way.
    std::optional<std::unordered_map<RecordKey, Objects>> referrers_;
    Objects const* touched_ = nullptr; // since the search began; those up to `referring_` are among the referrers
    std::size_t referring_ = 0;
};

} // namespace Tessarin
