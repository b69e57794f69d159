#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/RowConflictsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSPersistentStore.h"
#include "Tessarin/platform/objectgraph/persistence/stores/RefusedSetsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreQueryPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreWaiting.h"
#include <memory>
#include <optional>

namespace Tessarin {

/// How a store is opened, read from the options of a coordinator.
struct SQLiteStoreOptions {
    enum class Synchronous { Off, Normal, Full };

    Synchronous synchronous = Synchronous::Full; // Full: what a save reported stays after a loss of power
    std::int64_t cacheKilobytes = 8192;          // of database pages, for each connection
    double busySeconds = 60;                     // how long a save waits while another process saves
    bool infersMapping = true;                   // a file of another model is migrated where rules exist
    bool isReadOnly = false;                     // nothing is made, migrated, rescued or saved
    std::uint32_t fileMode = 0600;               // permissions of a new file; its log's are those of the file
    bool keepsHistory = false;
    bool mergesOthers = false;
    std::optional<double> historyAge; // seconds for which it is kept at least
    Ref<StoreWaiting> waiting;                   // never null once read
    Ref<StoreOpening> opening;                   // may be null

    /// Reads "NSSQLitePragmasOption" ({"synchronous": "NORMAL", "cache_size": -8192}; a positive size counts pages of 4 KiB),
    /// "NSSQLiteBusyTimeoutOption" (seconds), "NSInferMappingModelAutomaticallyOption", "NSReadOnlyPersistentStoreOption",
    /// "NSFilePosixPermissions", "NSStoreWaitingOption", "NSStoreOpeningOption" and those of the history. Other keys are ignored.
    static SQLiteStoreOptions from(Dictionary const& options);
};

/// A store in one SQLite file, in tables that any SQLite tool can read (docs/store-format.md). Several processes may have
/// it open; fetches run beside a save.
class TESSARIN_API SQLiteStore : public NSPersistentStore {
public:
    /// Opens the file, or makes it: also where it is empty. Waits, with growing pauses and as long as it lasts, while it is
    /// locked, out of reach, out of space or of a newer format. Null with an error when it is not a store, is damaged, or
    /// cannot be brought to this model (then the error bears a StoreRefusal, and a link to the file and its log is kept in
    /// `.FOLDER.rescued/` beside its folder), at once for a path that can never hold a store, and when the limit of waiting is
    /// reached.
    static Ref<SQLiteStore> open(NSURL const& file, Ref<RowSpace> space, Dictionary const& options, Ref<NSError>& error);
    ~SQLiteStore() override;

    std::string const& type() const override;
    NSURL url() const override;
    bool isReadOnly() const override;
    void close() override;
    Dictionary metadata() const override;
    void setMetadata(Dictionary metadata) override;
    std::string identifier() const override;
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
    Ref<NSError> explain(StoreQuery const& query, FetchExplanation& explanation) override;
    Ref<NSError> searchStatistics(RankedSearch const& search, SearchStatistics& statistics) override;
    Ref<NSError> rows(NSEntityDescription const& rootEntity, std::span<RecordKey const> keys,
                      FunctionRef<void(RowRef)> each) override;
    Ref<NSError> members(NSRelationshipDescription const& relationship, std::span<RecordKey const> owners,
                         FunctionRef<void(RecordKey owner, RecordKey member)> each) override;
    RecordKey reserveKeys(std::size_t count, Ref<NSError>& error) override;
    Ref<NSError> history(HistoryRequest const& request, std::vector<HistoryTransaction>& found) override;
    Ref<NSError> newestOfHistory(HistoryToken& token) override;
    Ref<NSError> purgeHistory(HistoryToken const& upTo) override;
    Ref<NSError> purgeHistory(NSDate const& before) override;
    /// A sentence for each thing in the file that is not as it should be; none, too, with an error.
    std::vector<std::string> verify(Ref<NSError>& error) const;

protected:
    SQLiteStore();
    struct Impl;
    using NSPersistentStore::init;
    virtual void init(std::unique_ptr<Impl> impl);

private:
    friend class SQLiteOpening;
    void beginWithOthers();
    std::int64_t lookForOthers(std::int64_t after);
    void tellEverything();
    void forgetOldHistoryLater();
    std::unique_ptr<Impl> impl_;
};

} // namespace Tessarin
