#include "Tessarin/platform/queues/engine/WorkItem.h"

#include "Tessarin/platform/queues/engine/ItemDepot.h"
#include "Tessarin/platform/queues/engine/ItemShelves.h"
#include <array>
#include <new>
#include <span>
#include <tuple>
#include <utility>

namespace Tessarin::engine {
namespace {

// Threads that only submit would drain a thread-local list and threads that only run would flood it. So whole pages of items
// travel through the depot, 32 under one lock, and no malloc once the depot is warm. A batch is of one page of memory, and stays
// so: a thread that runs the items of several others gathers each page's on a shelf of its own. Mixed ones would scatter every
// long backlog all over the memory, at four times the cost ("mainloop", a post, 4 threads); a few, for the thread's own use, do
// not.
//
// Nothing here is shared: what another thread wrote into an item was seen when the item came to this thread, through its queue or
// through the depot's lock.
struct Cache {
    static constexpr int mostMixed = 128;

    Batch mixed;   // of any pages, given back here and taken again: threads that run and submit alike need nothing else
    Batch current; // to take from, and to give back what is of its page
    std::uintptr_t page = 0;
    Shelves* shelves = nullptr; // made when first needed, until the thread ends
    enum class Phase : std::uint8_t { New, Living, Ended } phase = Phase::New; // of the thread
};
constinit thread_local Cache cache [[gnu::tls_model("initial-exec")]];

void giveShelves() noexcept {
    if (cache.shelves) cache.shelves->giveAll();
    delete std::exchange(cache.shelves, nullptr);
}

void giveEverything() noexcept {
    std::array<Batch, Cache::mostMixed + 1> parts;
    std::size_t count = 0;
    for (parts[count++] = std::exchange(cache.current, {}); cache.mixed.count > 0;) parts[count++].push(cache.mixed.pop());
    if (parts[0].isFull()) {
        PageList page;
        page.push(std::exchange(parts[0], {}).items);
        itemDepot().put(page);
    }
    itemDepot().put(std::span(parts.data(), count));
    giveShelves();
}

struct CacheReturner {
    ~CacheReturner() {
        giveEverything();
        cache.phase = Cache::Phase::Ended;
    }
};

/// The thread has its first item, or one after its end, which stays with nobody.
[[gnu::noinline]] void begin() noexcept {
    if (cache.phase == Cache::Phase::Ended) return giveEverything();
    cache.phase = Cache::Phase::Living;
    thread_local CacheReturner const returner;
    static_cast<void>(&returner);
}

[[gnu::noinline]] Shelves& makeShelves() { return *(cache.shelves = new Shelves); }
Shelves& shelves() { return cache.shelves ? *cache.shelves : makeShelves(); }

[[gnu::noinline]] void refill() {
    if (cache.phase == Cache::Phase::New) begin();
    auto& own = shelves();
    cache.current = own.take();
    if (cache.current.count == 0 && own.pages().count > 0) cache.current = {own.pages().pop(), Batch::size};
    if (cache.current.count == 0) std::tie(cache.current, own.pages()) = itemDepot().take();
    cache.page = pageOf(cache.current.items);
    if (cache.phase == Cache::Phase::Ended) giveShelves();
}

void shelve(FreeItem* item, std::uintptr_t page) noexcept {
    auto& own = shelves();
    auto& shelf = own.of(page);
    shelf.batch.push(item);
    if (shelf.batch.isFull()) own.keepPage(std::exchange(shelf, {}).batch.items);
}

} // namespace

inline void* takeMemory() {
    if (cache.mixed.count == 0 && cache.current.count == 0) refill();
    auto& batch = cache.mixed.count > 0 ? cache.mixed : cache.current;
    auto* const memory = batch.pop();
    __builtin_prefetch(batch.items, 1); // behind a long backlog it comes from far away (async to a global queue)
    return memory;
}

void* memoryForItem() { return takeMemory(); }
WorkItem* newItem(Closure<void()>&& work, ItemKind kind) {
    return ::new (takeMemory()) WorkItem{std::move(work), static_cast<std::uintptr_t>(kind)};
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
    if (cache.phase != Cache::Phase::Living) begin();
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
