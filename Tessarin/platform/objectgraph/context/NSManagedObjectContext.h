#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/notifications/NSNotification.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/objectgraph/context/FetchQuery.h"
#include "Tessarin/platform/objectgraph/context/FetchedObjects.h"
#include "Tessarin/platform/objectgraph/context/ManagedObject.h"
#include "Tessarin/platform/objectgraph/context/NSAsynchronousFetchRequest.h"
#include "Tessarin/platform/objectgraph/context/NSBatchDeleteRequest.h"
#include "Tessarin/platform/objectgraph/context/NSBatchUpdateRequest.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObject.h"
#include "Tessarin/platform/objectgraph/context/NSMergePolicy.h"
#include "Tessarin/platform/objectgraph/persistence/history/HistoryRequest.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSPersistentStoreCoordinator.h"
#include "Tessarin/platform/objectgraph/query/FetchExplanation.h"
#include "Tessarin/platform/objectgraph/query/NSFetchRequest.h"
#include "Tessarin/platform/queues/Queue.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <map>
#include <memory>
#include <span>
#include <vector>
// What other rooms add to every context:
#include "Tessarin/store/NSManagedObjectContext+Operations.h"

namespace Tessarin {

class ContextState;
class UndoManager;

enum class NSManagedObjectContextConcurrencyType : std::uint64_t {
    PrivateQueue = 1, // a serial queue of its own
    MainQueue = 2,
};

/// Posted after each successful save, also one without changes, on the thread that saved, with the context as the object.
/// The userInfo holds sets of the context's objects under "inserted", "updated" and "deleted"; it is made when it is asked for.
inline constexpr char const* NSManagedObjectContextDidSaveNotification = "NSManagingContextDidSaveChangesNotification";
/// Posted when something happened to the context's objects since the last time: after a block on its queue, also one that ran at
/// once, before a fetch or save, and, for changes outside any block in a context of the main queue, at the end of that turn. The
/// userInfo holds sets of what was inserted, updated and deleted here, by a child's save or in what was merged; of the objects
/// that were read again, by `refreshObject`, a merge or a correction, under "refreshed"; and of those that `reset` let go under
/// "invalidated". What was inserted and deleted in between is left out. Nothing is gathered while nobody observes that name.
inline constexpr char const* NSManagedObjectContextObjectsDidChangeNotification = "NSObjectsChangedInManagingContextNotification";
/// Posted by a root context, on its queue, when the store refuses for good what a context below had handed up: values that must
/// be unique and that somebody else has taken meanwhile, a record beyond the file's limit. Same userInfo, with the context's
/// objects, and the reason under "error". See `dropRefusedChanges`.
inline constexpr char const* NSManagedObjectContextDidRefuseChangesNotification = "NSManagingContextDidRefuseChangesNotification";
inline constexpr char const* NSRefusalErrorKey = "error";
inline constexpr char const* NSInsertedObjectsKey = "inserted";
inline constexpr char const* NSUpdatedObjectsKey = "updated";
inline constexpr char const* NSDeletedObjectsKey = "deleted";
inline constexpr char const* NSRefreshedObjectsKey = "refreshed";
inline constexpr char const* NSInvalidatedObjectsKey = "invalidated";
/// What counting gives when it fails.
inline constexpr std::int64_t NSNotFound = INT64_MAX;

/// Takes a fetch's results, run after run; `total` is the same each time.
using FetchedObjectsTaker = FunctionRef<void(std::span<Ref<NSManagedObject>> run, std::size_t total)>;

/// Identities under "inserted", "updated" and "deleted".
using ObjectIDsByChange = std::map<std::string, std::vector<Ref<NSManagedObjectID>>>;

/// A scratch pad of objects over a store or over another context. Everything but `performBlock`, `performBlockAndWait`
/// and the constant attributes belongs on its queue; anything else is fatal while queues are checked (QueueChecks.h). One
/// object per record; objects are held weakly unless they have unsaved changes. A save hands the changes to the parent, or writes
/// them to the store, all or nothing.
///
///     auto worker = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
///     worker->setParentContext(mainContext);
///     worker->performBlock([worker] { … Ref<NSError> error; if (!worker->save(error)) report(*error); });
class TESSARIN_API NSManagedObjectContext : public NSObject, public NSManagedObjectContextOperations {
public:
    using ConcurrencyType = NSManagedObjectContextConcurrencyType;

