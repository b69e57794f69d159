#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/dispatch/Dispatcher.h"
#include "Tessarin/platform/foundation/files/NSURL.h"
#include "Tessarin/platform/foundation/notifications/NSNotification.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/persistence/stores/SalvageReport.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreRefusal.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreWaiting.h"
#include "Tessarin/platform/queues/DispatchGroup.h"
#include "Tessarin/platform/runtime/Cell.h"
#include "Tessarin/platform/runtime/Slot.h"
#include <optional>
#include <string>
#include <vector>

namespace Tessarin {

class ImportGate;

/// How `make<ManagedObjectStore>` finds its model and names its file. What is absent is taken from the class's settings.
struct StoreOptions {
    std::optional<NSURL> modelURL = {};
    /// A name, not a path: 1 to 244 bytes (a file name may have 255, and SQLite appends ".db-journal"), not "." or "..", without
    /// "/" and NUL. Anything else is fatal, here and in the class's settings. In test programs "UnitTest-" is put before it, and
    /// counts.
    std::optional<std::string> filename = {};
    /// Options of the persistent store; migration and its inference are always switched on.
    Dictionary options = {};
    /// Told, by the thread that makes the store, why it waits: after 1 s, then after 2, 4, 8 and so on. What it throws ends the
    /// making.
    StoreWaiting::Told onWaiting = {};
    /// Seconds of waiting after which `make` throws the reason as an ErrorException; absent: never.
    std::optional<double> timeLimit = {};
    /// Asked before another store is begun in place of one that was refused; `plan` may be null. Copy: the folder in which it is
    /// kept, absent when nothing was in it. What it throws, `make` throws, and what was refused stays where it is. Absent: the
    /// store begins empty. Not asked for a store without records, nor again for the same file.
    enum class AfterRefusal {
        StartEmpty,
        Salvage // what can be read of a damaged one is in the new store, which is empty where nothing can, or for another reason
    };
    Closure<AfterRefusal(Ref<NSError> const& error, MigrationPlan const* plan, std::optional<NSURL> const& copy)> onRefusal = {};
    /// Permissions of the files that are made (the log has its file's), and of folders, which who may read may search, too. What
    /// exists keeps its own.
    std::uint32_t fileMode = 0600;
    /// How many saves may wait for the file, with the imports that run, until `importBlock` puts the next import off; 0: never.
    std::size_t mostPendingSaves = 64;
};

/// What happened to a store that could not be opened: the newest reason, and where it is kept now.
struct StoreReplacement {
    Ref<NSError> reason;
    std::optional<NSURL> copy; // a folder, or the file that stood in place of the store's; absent when nothing was saved in it
    std::optional<SalvageReport> salvaged; // what the store begins with, and what is missing; absent: it begins empty
    Ref<NSError> salvageError;             // why, where a salvage was asked for; else null
};

/// Posted by a new store in place of one that was refused, on the thread that makes it and before `didCreateDatabase`; its
/// userInfo holds "error", and "copy", a URL, unless nothing was saved in it.
inline constexpr char const* ManagedObjectStoreDidReplaceNotification = "ManagedObjectStoreDidReplaceNotification";

/// A persistent object stack: one model, one SQLite file, a root context that writes it, a main-queue context beneath, and
/// short-lived worker contexts beneath that. Every save climbs to the file by itself and is merged into the other workers.
///
/// The file is FOLDER/NAME/NAME.db, FOLDER being the group's container or the user's documents. Making a store waits while
/// the file is locked, out of reach or out of space. A file that is no store of the model goes with its whole folder to
/// `FOLDER/.NAME.rescued/N`, and an empty store takes its place, unless another connection still has it open or the folder
/// cannot be moved: then that is waited for, too. A place that can never hold a store keeps it trying for ever.
/// A store that is opened for reading (NSReadOnlyPersistentStoreOption) is never replaced: it waits.
///
/// May be made on any thread; off the main queue it waits for the main queue once. Everything may be called from any
/// thread, contexts and objects excepted.
///
///     auto store = make<ManagedObjectStore>(StoreOptions{.modelURL = url, .filename = "Notes"});
///     store->importBlock([](auto const& context) { context->insertEntityNamed("Note"); });
class TESSARIN_API ManagedObjectStore : public NSObject {
public:
    class ActiveContext;
    using ActiveContexts = std::vector<Ref<ActiveContext>>;
    using MetadataSlot = Slot<ManagedObjectStore, std::string, Value>;

