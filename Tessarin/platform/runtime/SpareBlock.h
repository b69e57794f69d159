#pragma once
#include "Tessarin/Export.h"
#include <cstddef>

namespace Tessarin {

/// Memory for short-lived objects of a few sizes: each thread keeps the block that was given back last, and takes it again. Half
/// the cost of the heap where an object is made, used and released over and over. Any thread.
class TESSARIN_API SpareBlock {
public:
    static void* take(std::size_t size);
    static void give(void* block, std::size_t size) noexcept;
};

/// Lets `std::allocate_shared` put an object and its counts there.
template <class T> struct SpareBlockAllocator {
    using value_type = T;
    SpareBlockAllocator() = default;
    template <class U> SpareBlockAllocator(SpareBlockAllocator<U> const&) noexcept {}

    T* allocate(std::size_t count) { return static_cast<T*>(SpareBlock::take(count * sizeof(T))); }
    void deallocate(T* block, std::size_t count) noexcept { SpareBlock::give(block, count * sizeof(T)); }
    friend bool operator==(SpareBlockAllocator, SpareBlockAllocator) noexcept { return true; }
};

} // namespace Tessarin
