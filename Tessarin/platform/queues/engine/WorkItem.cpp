#include "Tessarin/platform/queues/engine/WorkItem.h"

#include "Tessarin/platform/queues/engine/ItemDepot.h"
#include <array>
#include <new>
#include <utility>

namespace Tessarin::engine {
namespace {

// Threads that only submit would drain a thread-local list and threads that only run would flood it. So full batches travel
// through the depot: one lock per 64 items, and no malloc once the depot is warm. A batch is a page of memory, and stays one: a
// thread that runs the items of several others gathers each page's on a shelf of its own. Mixed ones would scatter every long
// backlog all over the memory, at four times the cost ("mainloop", a post, 4 threads); a few, for the thread's own use, do not.
struct Shelf {
    std::uintptr_t page = 0; // 0 while it is empty
    Batch batch;
};
struct Cache {
    static constexpr unsigned shelfCount = 8;
    static constexpr int mostMixed = 128;

    Batch mixed;   // of any pages, given back here and taken again: threads that run and submit alike need nothing else
    Batch current; // to take from, and to give back what is of its page
    std::uintptr_t page = 0;
    std::array<Shelf, shelfCount> shelves;
    unsigned recent = 0; // the shelf that was last given to
    unsigned oldest = 0; // the next to be cleared for another page
    bool returnsAtExit = false;
};
constinit thread_local Cache cache [[gnu::tls_model("initial-exec")]];

struct CacheReturner {
    ~CacheReturner() {
        while (cache.mixed.count > 0) {
            Batch one;
            one.push(cache.mixed.pop());
            itemDepot().put(one);
        }
        itemDepot().put(std::exchange(cache.current, {}));
        for (auto& shelf : cache.shelves) itemDepot().put(std::exchange(shelf, {}).batch);
    }
};

void returnAtExit() {
    if (std::exchange(cache.returnsAtExit, true)) return;
    thread_local CacheReturner const returner;
    static_cast<void>(&returner);
}

[[gnu::noinline]] void refill() {
    returnAtExit();
    auto* shelf = &cache.shelves[cache.recent];
    for (unsigned at = 0; at < Cache::shelfCount && shelf->page == 0; ++at) shelf = &cache.shelves[at];
    cache.current = shelf->page != 0 ? std::exchange(*shelf, {}).batch : itemDepot().take();
    cache.page = pageOf(cache.current.items);
}

[[gnu::noinline]] void clear(Shelf& shelf) noexcept {
    returnAtExit();
    itemDepot().put(std::exchange(shelf, {}).batch);
}

/// Makes the shelf of that page the recent one: the one it has, an empty one, or one that is cleared for it.
[[gnu::noinline]] void turnTo(std::uintptr_t page) noexcept {
    unsigned chosen = Cache::shelfCount;
    for (unsigned at = 0; at < Cache::shelfCount; ++at) {
        if (cache.shelves[at].page == page) {
            cache.recent = at;
            return;
        }
        if (cache.shelves[at].page == 0) chosen = at;
    }
    if (chosen == Cache::shelfCount) {
        chosen = std::exchange(cache.oldest, (cache.oldest + 1) % Cache::shelfCount);
        clear(cache.shelves[chosen]);
    }
    cache.recent = chosen;
    cache.shelves[chosen].page = page;
}

void shelve(FreeItem* item, std::uintptr_t page) noexcept {
    if (cache.shelves[cache.recent].page != page) turnTo(page);
    auto& shelf = cache.shelves[cache.recent];
    shelf.batch.push(item);
    if (shelf.batch.isFull()) clear(shelf);
}

} // namespace

WorkItem* newItem(Closure<void()>&& work, ItemKind kind) {
    if (cache.mixed.count == 0 && cache.current.count == 0) refill();
    auto& batch = cache.mixed.count > 0 ? cache.mixed : cache.current;
    auto* const memory = batch.pop();
    __builtin_prefetch(batch.items, 1); // behind a long backlog it comes from far away (async to a global queue)
    return ::new (static_cast<void*>(memory)) WorkItem{std::move(work), static_cast<std::uintptr_t>(kind)};
}

void recycle(WorkItem* item) noexcept {
    item->~WorkItem();
    auto* const free = ::new (static_cast<void*>(item)) FreeItem{nullptr, nullptr};
    if (auto const page = pageOf(free); page == cache.page)
        cache.current.push(free);
    else if (cache.mixed.count < Cache::mostMixed)
        cache.mixed.push(free);
    else
        shelve(free, page);
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
