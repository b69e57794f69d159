#include "Tessarin/platform/runtime/SpareBlock.h"

#include <new>
#include <utility>

namespace Tessarin {

// With the address sanitizer each object is an allocation of its own, so that it sees every use after release.
#if defined(__SANITIZE_ADDRESS__)
void* SpareBlock::take(std::size_t size) { return ::operator new(size); }
void SpareBlock::give(void* block, std::size_t) noexcept { ::operator delete(block); }
#else
namespace {

struct Spare {
    void* block;
    std::size_t size;
};
// Without a destructor of its own, so that reading it needs no check.
[[gnu::tls_model("initial-exec")]] constinit thread_local Spare spare{};
[[gnu::tls_model("initial-exec")]] constinit thread_local bool isEnding = false;

/// Frees it when the thread ends.
struct SpareOfThread {
    bool isWatched = false;
    ~SpareOfThread() {
        isEnding = true;
        ::operator delete(std::exchange(spare.block, nullptr));
    }
};
thread_local SpareOfThread spareOfThread;

} // namespace

void* SpareBlock::take(std::size_t size) {
    if (spare.block && spare.size == size) return std::exchange(spare.block, nullptr);
    return ::operator new(size);
}

void SpareBlock::give(void* block, std::size_t size) noexcept {
    if (spare.block || isEnding) return ::operator delete(block);
    if (spare.size != size) spareOfThread.isWatched = true; // the first one of the thread
    spare = {block, size};
}
#endif

} // namespace Tessarin
