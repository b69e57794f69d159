#include "benchmarks/queues/Groups.h"
#include "benchmarks/queues/Peers.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<std::size_t> allocationCount = 0;

void* allocate(std::size_t size, std::size_t alignment = alignof(std::max_align_t)) {
    allocationCount.fetch_add(1, std::memory_order_relaxed);
    auto const rounded = (size + alignment - 1) / alignment * alignment;
    if (void* const memory = std::aligned_alloc(alignment, rounded)) return memory;
    throw std::bad_alloc();
}
} // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new(std::size_t size, std::align_val_t alignment) { return allocate(size, static_cast<std::size_t>(alignment)); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }

std::size_t Tessarin::benchmarks::allocations() { return allocationCount.load(std::memory_order_relaxed); }

int main(int argc, char** argv) {
    using namespace Tessarin::benchmarks;
    Report report(argc, argv, otherPeerNames());
    benchCosts(report); // first, while no cache is warm
    benchSync(report);
    benchAsync(report);
    benchHops(report);
    benchCoroutines(report);
    benchTimers(report);
    return report.finish();
}
