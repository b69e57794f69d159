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
    std::atomic<std::uint64_t> marks = 0; // a bit for every key, also of the blocks behind this one

    /// Most keys that are asked for and absent have no mark (benchmark "costs", a specific that nobody has).
    void* find(void const* key, std::uint64_t mark) const noexcept {
        if (!(marks.load(std::memory_order_relaxed) & mark)) return nullptr;
        if (entries[0].key.load(std::memory_order_relaxed) != key) return findBehindFirst(key);
        return entries[0].value.load(std::memory_order_acquire); // which has an order of its own
    }
    static std::uint64_t markOf(void const* key) noexcept {
        auto const bits = reinterpret_cast<std::uintptr_t>(key); // of a lone byte among others, or of an aligned object
        return std::uint64_t{1} << ((bits ^ bits >> 6) & 63);
    }

private:
    [[gnu::noinline]] void* findBehindFirst(void const* key) const noexcept;
};

/// What every queue has until it gets values: a look-up need not ask whether there is a table.
extern constinit SpecificTable noSpecifics;

/// Hands every value to its destructor, and frees the table.
void destroySpecifics(SpecificTable* table);

} // namespace Tessarin::engine
