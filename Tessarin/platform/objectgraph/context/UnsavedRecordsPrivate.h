#pragma once
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"

#include <unordered_set>

namespace Tessarin {

class NSPredicate;

/// The records of one entity whose rows are not in the store as a context sees them: its own changed objects, and those of
/// the change sets on their way. Made for one operation, in a time that does not grow with the sets.
class UnsavedRecords {
public:
    UnsavedRecords(ContextState const& context, RecordReader const& reader, NSEntityDescription const& entity, bool includesSubentities);

    bool empty() const noexcept { return count_ == 0; }
    /// At most so many.
    std::size_t count() const noexcept { return count_; }
    bool contains(RecordKey key) const;
    /// Whether there are changes that may turn conditions on other records than those that are asked for.
    bool hasOthers() const noexcept { return hasOthers_; }
    /// The records that may fulfil the predicate; null: all.
    std::vector<RecordKey> candidates(NSPredicate const* predicate) const;

private:
    bool isWanted(NSEntityDescription const& entity) const {
        return includesSubentities_ ? entity.isKindOf(&entity_) : &entity == &entity_;
    }
    void note(ChangeSet const& set, NSEntityDescription const& entity);
    /// Adds what the set's index knows of an equality that the predicate asks for; false when it asks for none.
    bool addEqual(ChangeSet const& set, NSPredicate const& predicate, std::unordered_set<RecordKey>& keys) const;

    NSEntityDescription const& entity_;
    bool includesSubentities_;
    ChangeSets const* sets_;
    std::unordered_set<RecordKey> own_; // changed objects of the context
    std::size_t count_ = 0;
    bool hasOthers_ = false;
};

} // namespace Tessarin
