#pragma once
#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"

#include <unordered_map>

namespace Tessarin {

using MembersByOwner = std::unordered_map<RecordKey, std::vector<RecordKey>>;

/// The members of a to-many relationship as they were read.
struct ReadMembers {
    std::vector<RecordKey> keys; // in order when the relationship has one
    bool areUnsaved = false;     // what ancestors have not saved has a part in who they are, and who not
};

/// What a context sees of records apart from its own unsaved objects: the store, under the change sets that are on their
/// way to it. Made for one operation; never waits for another context's queue.
///
/// The levels are read as they stood at one moment: a set that moves up meanwhile is seen once. What the store has is read last,
/// and a set leaves the root only when it is there: never is one missed.
///
/// A store that cannot be read now throws ErrorException: nothing is taken for missing because of a passing failure.
class RecordReader {
public:
    enum class Sees { Unsaved, Saved, Accepted };
    explicit RecordReader(ContextState& context) : RecordReader(context, Sees::Unsaved) {}
    /// `Saved`: without the unsaved changes of ancestors. `Accepted`: also without those that the store has refused.
    RecordReader(ContextState& context, Sees sees);

    /// The change sets above and at this context, oldest first.
    ChangeSets const& sets() const noexcept { return sets_; }
    bool hasChangesOf(NSEntityDescription const& entity) const;
    /// Whether a record with that temporary key is among them.
    bool knowsUnsaved(RecordKey key) const;
    /// Whether one of them inserts that record, under the key that it has or had.
    bool isInserted(NSEntityDescription const& entity, RecordKey key) const;
    NSPersistentStore* store() const noexcept { return store_; }

    /// The record's row; none when there is no such record. `fresh` asks the store even when a row is in memory.
    RowRef row(NSEntityDescription const& entity, RecordKey key, bool fresh = false) const;
    /// Whether that row of a change is what is seen of its record.
    bool shows(RecordChange const& change) const;
    /// The rows of those records that exist, in any order.
    void rows(NSEntityDescription const& entity, std::span<RecordKey const> keys, FunctionRef<void(RowRef)> each,
              bool fresh = false) const;
    /// Of an owner that is gone below: whom it had, for those who are to be told; or nobody, where it has come back unsaved.
    enum class Former { Kept, Dropped };
    static Former formerOf(NSManagedObject const& owner) { return owner.isInserted() ? Former::Dropped : Former::Kept; }
    /// The members of a to-many relationship.
    ReadMembers members(NSRelationshipDescription const& relationship, NSEntityDescription const& ownerEntity, RecordKey owner,
                        Former former = Former::Kept) const;
    /// The members that the store knows, of many owners at once.
    void storedMembers(NSRelationshipDescription const& relationship, std::span<RecordKey const> owners,
                       MembersByOwner& members) const;
    /// What the change sets make of an owner's members in the store.
    ReadMembers withChanges(NSRelationshipDescription const& relationship, NSEntityDescription const& ownerEntity,
                            RecordKey owner, std::vector<RecordKey> stored, Former former = Former::Kept) const;

private:
    /// What the sets make of a record: nothing to say, gone, or this row.
    struct Pending {
        bool isKnown = false;
        RowRef row;
        bool isUnsaved = false; // one that an ancestor has not saved is the latest
    };
    RecordKey formerKey(RecordKey key) const; // its temporary one, or 0
    Pending pending(NSEntityDescription const& entity, RecordKey key) const;
    bool isUnsaved(std::size_t set) const { return set < isUnsaved_.size() && isUnsaved_[set]; }
    void eachChange(ChangeSet const& set, NSRelationshipDescription const& relationship, NSEntityDescription const& ownerEntity,
                    RecordKey owner, FunctionRef<void(RelationshipChange const&)> each) const;
    ReadMembers membersByRow(NSRelationshipDescription const& relationship, NSEntityDescription const& ownerEntity,
                             RecordKey owner, std::vector<RecordKey> stored) const;

    Ref<NSPersistentStoreCoordinator> coordinator_;
    NSPersistentStore* store_;
    ChangeSets sets_;
    std::vector<bool> isUnsaved_; // of an ancestor, for each set; empty when all are saved
};

} // namespace Tessarin
