#pragma once
#include "Tessarin/Export.h"
#include <cstddef>

namespace Tessarin {

/// Memory for objects of one size that are made by the hundred thousand: each thread takes them from a page of its own, one
/// behind the other, and the page is free again once all of its objects are. Neither making nor releasing one takes a lock.
/// Releasing is fine on any thread.
class TESSARIN_API ObjectSlab {
public:
    static constexpr std::size_t largest = 512; // greater ones come from the heap

    static void* take(std::size_t size);
    static void give(void* memory, std::size_t size) noexcept;
};

/// Lets `std::allocate_shared` put an object and its counts there.
template <class T> struct ObjectSlabAllocator {
    using value_type = T;
    ObjectSlabAllocator() = default;
    template <class U> ObjectSlabAllocator(ObjectSlabAllocator<U> const&) noexcept {}

    T* allocate(std::size_t count) { return static_cast<T*>(ObjectSlab::take(count * sizeof(T))); }
    void deallocate(T* memory, std::size_t count) noexcept { ObjectSlab::give(memory, count * sizeof(T)); }
    friend bool operator==(ObjectSlabAllocator, ObjectSlabAllocator) noexcept { return true; }
};

} // namespace Tessarin
