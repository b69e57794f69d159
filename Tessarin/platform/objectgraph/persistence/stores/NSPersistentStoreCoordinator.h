#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSManagedObjectID.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSPersistentStore.h"
#include "Tessarin/platform/objectgraph/persistence/stores/SalvageReport.h"
#include <atomic>
#include <memory>
#include <optional>
#include <string_view>

namespace Tessarin {

class IdentityTable;
class KeyPromotions;
class RowSpace;
class SaveDoor;
struct HistoryRequest;
struct HistoryToken;
struct HistoryTransaction;

inline constexpr char const* NSSQLiteStoreType = "SQLite";
inline constexpr char const* NSInMemoryStoreType = "InMemory";
/// Option keys of a store: Booleans.
inline constexpr char const* NSMigratePersistentStoresAutomaticallyOption = "NSMigratePersistentStoresAutomaticallyOption";
inline constexpr char const* NSInferMappingModelAutomaticallyOption = "NSInferMappingModelAutomaticallyOption";
/// Option key: true opens a file that exists for reading. Nothing is made, migrated, rescued or saved; a file of an older model
/// is an error. Where the folder cannot be written, the file is taken for one that nobody changes; a log beside it is an error
/// then.
inline constexpr char const* NSReadOnlyPersistentStoreOption = "NSReadOnlyPersistentStoreOption";
// Further option keys: NSStoreWaitingOption tells of waiting and limits it (StoreWaiting.h); NSFilePosixPermissions
// (NSFileManager.h) are the permissions of a new file, 0600 by default, which its log, index and rescued copies share.
/// Option key: a dictionary such as {"synchronous": "NORMAL"} (FULL by default, or OFF).
inline constexpr char const* NSSQLitePragmasOption = "NSSQLitePragmasOption";

/// Option key: true keeps a history of what is saved in the file (HistoryRequest.h). False unless it is given; a file that has one
/// goes on being written without.
inline constexpr char const* NSStoreHistoryOption = "NSStoreHistoryOption";
/// Option key: seconds for which a history is kept at least; what is older is forgotten now and then. Absent: for ever.
inline constexpr char const* NSStoreHistoryAgeOption = "NSStoreHistoryAgeOption";
/// Option key: true brings what others save to the same file, with a history, to this coordinator's contexts. Asks for
/// NSStoreHistoryOption, unless the store is opened for reading.
inline constexpr char const* NSStoreMergesOthersOption = "NSStoreMergesOthersOption";

/// Stands between the contexts and a store: one model, one store, the identities and the rows that contexts share.
/// Everything but adding a store may be used from any thread.
///
///     auto coordinator = make<NSPersistentStoreCoordinator>(model);
///     Ref<NSError> error;
///     if (!coordinator->addPersistentStoreWithType(NSSQLiteStoreType, {}, file, {}, error)) report(*error);
class TESSARIN_API NSPersistentStoreCoordinator : public NSObject {
public:
    Ref<NSManagedObjectModel> const& managedObjectModel() const noexcept { return model_; }
    /// Opens or makes the store. Waits as long as the file is locked, out of reach or out of space; null with an error when
    /// it is no store of this model (a copy of what stood there is then kept beside its folder, and the error bears a
    /// StoreRefusal), and for a path that can never hold one: too long, or a link that leads nowhere. One store a coordinator: a
    /// second is refused. `configuration` absent means all entities, and so does any other for now.
    Ref<NSPersistentStore> addPersistentStoreWithType(std::string_view type, std::optional<std::string> configuration,
                                                      NSURL const& url, Dictionary const& options, Ref<NSError>& error);
    std::vector<Ref<NSPersistentStore>> persistentStores() const;
    /// Closes the store, for good: waits for the saves, fetches and batch requests that are under way, then lets go of its
    /// file, which can be moved, deleted or opened again at once. Contexts say so from then on: fetches, counts and saves of
    /// changes are errors of the code StoreErrorCode::StoreClosed, and changes stay unsaved; faults throw as when the store
    /// cannot be read; what is in memory can be looked at. Nothing where there is no store, or it is closed. Neither on a
    /// context's queue nor within a save. What contexts have handed up and nobody saved stays where it is: ManagedObjectStore's
    /// `close` sees to that.
    void closeStore();
    bool isClosed() const noexcept { return isClosed_.load(std::memory_order_acquire); }
    /// Looks at all of the store and changes nothing: at its pages and indexes, links and their inverses, orders, the description
    /// of its model, the next key. A sentence for each finding; none when all is well, or with an error when it cannot look.
    /// Takes time in proportion to the file; contexts may go on meanwhile. A store in memory has nothing to look at.
    std::vector<std::string> verify(Ref<NSError>& error) const;
    /// The model as a picture in Graphviz's language, with how many records of each entity are stored, sub-entities not counted.
    /// Takes the time of counting them; empty with an error.
    std::string graphvizText(Ref<NSError>& error) const;
    /// Reads what can be read of the damaged store in the file `damaged` into the new file `fresh`, which can then be added. The
    /// damaged file stays as it is; nobody may have it open (closing a copy of it would drop this process's locks on it). The
    /// model is the file's own; where that cannot be read, this coordinator's. Absent with an error, and without a file, when
    /// nothing can be read, or `fresh` exists. Needs room for two copies for as long as it takes.
    std::optional<SalvageReport> salvageStoreAtURL(NSURL const& damaged, NSURL const& fresh, Ref<NSError>& error) const;
    /// What was saved with NSStoreHistoryOption, by this or any other process, oldest first. An error, and none, where no history
    /// is kept, where what follows the token was forgotten (StoreErrorCode::HistoryPurged: fetch the records instead), where the
    /// token is another store's, and where a transaction cannot be read; the records are as good as before.
    std::vector<HistoryTransaction> fetchHistory(HistoryRequest const& request, Ref<NSError>& error) const;
    /// Behind what was saved last; absent with an error, also where there is no history.
    std::optional<HistoryToken> currentHistoryToken(Ref<NSError>& error) const;
    /// Forgets the transactions up to that one, it included; false with an error.
    bool purgeHistory(HistoryToken const& upTo, Ref<NSError>& error);
    /// Forgets those before the first that was saved since then.
    bool purgeHistory(NSDate const& before, Ref<NSError>& error);
    /// The identity that a URI names; null for another store's, an unknown entity's, or a temporary one, and for an entity that
    /// the record is not of. Asks the store for a record that nobody has in memory.
    Ref<NSManagedObjectID> managedObjectIDForURIRepresentation(NSURL const& uri);

    Ref<RowSpace> const& space() const noexcept { return space_; }
    IdentityTable& identities() noexcept;
    KeyPromotions& promotions() noexcept { return *promotions_; }
    SaveDoor& saves() noexcept { return *saves_; }
    /// The store, or null while there is none.
    NSPersistentStore* store() const noexcept { return store_.load(std::memory_order_acquire); }
    /// A key for a record that is not saved yet: negative, unique in the process.
    static RecordKey temporaryKey() noexcept;

    ~NSPersistentStoreCoordinator() override;

protected:
    NSPersistentStoreCoordinator();
    using NSObject::init;
    virtual void init(Ref<NSManagedObjectModel> managedObjectModel);

private:
    NSEntityDescription const* entityInStore(RecordKey key) const;

    template <class T> friend struct detail::Made;
    Ref<NSManagedObjectModel> model_;
    Ref<RowSpace> space_;
    std::unique_ptr<KeyPromotions> const promotions_;
    std::unique_ptr<SaveDoor> const saves_;
    Ref<NSPersistentStore> kept_;
    std::atomic<NSPersistentStore*> store_{nullptr}; // set once
    std::atomic<bool> isClosed_{false};
};

} // namespace Tessarin
