#pragma once
#include "Tessarin/platform/queues/engine/Parking.h"
#include "Tessarin/platform/queues/engine/WorkItem.h"
#include <cstddef>
#include <utility>
#include <vector>

namespace Tessarin::engine {

/// The memory of a work item while it is none.
struct FreeItem {
    FreeItem* next;
    FreeItem* nextBatch;
};

/// Free items on their way between threads.
struct Batch {
    static constexpr int size = 64;

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

/// Where threads get and leave batches of free items. It grows with the longest backlog so far; `trim` gives memory back.
class ItemDepot {
public:
    void put(Batch full) noexcept;
    /// For the batches of a thread that ends: what is less than a batch is gathered.
    void putLoose(Batch batch) noexcept;
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

    Lock lock_; // guards the rest
    FreeItem* batches_ = nullptr;
    int batchCount_ = 0;
    Batch loose_;
    std::vector<Chunk> chunks_;
};

ItemDepot& itemDepot();

} // namespace Tessarin::engine
