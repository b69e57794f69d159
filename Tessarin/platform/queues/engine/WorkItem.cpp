#include "Tessarin/platform/queues/engine/WorkItem.h"

#include "Tessarin/platform/queues/engine/Parking.h"
#include <mutex>
#include <new>
#include <utility>

namespace Tessarin::engine {
namespace {

// Threads that only submit would drain a thread-local list and threads that only run would flood it. So a thread's cache is two
// batches, and full batches travel through the depot: one lock per 64 items, and no malloc once the depot is warm.
constexpr int batchSize = 64;

struct FreeItem {
    FreeItem* next;
    FreeItem* nextBatch;
};

struct Batch {
    FreeItem* items = nullptr;
    int count = 0;

    bool isFull() const noexcept { return count == batchSize; }
    void push(FreeItem* item) noexcept {
        item->next = items;
        items = item;
        ++count;
    }
    FreeItem* pop() noexcept {
        --count;
        return std::exchange(items, items->next);
    }
};

class Depot {
public:
    void put(Batch full) noexcept {
        std::lock_guard const hold(lock_);
        putLocked(full);
    }
    /// For the batches of a thread that ends: what is less than a batch is gathered.
    void putLoose(Batch batch) noexcept {
        std::lock_guard const hold(lock_);
        while (batch.count > 0) {
            loose_.push(batch.pop());
            if (loose_.isFull()) putLocked(std::exchange(loose_, {}));
        }
    }
    Batch take() {
        {
            std::lock_guard const hold(lock_);
            if (batches_) return {std::exchange(batches_, batches_->nextBatch), batchSize};
        }
        return carve();
    }

private:
    void putLocked(Batch full) noexcept {
        full.items->nextBatch = batches_;
        batches_ = full.items;
    }
    static Batch carve() {
        auto* const memory = static_cast<WorkItem*>(::operator new(batchSize * sizeof(WorkItem), std::align_val_t{alignof(WorkItem)}));
        Batch batch;
        for (int i = batchSize; i-- > 0;) batch.push(::new (static_cast<void*>(memory + i)) FreeItem{nullptr, nullptr});
        return batch;
    }

    Lock lock_;
    FreeItem* batches_ = nullptr; // guarded by lock_
    Batch loose_;                 // guarded by lock_
};

constinit Depot depot;

struct Cache {
    Batch current;
    Batch spare;
    bool returnsAtExit = false;
};
constinit thread_local Cache cache [[gnu::tls_model("initial-exec")]];

struct CacheReturner {
    ~CacheReturner() {
        depot.putLoose(std::exchange(cache.current, {}));
        depot.putLoose(std::exchange(cache.spare, {}));
    }
};

void returnAtExit() {
    if (std::exchange(cache.returnsAtExit, true)) return;
    thread_local CacheReturner const returner;
    static_cast<void>(&returner);
}

[[gnu::noinline]] void refill() {
    returnAtExit();
    cache.current = cache.spare.count > 0 ? std::exchange(cache.spare, {}) : depot.take();
}

[[gnu::noinline]] void makeRoom() {
    returnAtExit();
    if (cache.spare.count > 0) depot.put(cache.spare);
    cache.spare = std::exchange(cache.current, {});
}

} // namespace

WorkItem* newItem(Closure<void()>&& work, ItemKind kind) {
    if (cache.current.count == 0) refill();
    return ::new (static_cast<void*>(cache.current.pop())) WorkItem{std::move(work), static_cast<std::uintptr_t>(kind)};
}

void recycle(WorkItem* item) noexcept {
    item->~WorkItem();
    if (cache.current.isFull()) makeRoom();
    cache.current.push(::new (static_cast<void*>(item)) FreeItem{nullptr, nullptr});
    if (!cache.returnsAtExit) returnAtExit();
}

void runAndRecycle(WorkItem* item) noexcept {
    item->work();
    recycle(item);
}

WorkItem* reversed(WorkItem* list) noexcept {
    WorkItem* result = nullptr;
    while (list) {
        auto* const next = list->next();
        list->setNext(result);
        result = list;
        list = next;
    }
    return result;
}

} // namespace Tessarin::engine