    ConcurrencyType concurrencyType() const noexcept;
    dispatch_queue_t const& queue() const noexcept;
    Ref<NSManagedObjectContext> const& parentContext() const noexcept;
    /// Both are set before the context is used, and only once: a context has a parent or a coordinator. Fatal otherwise.
    void setParentContext(Ref<NSManagedObjectContext> parent);
    void setPersistentStoreCoordinator(Ref<NSPersistentStoreCoordinator> coordinator);
    /// Its own, or its ancestors'; null when there is none.
    Ref<NSPersistentStoreCoordinator> persistentStoreCoordinator() const;
    /// NSErrorMergePolicy() unless another was set.
    Ref<NSMergePolicy> mergePolicy() const;
    void setMergePolicy(Ref<NSMergePolicy> policy);
    std::string name() const;
    void setName(std::string name);
    /// Who is said, in the store's history, to have made the changes that this context saves; empty by default. Any thread.
    std::string transactionAuthor() const;
    void setTransactionAuthor(std::string author);

    /// Runs `block` on the context's queue; returns at once. The context lives until it has run. Any thread.
    void performBlock(Closure<void()> block);
    /// Runs `block` on the context's queue before it returns; inline when the thread is on that queue already, also further
    /// up in its nested calls. Any thread.
    void performBlockAndWait(FunctionRef<void()> block);

    /// Fatal for an entity that the model does not have, or an abstract one.
    Ref<NSManagedObject> insertNewObject(std::string_view entityName);
    void deleteObject(NSManagedObject& object);
    /// Results with this context's unsaved changes, and its ancestors', taken into account. On an error the list is empty
    /// and `error` is set.
    std::vector<Ref<NSManagedObject>> executeFetchRequest(NSFetchRequest const& request, Ref<NSError>& error);
    /// The same without a list: hands the results on in runs of some hundred, with how many there are in all. `take` may move
    /// the objects out. After an error what it was given until then is not the result.
    void executeFetchRequest(NSFetchRequest const& request, Ref<NSError>& error, FetchedObjectsTaker take);
    /// The same as a list that makes its objects where it is looked at, `fetchBatchSize` at a time. Empty on an error.
    FetchedObjects fetchObjects(NSFetchRequest const& request, Ref<NSError>& error);
    /// The same while this thread goes on: the store is asked on another one. The completion is called once, on the context's
    /// queue, as a block of it, never before this returns. What it gets is what `fetchObjects` would give there and then, with all
    /// that was changed and saved meanwhile; only what others wrote to the file and this coordinator has not heard of may be
    /// missing. Where the answer is of no use any more (much was saved meanwhile, or anything while the request follows
    /// relationships), the store is asked again, three times at most, then in place. Errors come there, too, also when the context
    /// is gone. The request may be changed afterwards; neither it nor the returned object need be kept.
    Ref<NSAsynchronousFetch> fetchAsync(NSFetchRequest const& request, FetchCompletion completion);
    using NSManagedObjectContextOperations::fetchAsync;
    /// Fatal for one that was executed already.
    Ref<NSAsynchronousFetch> executeRequest(NSAsynchronousFetchRequest& request);
    /// A query for objects of the class T, of the entity that is named, else of the one that the class names: see FetchQuery.
    template <class T = NSManagedObject> FetchQuery<T> fetch(std::string_view entity = {}) {
        return FetchQuery<T>(self<NSManagedObjectContext>(), entity.empty() ? entityName<T>() : std::string(entity));
    }
    /// NSNotFound on an error.
    std::int64_t countForFetchRequest(NSFetchRequest const& request, Ref<NSError>& error);
    /// How the request would be answered now: the SQL, SQLite's plan, what is done in memory and why. Nothing is fetched. Empty on
    /// an error.
    FetchExplanation explain(NSFetchRequest const& request, Ref<NSError>& error);
    /// Changes or deletes records straight in the store, past this context and its ancestors; returns when it is on the disk.
    /// Null with an error, and nothing is changed.
    Ref<NSBatchUpdateResult> executeRequest(NSBatchUpdateRequest const& request, Ref<NSError>& error);
    Ref<NSBatchDeleteResult> executeRequest(NSBatchDeleteRequest const& request, Ref<NSError>& error);
    /// The transactions of the store, see `NSPersistentStoreCoordinator::fetchHistory`. Any thread.
    std::vector<HistoryTransaction> executeRequest(HistoryRequest const& request, Ref<NSError>& error) const;
    /// The same on another thread; the completion is called once, as a block of this context. Any thread.
    void fetchHistory(HistoryRequest request, HistoryCompletion completion);
    /// The object of that record, as a fault when it is not in memory; whether the record exists shows when it is used.
    /// Null for an identity of another coordinator.
    Ref<NSManagedObject> objectWithID(NSManagedObjectID const& id);
    /// The same, but null with an error when the record does not exist.
    Ref<NSManagedObject> existingObjectWithID(NSManagedObjectID const& id, Ref<NSError>& error);
    /// The objects of those records, in that order, as a list that makes them where it is looked at, `batchSize` at a time (0: all).
    /// Identities of another coordinator are left out.
    FetchedObjects objectsWithIDs(std::span<Ref<NSManagedObjectID> const> ids, std::size_t batchSize = 0);
    Ref<NSManagedObject> objectRegisteredForID(NSManagedObjectID const& id);

