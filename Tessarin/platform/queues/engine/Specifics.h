#pragma once
#include "Tessarin/platform/queues/engine/DispatchQueue.h"
#include <array>

namespace Tessarin::engine {

struct Specific {
    std::atomic<void const*> key = nullptr; // null: free
    std::atomic<void*> value = nullptr;
    dispatch_function_t destructor = nullptr; // guarded by rareLock
};

/// A queue's values, in blocks that are only ever added to, since readers take no lock. A removed value leaves its key behind.
struct SpecificTable {
    std::array<Specific, 4> entries{};
    std::atomic<SpecificTable*> next = nullptr;

    Specific* find(void const* key) noexcept {
        for (auto* block = this; block; block = block->next.load(std::memory_order_acquire))
            for (auto& entry : block->entries)
                if (entry.key.load(std::memory_order_relaxed) == key) return &entry; // the value has an order of its own
        return nullptr;
    }
};

/// Hands every value to its destructor, and frees the table.
void destroySpecifics(SpecificTable* table);

} // namespace Tessarin::engine
