#include "Tessarin/platform/runtime/ObjectSlab.h"

#include "Tessarin/platform/runtime/PagePoolPrivate.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <new>
#include <utility>

namespace Tessarin {
namespace {

#if !defined(__SANITIZE_ADDRESS__)
constexpr std::size_t step = 16;

/// Stands at the start of its page.
struct Slab {
    // While objects are still taken from it, more are counted than fit.
    static constexpr std::uint32_t whileOpen = 1U << 20;

    std::atomic<std::uint32_t> objects{whileOpen};
    std::uint16_t used = step;
    std::uint16_t taken = 0;

    static Slab& of(void* memory) noexcept {
        return *reinterpret_cast<Slab*>(reinterpret_cast<std::uintptr_t>(memory) & ~std::uintptr_t{PagePool::pageSize - 1});
    }
    void release(std::uint32_t count) noexcept {
        if (objects.fetch_sub(count, std::memory_order_acq_rel) == count) PagePool::give(this);
    }
};
static_assert(sizeof(Slab) <= step);

void close(Slab& slab) noexcept { slab.release(Slab::whileOpen - slab.taken); }

// The pages from which the thread takes, by size. Without a destructor of its own, so that reading it needs no check.
[[gnu::tls_model("initial-exec")]] constinit thread_local std::array<Slab*, ObjectSlab::largest / step + 1> openSlabs{};

/// Closes them when the thread ends.
struct SlabsOfThread {
    bool areWatched = false;
    ~SlabsOfThread() {
        for (auto*& slab : openSlabs)
            if (slab) close(*std::exchange(slab, nullptr));
    }
};
thread_local SlabsOfThread slabsOfThread;

Slab* freshSlab(Slab* full) {
    if (full) close(*full);
    slabsOfThread.areWatched = true;
    return ::new (PagePool::take()) Slab;
}

#endif

} // namespace

// With the address sanitizer each object is an allocation of its own, so that it sees every use after release.
#if defined(__SANITIZE_ADDRESS__)
void* ObjectSlab::take(std::size_t size) { return ::operator new(size); }
void ObjectSlab::give(void* memory, std::size_t) noexcept { ::operator delete(memory); }
#else
void* ObjectSlab::take(std::size_t size) {
    if (size > largest) return ::operator new(size);
    auto const rounded = (size + step - 1) / step * step;
    auto*& slab = openSlabs[rounded / step];
    if (!slab || slab->used + rounded > PagePool::pageSize) slab = freshSlab(std::exchange(slab, nullptr));
    auto* const memory = reinterpret_cast<char*>(slab) + slab->used;
    slab->used = static_cast<std::uint16_t>(slab->used + rounded);
    ++slab->taken;
    return memory;
}

void ObjectSlab::give(void* memory, std::size_t size) noexcept {
    size > largest ? ::operator delete(memory) : Slab::of(memory).release(1);
}
#endif

} // namespace Tessarin