    /// One of the objects of that entity, without its sub-entities, that are in memory and no faults, which fulfils the predicate
    /// (null: any); null when there is none. An equality is looked up in a time that does not grow with what is in memory.
    Ref<NSManagedObject> loadedObject(NSEntityDescription const& entity, NSPredicate const* predicate);

    std::vector<Ref<NSManagedObject>> registeredObjects() const;
    /// Those of one entity, without its sub-entities.
    std::vector<Ref<NSManagedObject>> registeredObjects(NSEntityDescription const& entity) const;
    std::vector<Ref<NSManagedObject>> insertedObjects() const;
    std::vector<Ref<NSManagedObject>> updatedObjects() const;
    std::vector<Ref<NSManagedObject>> deletedObjects() const;
    /// Whether a save would hand anything on: own changes, or what a child handed up.
    bool hasChanges() const;
    /// How many saves of children stand here that this context has not saved yet. Any thread.
    std::size_t pendingSaves() const;

    /// False with an error, and every change kept, when something is not valid or the store cannot take it.
    bool save(Ref<NSError>& error);
    /// The same, then saves the ancestors, nearest first, each on its own queue, and returns when the changes are on the disk; it
    /// waits for that. False with the first error: of this context, of an ancestor, or with the store's reason to refuse what
    /// this context handed up.
    bool saveThrough(Ref<NSError>& error);
    /// What takes back what is changed in this context and its undoable children (UndoManager.h); made when it is first asked for,
    /// then always the same. Changes made before are not known to it.
    Ref<UndoManager> undoManager();
    /// What this context saves from now on is one step for its parent's undo manager, if there is one, under this name; absent:
    /// what it saves cannot be undone there, as without this call.
    ///
    ///     store->importBlock([](auto const& context) { context->setUndoable("Import"); … });
    void setUndoable(std::optional<std::string> actionName);
    /// Why the store refuses what contexts below had handed up to this root context, an error for each save, oldest first. Such
    /// changes are kept apart: everybody else's are saved without them, those that need them join them, and the contexts below
    /// go on showing them.
    std::vector<Ref<NSError>> refusalReasons() const;
    /// Gives the refused changes up: the objects of all contexts show what the store has. `rollback` does it, too.
    void dropRefusedChanges();
    /// Reads the record again. With `mergeChanges` the unsaved values stay; without, they are dropped, what they were linked with
    /// follows, and the object is a fault. Nothing for an object that was never saved. One without unsaved changes whose record
    /// is gone becomes a deleted one, and has no context any more.
    void refreshObject(NSManagedObject& object, bool mergeChanges);
    void refreshAllObjects();
    /// Drops this context's own unsaved changes, and those that the store has refused for good. What else children handed up
    /// stays: to them it is saved.
    void rollback();
    /// The same, and forgets every object: those still held have no context any more.
    void reset();
    void processPendingChanges();
    /// Takes over what another context saved: registered objects show the new values, unsaved changes stay. Nothing for a
    /// notification of another coordinator's context.
    void mergeChangesFromContextDidSaveNotification(NSNotification const& notification);
    /// Has contexts, and all below them, take over what was changed in the store by a batch request or another process:
    /// registered objects show what stands there now, unsaved changes stay. Reads the records on the calling thread, any thread;
    /// each context then takes them over on its own queue: at once where the caller is on it, else soon. Identities of another
    /// coordinator are ignored. Throws ErrorException when the store cannot be read.
    static void mergeChangesFromRemoteContextSave(ObjectIDsByChange const& changes,
                                                  std::span<Ref<NSManagedObjectContext> const> contexts);

    ~NSManagedObjectContext() override;

protected:
    NSManagedObjectContext();
    using NSObject::init;
    virtual void init(ConcurrencyType concurrencyType);

private:
    friend class GraphAccess;
    std::unique_ptr<ContextState> state_;
};

} // namespace Tessarin

#include "Tessarin/store/NSManagedObjectContext+Operations.inl"
