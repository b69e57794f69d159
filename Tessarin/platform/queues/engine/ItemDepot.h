#pragma once
#include "Tessarin/platform/queues/engine/Parking.h"
#include "Tessarin/platform/queues/engine/WorkItem.h"
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Tessarin::engine {

/// The memory of a work item while it is none.
struct FreeItem {
    FreeItem* next;
    FreeItem* nextBatch;
};

/// Free items of one page of memory, some or all.
struct Batch {
    static constexpr int size = 64;
    static constexpr std::size_t pageSize = size * sizeof(WorkItem);

    FreeItem* items = nullptr;
    int count = 0;

    bool isFull() const noexcept { return count == size; }
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

/// Whole pages, as what their batches begin with.
struct PageList {
    FreeItem* first = nullptr;
    int count = 0;

    void push(FreeItem* items) noexcept {
        items->nextBatch = std::exchange(first, items);
        ++count;
    }
    FreeItem* pop() noexcept {
        --count;
        return std::exchange(first, first->nextBatch);
    }
};

inline std::uintptr_t pageOf(void const* item) noexcept { return reinterpret_cast<std::uintptr_t>(item) / Batch::pageSize; }

/// Where threads get and leave free items, many pages at a time. It grows with the longest backlog so far; `trim` gives memory
/// back.
///
/// Every thread may call it. The lock guards what is listed here, never the items themselves: a free item belongs to whoever
/// holds it in a batch, and passes from thread to thread with the lock. Memory that the kernel has (fresh, or given back to it)
/// is not touched under the lock.
class ItemDepot {
public:
    static constexpr int mostAtOnce = 32; // pages

    void put(PageList pages) noexcept;
    /// What is less than a page waits for the rest of its page.
    void put(std::span<Batch const> parts) noexcept;
    /// Some pages; rather than fresh memory, a part of one.
    std::pair<Batch, PageList> take();
    /// Gives whole pages back to the system, when there are many. For quiet moments: it looks at every free page.
    void trim() noexcept;

private:
    /// 64 pages in a row. Those of the mask are in nobody's hands, and cost nothing.
    struct Chunk {
        std::byte* memory;
        std::uint64_t unused;
    };
    static constexpr std::size_t chunkSize = 64 * Batch::pageSize;

    Chunk& chunkOf(std::byte* memory) noexcept;
    Chunk& chunkWithUnused();
    Batch takePart() noexcept;
    PageList takeUnused(std::unique_lock<Lock>& hold);
    std::vector<Chunk> takeForTheSystem(std::vector<std::byte*>& emptied);
    void addUnused(std::span<Chunk const> pages, std::vector<std::byte*>& emptied) noexcept;

    Lock lock_; // guards the rest
    PageList pages_;
    std::unordered_map<std::uintptr_t, Batch> parts_; // by page; none is empty or full
    std::vector<Chunk> chunks_;                       // by address
    std::size_t unusedHint_ = 0;                      // no chunk before it has unused pages
};

ItemDepot& itemDepot();

} // namespace Tessarin::engine
