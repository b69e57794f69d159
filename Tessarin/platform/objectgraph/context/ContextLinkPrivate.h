#pragma once
#include "Tessarin/platform/objectgraph/context/FaultBatchPrivate.h"
#include "Tessarin/platform/objectgraph/context/FetchedObjects.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowCachePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/KeyAliasesPrivate.h"
#include "Tessarin/platform/queues/Retained.h"
#include "Tessarin/platform/runtime/Class.h"
#include "Tessarin/platform/runtime/SpinLock.h"
#include <atomic>
#include <mutex>
#include <span>
#include <vector>

namespace Tessarin {

class ContextState;
class NSManagedObject;
class NSManagedObjectContext;
class NSPersistentStoreCoordinator;

/// What a context and its objects share, and what outlives the context: the register of its objects, held weakly, each under
/// the one key that it has now. Objects may be released on any thread, so the register has a lock; everything else belongs to
/// the context's queue.
class ContextLink {
public:
    ContextLink(Ref<NSManagedObjectContext> const& context, ContextState& state, Ref<NSPersistentStoreCoordinator> coordinator);

    /// The context; null once it is destroyed. Any thread.
    Ref<NSManagedObjectContext> context() const { return context_.lock(); }
    /// The context's inside, for use on its queue; null once it is destroyed.
    ContextState* contextState() const noexcept { return state_.load(std::memory_order_acquire); }
    void contextIsGone() noexcept { state_.store(nullptr, std::memory_order_release); }
    RowSpace& space() const noexcept { return *space_; }
    NSPersistentStoreCoordinator& coordinator() const noexcept { return *coordinator_; }

    /// The living object of that record, or null. The key may be one that the record had.
    Ref<NSManagedObject> find(RecordKey key) const;
    /// The key that a record has now as far as this context knows, for one that it may have had.
    RecordKey current(RecordKey key) const { return key < 0 ? permanentFor(key) : key; }
    void add(NSManagedObject& object, RecordKey key);
    /// The object's record has another key from now on.
    void rename(NSManagedObject& object, RecordKey before, RecordKey now);
    /// Nothing refers any more to what this context alone knew by its temporary key.
    void forgetAliases() noexcept { aliases_.clear(); }
    /// How often keys have changed that objects may hold; and one more time.
    std::uint64_t nextBatchNumber() noexcept { return ++batchCount_; }
    std::uint32_t keyChanges() const noexcept { return keyChanges_; }
    void noteKeyChange() noexcept { ++keyChanges_; }
    void noteAlias(RecordKey temporary, RecordKey permanent) { aliases_.add(temporary, permanent); }
    /// The living objects of those rows' records, null where there is none.
    void findAll(std::span<RowRef const> rows, std::span<Ref<NSManagedObject>> objects) const;
    /// Enters many. Where a record has another living object already, that one takes its place in the list.
    void addAll(std::span<Ref<NSManagedObject>> objects);
    void remove(NSManagedObject& object, RecordKey key) noexcept;
    std::size_t count() const;
    /// The living objects; of one entity, without its sub-entities, when one is given.
    std::vector<Ref<NSManagedObject>> all(NSEntityDescription const* entity = nullptr) const;

    /// The class of an entity's objects: the registered one of the entity's class name, or else NSManagedObject.
    Class const& classOfObjects(NSEntityDescription const& entity);
    /// A new object of the entity's class, the registered one or else the generic object; in `batch` when there is one.
    Ref<NSManagedObject> makeObject(NSEntityDescription const& entity, RecordKey key, FaultBatchRef batch = {});
    /// The batch of objects that came alone.
    FaultBatchRef lone() noexcept { return FaultBatchRef{&lone_}; }

private:
    RecordKey permanentFor(RecordKey temporary) const;
    Ref<NSManagedObject> registered(RecordKey key) const;
    friend void retainObject(ContextLink& link, std::uint32_t count) noexcept;
    friend void releaseObject(ContextLink& link) noexcept;

    std::atomic<std::uint32_t> references_{0};
    WeakRef<NSManagedObjectContext> const context_;
    std::atomic<ContextState*> state_;
    Ref<NSPersistentStoreCoordinator> coordinator_;
    Ref<RowSpace> space_;
    FaultBatch lone_{*this};
    std::vector<Class const*> classes_; // by entity index, looked up on first use
    std::uint64_t batchCount_ = 0;
    std::uint32_t keyChanges_ = 1;
    KeyAliases aliases_;                // of records that no other context knew before; the others are among the promotions
    mutable SpinLock mutex_;
    KeyTable<NSManagedObject> objects_; // guarded by mutex_
};

} // namespace Tessarin
