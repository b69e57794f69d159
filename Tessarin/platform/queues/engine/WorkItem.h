#pragma once
#include "Tessarin/platform/runtime/Closure.h"
#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>

namespace Tessarin::engine {

/// What a queue has to do with an item; concurrent queues tell all four apart, serial ones only whether somebody waits.
enum class ItemKind : std::uintptr_t { Plain = 0, Barrier = 1, Waiter = 2, SharedWaiter = 3 };

/// One piece of queued work: a cache line of its own, so that the lower bits of its address are free for flags. The link to the
/// next item and the item's own kind share a word in the closure's tail padding.
struct alignas(64) WorkItem {
    [[no_unique_address]] Closure<void()> work;
    std::uintptr_t link = 0;

    WorkItem* next() const noexcept { return reinterpret_cast<WorkItem*>(link & ~std::uintptr_t{63}); }
    ItemKind kind() const noexcept { return static_cast<ItemKind>(link & 3); }
    void setNext(WorkItem* next) noexcept { link = reinterpret_cast<std::uintptr_t>(next) | (link & 63); }
    void setKind(ItemKind kind) noexcept { link = (link & ~std::uintptr_t{3}) | static_cast<std::uintptr_t>(kind); }
    /// The turn of a serial queue in its pool: it is owed a thread, whatever the others do.
    bool isTurn() const noexcept { return link & 4; }
    void markAsTurn() noexcept { link |= 4; }
};
static_assert(sizeof(WorkItem) == 64);

/// An item from the calling thread's cache.
WorkItem* newItem(Closure<void()>&& work, ItemKind kind = ItemKind::Plain);
void* memoryForItem();
/// The same for a closure that lies in the item, and is made there (benchmark "queues", coroutines).
template <class F> WorkItem* newItemOf(F&& work) {
    static_assert(sizeof(F) <= Closure<void()>::inlineSize && std::is_nothrow_move_constructible_v<std::remove_cvref_t<F>>);
    return ::new (memoryForItem()) WorkItem{Closure<void()>(std::forward<F>(work)), 0};
}
/// Destroys the closure and gives the item to the calling thread's cache.
void recycle(WorkItem* item) noexcept;

/// Runs the closure where it lies, then recycles. An exception that leaves it ends the process with its message.
void runAndRecycle(WorkItem* item) noexcept;

struct ItemList {
    WorkItem* first = nullptr;
    std::size_t count = 0;
};
/// First in, first out.
class ItemLine {
public:
    bool empty() const noexcept { return !first_; }
    std::size_t count() const noexcept { return count_; }
    void append(WorkItem* item) noexcept {
        item->setNext(nullptr);
        first_ ? last_->setNext(item) : void(first_ = item);
        last_ = item;
        ++count_;
    }
    /// The `count` oldest, as a list of their own; there are as many.
    WorkItem* take(std::size_t count = 1) noexcept {
        auto* const item = first_;
        auto* last = item;
        for (std::size_t at = 1; at < count; ++at) last = last->next();
        first_ = last->next();
        count_ -= count;
        last->setNext(nullptr);
        return item;
    }

private:
    WorkItem* first_ = nullptr;
    WorkItem* last_ = nullptr;
    std::size_t count_ = 0;
};
/// Turns a list that was pushed at its front into the order of submission.
ItemList reversed(WorkItem* list) noexcept;

} // namespace Tessarin::engine
