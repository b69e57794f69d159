#pragma once
#include "Tessarin/platform/queues/engine/DispatchQueue.h"

namespace Tessarin::engine {

struct Specific {
    void const* key = nullptr;
    std::atomic<void*> value = nullptr;
    dispatch_function_t destructor = nullptr; // guarded by rareLock
};

/// A queue's values. Readers take no lock, so keys never change place: a new key that does not fit makes a table twice as long, and
/// the old one lives on behind it, for a reader that may still be in it, until the queue dies.
struct SpecificTable {
    explicit SpecificTable(std::size_t size) : capacity(size), entries(new Specific[size]) {}
    ~SpecificTable() {
        delete[] entries;
        delete before;
    }

    std::size_t const capacity;
    std::atomic<std::size_t> count = 0;
    Specific* const entries;
    SpecificTable* before = nullptr;
};

/// Hands every value to its destructor, and frees the table.
void destroySpecifics(SpecificTable* table);

} // namespace Tessarin::engine