    /// The class's own overridable operations; a subclass derives from it and hides `type()`.
    class TESSARIN_API Type {
    public:
        virtual ~Type() = default;
        /// Not consulted by the store; always absent here.
        virtual std::optional<NSURL> generatedModelURL() const;
        /// For applications; never called by the library.
        virtual void preload();
        /// For stores made afterwards. An absent file name leaves the class's as it is.
        virtual void setAppGroupIdentifier(std::string identifier, std::optional<std::string> filename);
    };
    static Type& type();
    static void setAppGroupIdentifier(std::string identifier, std::optional<std::string> filename) {
        type().setAppGroupIdentifier(std::move(identifier), std::move(filename));
    }
    static void preload() { type().preload(); }
    static std::optional<NSURL> generatedModelURL() { return type().generatedModelURL(); }
    static SelectorTable selectors();

    // Settings of the process, shared by all stores; used where a store is made without its own.
    static std::optional<NSURL> modelURL();
    static void setModelURL(std::optional<NSURL> url);
    static std::optional<std::string> filename();
    static void setFilename(std::optional<std::string> filename);
    static std::string groupIdentifier(); // empty: no group
    static void setGroupIdentifier(std::string identifier);
    static std::optional<NSURL> storeDirectoryURL(); // kept for applications; the store never consults it
    static void setStoreDirectoryURL(std::optional<NSURL> url);
    static std::optional<std::string> modelName(); // always absent

    Ref<NSManagedObjectModel> const& model() const noexcept { return model_; }
    Ref<NSPersistentStoreCoordinator> const& persistentStoreCoordinator() const noexcept { return coordinator_; }
    /// The store's own folder, not the file.
    NSURL const& storeURL() const noexcept { return *storeURL_; }
    Ref<NSManagedObjectContext> const& privateContext() const noexcept { return privateContext_; }
    /// What was replaced by this store when it was made; absent when nothing was.
    std::optional<StoreReplacement> const& replacement() const noexcept { return replacement_; }
    Ref<Dispatcher> const& dispatch() const noexcept { return dispatch_; }
    /// Holds an entry for each save of a parent that is on its way; empty once everything that was saved has reached the
    /// file. Parents' saves need the main queue: on the main thread do not wait for it, use `dispatch_group_notify`, or
    /// drain the main queue until it is empty.
    dispatch_group_t const& saveDispatchGroup() const noexcept { return saveDispatchGroup_; }

    /// Absent while the store is made; replaced by `deleteAllData`.
    virtual Ref<NSManagedObjectContext> mainThreadContext() const;
    virtual void setMainThreadContext(Ref<NSManagedObjectContext> context);
    virtual void modifyMainThreadContext(FunctionRef<void(Ref<NSManagedObjectContext>&)> change);
    /// The live worker contexts. A registration made just before a save may miss that save's merge.
    virtual ActiveContexts activeContexts() const;
    virtual void setActiveContexts(ActiveContexts contexts);
    virtual void modifyActiveContexts(FunctionRef<void(ActiveContexts&)> change);

    /// Called last in the making of a store whose file did not exist before, on the thread that makes it.
    virtual void didCreateDatabase() {}

