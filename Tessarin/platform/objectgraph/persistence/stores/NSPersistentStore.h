#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/files/NSURL.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/objectgraph/persistence/stores/RecordKey.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include <span>
#include <string>
#include <vector>

namespace Tessarin {

class ChangeSet;
class NSDate;
class NSEntityDescription;
class NSRelationshipDescription;
class RowRef;
struct BatchAssignment;
struct BatchOutcome;
struct BatchTarget;
struct FetchExplanation;
struct HistoryRequest;
struct HistoryToken;
struct HistoryTransaction;
struct RefusedSet;
struct RowConflict;
struct SaveOutcome;
struct StoreAnswer;
struct StoreQuery;
struct RankedSearch;
struct SearchStatistics;
struct UniqueConstraint;

/// Decides all conflicts of a save, ordered by entity and key, or refuses the save with an error.
using ConflictResolver = FunctionRef<Ref<NSError>(std::span<RowConflict> conflicts)>;

/// One store of a coordinator: where rows come from and go to. Every operation may be called from any thread; a save
/// excludes only other saves. Errors are returned (null: fine) and leave the store as it was.
class TESSARIN_API NSPersistentStore : public NSObject {
public:
    virtual std::string const& type() const = 0;
    virtual NSURL url() const = 0;
    /// Constant.
    virtual bool isReadOnly() const { return false; }
    /// Lets go of the file, when those who read or write have ended: it can be moved, deleted or opened again. From then on every
    /// operation below is an error, `storeClosed`. Not within one of them. A second call does nothing.
    virtual void close() = 0;
    /// The text-keyed dictionary kept beside the records; written by the next save, also by one without changes.
    virtual Dictionary metadata() const = 0;
    virtual void setMetadata(Dictionary metadata) = 0;
    /// The store's own identity, in its metadata under "NSStoreUUID".
    virtual std::string identifier() const = 0;

    /// Writes the sets in their order, all or nothing, and remembers their rows in the cache once that is on disk. Records
    /// that somebody else changed go to `resolve`, while nobody else can write; it may read from the store. No link to a
    /// record that does not exist is left.
    virtual Ref<NSError> save(std::span<Ref<ChangeSet const> const> sets, ConflictResolver resolve, SaveOutcome& outcome) = 0;
    /// Which of the sets that `save` refused for good (`isRefusedForGood`) stand in the way of the others, found by trying one
    /// after another; leaves the store as it was. An error: it cannot be found out now.
    virtual Ref<NSError> findRefused(std::span<Ref<ChangeSet const> const> sets, ConflictResolver resolve,
                                     std::vector<RefusedSet>& refused) = 0;
    /// Gives every record that is meant the same new values, or deletes them, all or nothing, without a look at contexts. Raises
    /// versions; leaves no link to a record that does not exist; the rows that changed leave the cache or are exchanged there.
    virtual Ref<NSError> updateInBatch(BatchTarget const& target, std::span<BatchAssignment const> assignments,
                                       BatchOutcome& outcome) = 0;
    virtual Ref<NSError> deleteInBatch(std::span<BatchTarget const> targets, BatchOutcome& outcome) = 0;
    /// For each row the key of a stored record with its values of a constraint, all of which are present; 0 for none. By index.
    virtual Ref<NSError> findHolders(UniqueConstraint const& constraint, std::span<RowRef const> rows,
                                     std::vector<RecordKey>& holders) = 0;
    virtual Ref<NSError> fetch(StoreQuery const& query, StoreAnswer& answer) = 0;
    /// Counts what `fetch` would give; `complete` false: the asker must fetch and count itself.
    virtual Ref<NSError> count(StoreQuery const& query, std::size_t& count, bool& complete) = 0;
    /// What ranks are made of, see `SearchRanking`.
    virtual Ref<NSError> searchStatistics(RankedSearch const& search, SearchStatistics& statistics) = 0;
    /// How `fetch` would answer. A store without SQL says that it looks at every record.
    virtual Ref<NSError> explain(StoreQuery const& query, FetchExplanation& explanation);
    /// The rows of records in the tree of `rootEntity`, in any order; keys that the store does not know are left out.
    virtual Ref<NSError> rows(NSEntityDescription const& rootEntity, std::span<RecordKey const> keys,
                              FunctionRef<void(RowRef)> each) = 0;
    /// The members of a to-many relationship of each owner; of one owner in their order when the relationship has one.
    virtual Ref<NSError> members(NSRelationshipDescription const& relationship, std::span<RecordKey const> owners,
                                 FunctionRef<void(RecordKey owner, RecordKey member)> each) = 0;
    /// The first of `count` neighbouring keys that nobody else has or will get; 0 with an error.
    virtual RecordKey reserveKeys(std::size_t count, Ref<NSError>& error) = 0;

    // The history, see NSPersistentStoreCoordinator. Of a store that keeps none they are errors.
    virtual Ref<NSError> history(HistoryRequest const& request, std::vector<HistoryTransaction>& found);
    virtual Ref<NSError> newestOfHistory(HistoryToken& token);
    virtual Ref<NSError> purgeHistory(HistoryToken const& upTo);
    virtual Ref<NSError> purgeHistory(NSDate const& before);
};

} // namespace Tessarin
