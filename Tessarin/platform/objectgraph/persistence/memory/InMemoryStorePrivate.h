#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/RowConflictsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSPersistentStore.h"
#include "Tessarin/platform/objectgraph/persistence/stores/RefusedSetsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreQueryPrivate.h"
#include <map>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace Tessarin {

class InMemoryLinks;
class UniqueValues;

/// A store without a file: it holds what was saved for as long as it lives. Predicates and order are the asker's. Any thread.
class TESSARIN_API InMemoryStore : public NSPersistentStore {
public:
    static Ref<InMemoryStore> open(NSURL const& url, Ref<RowSpace> space);
    ~InMemoryStore() override;

    std::string const& type() const override;
    NSURL url() const override { return *url_; }
    void close() override;
    Dictionary metadata() const override;
    void setMetadata(Dictionary metadata) override;
    std::string identifier() const override { return identifier_; }
    Ref<NSError> save(std::span<Ref<ChangeSet const> const> sets, ConflictResolver resolve, SaveOutcome& outcome) override;
    Ref<NSError> findRefused(std::span<Ref<ChangeSet const> const> sets, ConflictResolver resolve,
                             std::vector<RefusedSet>& refused) override;
    Ref<NSError> updateInBatch(BatchTarget const& target, std::span<BatchAssignment const> assignments,
                               BatchOutcome& outcome) override;
    Ref<NSError> deleteInBatch(std::span<BatchTarget const> targets, BatchOutcome& outcome) override;
    Ref<NSError> findHolders(UniqueConstraint const& constraint, std::span<RowRef const> rows,
                             std::vector<RecordKey>& holders) override;
    Ref<NSError> fetch(StoreQuery const& query, StoreAnswer& answer) override;
    Ref<NSError> count(StoreQuery const& query, std::size_t& count, bool& complete) override;
    Ref<NSError> searchStatistics(RankedSearch const& search, SearchStatistics& statistics) override;
    Ref<NSError> rows(NSEntityDescription const& rootEntity, std::span<RecordKey const> keys,
                      FunctionRef<void(RowRef)> each) override;
    Ref<NSError> members(NSRelationshipDescription const& relationship, std::span<RecordKey const> owners,
                         FunctionRef<void(RecordKey owner, RecordKey member)> each) override;
    RecordKey reserveKeys(std::size_t count, Ref<NSError>& error) override;

protected:
    InMemoryStore();
    using NSPersistentStore::init;
    virtual void init(NSURL url, Ref<RowSpace> space);

private:
    using Records = std::map<RecordKey, RowRef>;
    Ref<NSError> closedProblem() const { return isClosed_ ? storeClosed("in memory") : nullptr; }
    Ref<NSError> conflictIn(std::span<Ref<ChangeSet const> const> sets) const;
    RowRef row(NSEntityDescription const& entity, RecordKey key) const;
    void apply(RecordChange const& change);
    void replace(Records& records, RecordKey key, RowRef row);
    void remove(RecordChange const& change);
    void meant(BatchTarget const& target, BatchOutcome& outcome, std::vector<RowRef>& rows) const;
    Ref<NSError> change(std::vector<RecordChange> changes, BatchOutcome& outcome);
    void cutDangling(std::span<Ref<ChangeSet const> const> sets, SaveOutcome& outcome);

    std::optional<NSURL> url_; // constant after init, like the next two
    Ref<RowSpace> space_;
    std::string identifier_;
    std::mutex saving_;        // one save at a time; taken first
    mutable std::mutex mutex_; // guards what follows
    bool isClosed_ = false;
    Dictionary metadata_;
    RecordKey next_ = 1;
    std::unordered_map<NSEntityDescription const*, Records> records_; // by root entity
    std::unique_ptr<InMemoryLinks> links_;
    std::unique_ptr<UniqueValues> unique_;
};

} // namespace Tessarin