    /// Not offered: a store is made with `StoreOptions`. Fatal.
    void init() override;
    /// Fatal without a file name anywhere, with one that is not a name, and when no model can be had.
    virtual void init(StoreOptions options);
    /// Makes a new main-queue context beneath the private one.
    virtual void setupMainThreadContext();
    /// For applications; never called by the library.
    virtual void setup() {}
    /// Called for the save of every context in the process, on the thread that saved.
    virtual void contextDidSave(Ref<NSNotification> const& notification);
    /// A new context beneath the main one; the caller keeps it, the registry remembers it.
    virtual Ref<NSManagedObjectContext> createWorkerContext(std::string name);
    Ref<NSManagedObjectContext> createWorkerContext() { return createWorkerContext("Worker Context"); }
    /// Runs `block` on a new worker's queue, then saves the worker. Returns at once; nothing reports the end. Where imports come
    /// faster than the file takes them, the next waits for its turn, in the order of the calls; see
    /// `StoreOptions::mostPendingSaves`.
    virtual void importBlock(Closure<void(Ref<NSManagedObjectContext> const&)> block);
    /// The metadata kept in the file; a write reaches it with the next save. Fatal without a store.
    virtual Value metadata(std::string const& key) const;
    virtual void setMetadata(std::string const& key, Value value);
    virtual void modifyMetadata(std::string const& key, FunctionRef<void(Value&)> change);
    MetadataSlot operator[](std::string_view key) { return {*this, std::string{key}}; }
    Value slot(std::string const& key) const { return metadata(key); }
    void setSlot(std::string const& key, Value value) { setMetadata(key, std::move(value)); }
    /// Deletes every object of the entities (absent: of all), saves, and returns. Then, on the main queue, the main context is
    /// replaced by an empty one and `completion` runs. Errors are ignored: an entity that cannot be read is left as it is, and
    /// where an object cannot be deleted nothing is. Where all goes, no class overrides `prepareForDeletion` or `willSave` and no
    /// object of the root context is in use, no objects are made for it: tables are emptied.
    virtual void deleteAllData(std::optional<std::vector<Ref<NSEntityDescription>>> entities, Closure<void()> completion);
    void deleteAllData(Closure<void()> completion) { deleteAllData(std::nullopt, std::move(completion)); }

    /// The three return at once; the registry changes on the store's dispatcher, in the order of these calls.
    void registerContext(Ref<NSManagedObjectContext> const& context);
    void unregisterContext(Ref<NSManagedObjectContext> const& context);
    void updatedActiveContexts();

protected:
    ManagedObjectStore() = default;

private:
    NSPersistentStore& onlyStore() const;
    void chooseModel(std::optional<NSURL> const& location);
    void openStore(NSURL const& file, StoreOptions& options);
    void salvageInto(NSURL const& file, std::uint32_t fileMode);
    Ref<NSError> replaceStore(NSURL const& file, Ref<NSError> const& error, StoreRefusal const& refusal, std::uint32_t fileMode);
    void tellReplacement();
    Ref<NSManagedObjectContext> newContext(NSManagedObjectContextConcurrencyType type) const;
    void changeRegistry(Closure<void(ActiveContexts&)> change);
    void climb(NSManagedObjectContext& saved);

    Ref<NSManagedObjectModel> model_; // constant after init, down to dispatch_
    Ref<NSPersistentStoreCoordinator> coordinator_;
    std::optional<NSURL> storeURL_;
    std::optional<StoreReplacement> replacement_;
    Ref<NSManagedObjectContext> privateContext_;
    Ref<Dispatcher> dispatch_;
    dispatch_queue_t registry_; // orders what runs on dispatch_, so that no change of the registry undoes another
    dispatch_group_t saveDispatchGroup_;
    Cell<Ref<NSManagedObjectContext>> mainThreadContext_;
    Cell<ActiveContexts> activeContexts_;
    Ref<ImportGate> imports_; // constant after init
};

/// An entry of the registry: a context, held weakly, and its store, held strongly. A store therefore lives as long as entries
/// of dead contexts linger in its registry; that is meant, and ends when they are removed.
class TESSARIN_API ManagedObjectStore::ActiveContext {
public:
    virtual ~ActiveContext() = default;
    /// Null once the context is destroyed.
    virtual Ref<NSManagedObjectContext> context() const;
    virtual void setContext(Ref<NSManagedObjectContext> context);
    virtual void modifyContext(FunctionRef<void(Ref<NSManagedObjectContext>&)> change);
    virtual void init(Ref<NSManagedObjectContext> context, Ref<ManagedObjectStore> store);
    Ref<ManagedObjectStore> const& store() const noexcept { return store_; }

protected:
    ActiveContext() = default;

private:
    Cell<WeakRef<NSManagedObjectContext>> context_;
    Ref<ManagedObjectStore> store_; // constant after init
};

} // namespace Tessarin
