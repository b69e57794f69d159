#include "Tessarin/platform/queues/engine/WorkItem.h"

#include "Tessarin/platform/queues/engine/ItemDepot.h"
#include <new>
#include <utility>

namespace Tessarin::engine {
namespace {

// Threads that only submit would drain a thread-local list and threads that only run would flood it. So a thread's cache is two
// batches, and full batches travel through the depot: one lock per 64 items, and no malloc once the depot is warm.
struct Cache {
    Batch current;
    Batch spare;
    bool returnsAtExit = false;
};
constinit thread_local Cache cache [[gnu::tls_model("initial-exec")]];

struct CacheReturner {
    ~CacheReturner() {
        itemDepot().putLoose(std::exchange(cache.current, {}));
        itemDepot().putLoose(std::exchange(cache.spare, {}));
    }
};

void returnAtExit() {
    if (std::exchange(cache.returnsAtExit, true)) return;
    thread_local CacheReturner const returner;
    static_cast<void>(&returner);
}

[[gnu::noinline]] void refill() {
    returnAtExit();
    cache.current = cache.spare.count > 0 ? std::exchange(cache.spare, {}) : itemDepot().take();
}

[[gnu::noinline]] void makeRoom() {
    returnAtExit();
    if (cache.spare.count > 0) itemDepot().put(cache.spare);
    cache.spare = std::exchange(cache.current, {});
}

} // namespace

WorkItem* newItem(Closure<void()>&& work, ItemKind kind) {
    if (cache.current.count == 0) refill();
    auto* const memory = cache.current.pop();
    __builtin_prefetch(cache.current.items, 1); // behind a long backlog it comes from far away (async to a global queue)
    return ::new (static_cast<void*>(memory)) WorkItem{std::move(work), static_cast<std::uintptr_t>(kind)};
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

ItemList reversed(WorkItem* list) noexcept {
    ItemList result;
    while (list) {
        auto* const next = list->next();
        list->setNext(result.first);
        result.first = list;
        ++result.count;
        list = next;
    }
    return result;
}

} // namespace Tessarin::engine
