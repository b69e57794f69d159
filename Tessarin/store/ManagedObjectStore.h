#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/dispatch/Dispatcher.h"
#include "Tessarin/platform/foundation/files/NSURL.h"
#include "Tessarin/platform/foundation/notifications/NSNotification.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/persistence/stores/SalvageReport.h"
#include "Tessarin/platform/queues/DispatchGroup.h"
#include "Tessarin/platform/runtime/Cell.h"
#include "Tessarin/platform/runtime/Slot.h"
#include "Tessarin/store/BackgroundWork.h"
#include "Tessarin/store/StoreOptions.h"
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace Tessarin {

class ImportGate;
class StoreClosing;

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
/// The file is FOLDER/NAME/NAME.db, FOLDER being the options' directory, else the group's container or the user's documents.
/// Making a store waits while the file is locked, out of reach or out of space. A file that is no store of the model goes with
/// its whole folder to
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
    template <class Store> using OpenCompletion = Closure<void(Ref<Store> const& store, Ref<NSError> const& error)>;

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

    /// Makes a store without keeping the calling thread; returns at once, any thread. `completion` is called on the main queue,
    /// with the store, or with null and what `make` would have thrown. What is wrong with name or directory is fatal at once,
    /// what is fatal about the model a little later. The handle tells how far a migration is and can cancel it, and all
    /// waiting: the file is then as it was. A cancellation that comes too late changes nothing, so look at what `completion` is
    /// given. Letting go of the handle cancels nothing. The closures in the options are called by the opening's own thread,
    /// `onProgress` on the main queue. The store needs the main queue for a moment; inside an item of it neither that nor
    /// `completion` comes.
    ///
    ///     opening_ = ManagedObjectStore::open({.filename = "Notes", .onProgress = [](auto const& now) { bar(now.fraction); }},
    ///                                         [](auto const& store, auto const& error) { store ? show(store) : tell(error); });
    template <class Store = ManagedObjectStore>
    static Ref<StoreOpening> open(StoreOptions options, OpenCompletion<std::type_identity_t<Store>> completion);

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
    /// The store's own folder, not the file; "memory:" for a store in memory.
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
    /// The same for `co_await` in a Task, with the result of `work`, which takes the worker as `importBlock`'s block does; see
    /// BackgroundWork.
    template <class F> auto background(F&& work) {
        return BackgroundWork<std::decay_t<F>, detail::isSafeInAwait<F>>(self<ManagedObjectStore>(), std::forward<F>(work));
    }
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

    /// What `close` does when something that was handed up cannot be saved: the disk is full, a parent's own changes are not
    /// valid, or the store refuses it for good (`refusalReasons`).
    enum class WhenUnsaved {
        StayOpen, // all is as before, and nothing is lost: mend it and close again, or give up
        GiveUp    // those changes are lost
    };
    /// Closes the store on purpose, as a document's window does. Returns at once, any thread, also within a block or an import
    /// of this store. First the imports that were asked for before run, and the blocks that stand on the queues of its
    /// contexts; then what was saved at any level goes to the file, for which the main queue is needed; then the file is
    /// closed, and can be moved, deleted or opened again at once. `completion` is called on the main queue: with null when the
    /// store is closed and all is saved, also where it was closed before; with the reason when something could not be saved.
    /// Then the store stays open, unless told to give up. What was changed in a context and never saved is not saved by this
    /// either, and no error.
    ///
    /// Afterwards contexts and objects say so when they are used: a fetch, a count and a save of changes are errors of the code
    /// StoreErrorCode::StoreClosed, and changes stay in their context; a fault throws as when the store cannot be read; what is
    /// in memory can be looked at. An import runs and prints that it could not be saved. `deleteAllData` deletes nothing and
    /// completes; metadata that is set is kept nowhere. The registry of workers stays empty. A store whose last reference goes
    /// without this writes what was saved all the same, and closes its file when its last context has gone.
    void close(Closure<void(Ref<NSError> const& error)> completion = {}, WhenUnsaved whenUnsaved = WhenUnsaved::StayOpen);
    bool isClosed() const noexcept { return coordinator_ && coordinator_->isClosed(); }

    /// The three return at once; the registry changes on the store's dispatcher, in the order of these calls.
    void registerContext(Ref<NSManagedObjectContext> const& context);
    void unregisterContext(Ref<NSManagedObjectContext> const& context);
    void updatedActiveContexts();

protected:
    ManagedObjectStore() = default;

private:
    friend class StoreClosing;
    static Ref<StoreOpening> openWith(StoreOptions options, Ref<ManagedObjectStore> (*make)(StoreOptions),
                                      OpenCompletion<ManagedObjectStore> completion);
    friend void detail::runInBackground(ManagedObjectStore& store, Closure<void(Ref<NSManagedObjectContext> const&)> block,
                                        Closure<void()> ended);
    void runInBackground(Closure<void(Ref<NSManagedObjectContext> const&)> block, Closure<void(Ref<NSError>)> ended);
    NSPersistentStore& onlyStore() const;
    void chooseModel(StoreOptions const& options);
    Ref<NSMergePolicy> mergePolicyOfALevel() const;
    /// Both tell whether the store was there before.
    bool openInMemory();
    bool openFile(NSURL const& file, StoreOptions& options);
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
    Ref<NSMergePolicy> mergePolicy_; // null: each level has its own
    std::optional<StoreReplacement> replacement_;
    Ref<NSManagedObjectContext> privateContext_;
    Ref<Dispatcher> dispatch_;
    dispatch_queue_t registry_; // orders what runs on dispatch_, so that no change of the registry undoes another
    dispatch_group_t saveDispatchGroup_;
    Cell<Ref<NSManagedObjectContext>> mainThreadContext_;
    Cell<ActiveContexts> activeContexts_;
    Ref<ImportGate> imports_; // constant after init
    Ref<StoreClosing> closing_; // on registry_; null until it is asked for
};

template <class Store>
Ref<StoreOpening> ManagedObjectStore::open(StoreOptions options, OpenCompletion<std::type_identity_t<Store>> completion) {
    auto const made = [](StoreOptions given) -> Ref<ManagedObjectStore> { return make<Store>(std::move(given)); };
    return openWith(std::move(options), made,
                    [completion = std::move(completion)](Ref<ManagedObjectStore> const& store, Ref<NSError> const& error) {
                        if (completion) completion(std::static_pointer_cast<Store>(store), error);
                    });
}

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
