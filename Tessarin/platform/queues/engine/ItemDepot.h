#pragma once
#include "Tessarin/platform/queues/engine/Parking.h"
#include "Tessarin/platform/queues/engine/WorkItem.h"
#include <cstddef>
#include <cstdint>
#include <mutex>
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

inline std::uintptr_t pageOf(void const* item) noexcept { return reinterpret_cast<std::uintptr_t>(item) / Batch::pageSize; }

/// Where threads get and leave batches of free items. It grows with the longest backlog so far; `trim` gives memory back.
class ItemDepot {
public:
    /// What is less than a page waits for the rest of its page.
    void put(Batch batch) noexcept;
    /// A full batch; part of one rather than fresh memory.
    Batch take();
    /// Frees what is wholly unused, when that is worth it. For quiet moments: it looks at every free item.
    void trim();

private:
    struct Chunk {
        std::byte* memory;
        std::size_t items;
        std::size_t unused = 0;
    };

    Chunk& chunkOf(FreeItem* item) noexcept;
    void putFull(FreeItem* items) noexcept;
    Batch takePart() noexcept;
    void addFresh(std::unique_lock<Lock>& hold);

    Lock lock_; // guards the rest
    FreeItem* batches_ = nullptr;
    int batchCount_ = 0;
    std::unordered_map<std::uintptr_t, Batch> parts_; // by page; none is empty or full
    std::vector<Chunk> chunks_;
};

ItemDepot& itemDepot();

} // namespace Tessarin::engine
