#pragma once
#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"

namespace Tessarin {

/// What a context sees of records apart from its own unsaved objects: the store, under the change sets that are on their
/// way to it. Made for one operation; never waits for another context's queue.
///
/// A set that moves up while a reader is made is seen twice rather than not at all: it is published above before it
/// leaves below, levels are read from below, and the store is read last.
class RecordReader {
public:
    explicit RecordReader(ContextState& context);

    /// The change sets above and at this context, oldest first.
    ChangeSets const& sets() const noexcept { return sets_; }
    bool hasChangesOf(NSEntityDescription const& entity) const;
    NSPersistentStore* store() const noexcept { return store_; }

    /// The record's row; none when there is no such record. `fresh` asks the store even when a row is in memory.
    RowRef row(NSEntityDescription const& entity, RecordKey key, bool fresh = false) const;
    /// The rows of those records that exist, in any order.
    void rows(NSEntityDescription const& entity, std::span<RecordKey const> keys, FunctionRef<void(RowRef)> each, bool fresh = false) const;
    /// The members of a to-many relationship, in order when it has one.
    std::vector<RecordKey> members(NSRelationshipDescription const& relationship, NSEntityDescription const& ownerEntity, RecordKey owner) const;

private:
    /// What the sets make of a record: nothing to say, gone, or this row.
    struct Pending {
        bool isKnown = false;
        RowRef row;
    };
    Pending pending(NSEntityDescription const& entity, RecordKey key) const;

    Ref<NSPersistentStoreCoordinator> coordinator_;
    NSPersistentStore* store_;
    ChangeSets sets_;
};

/// The row after a change, on top of what was there: `change.after` itself unless others changed the record meanwhile.
RowRef rowAfter(RecordChange const& change, RowRef const& current);

} // namespace Tessarin
