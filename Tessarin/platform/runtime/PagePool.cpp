#include "Tessarin/platform/runtime/PagePoolPrivate.h"

#include "Tessarin/platform/runtime/SpinLock.h"

#include <sys/mman.h>

#include <cstdint>
#include <mutex>
#include <new>
#include <utility>

namespace Tessarin {
namespace {

constexpr std::size_t chunkSize = std::size_t{2} << 20;

struct FreePage {
    FreePage* next;
};

/// Stands in the first page of its memory. In the list while it has a page to give.
struct Chunk {
    static constexpr std::size_t pages = chunkSize / PagePool::pageSize - 1;

    Chunk* next = nullptr;
    Chunk* previous = nullptr;
    FreePage* free = nullptr;
    std::size_t untouched = 1; // pages from here on were never given
    std::size_t given = 0;

    static Chunk& of(void* page) noexcept {
        return *reinterpret_cast<Chunk*>(reinterpret_cast<std::uintptr_t>(page) & ~(chunkSize - 1));
    }
    bool isFull() const noexcept { return given == pages; }
    void* take() noexcept {
        ++given;
        if (free) return std::exchange(free, free->next);
        return reinterpret_cast<char*>(this) + PagePool::pageSize * untouched++;
    }
    void give(void* page) noexcept {
        --given;
        free = ::new (page) FreePage{free};
    }
};

/// Aligned to its size: as much again is mapped, and cut off on both sides.
Chunk* mapChunk(bool isHuge) {
    auto* const memory = mmap(nullptr, 2 * chunkSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    auto const begin = reinterpret_cast<std::uintptr_t>(memory);
    auto const aligned = (begin + chunkSize - 1) & ~(chunkSize - 1);
    if (aligned != begin) munmap(memory, aligned - begin);
    if (auto const rest = begin + chunkSize - aligned) munmap(reinterpret_cast<void*>(aligned + chunkSize), rest);
#ifdef MADV_HUGEPAGE
    if (isHuge) madvise(reinterpret_cast<void*>(aligned), chunkSize, MADV_HUGEPAGE); // a hint
#endif
    return ::new (reinterpret_cast<void*>(aligned)) Chunk;
}

class Pool {
public:
    static Pool& shared() {
        static auto& pool = *new Pool;
        return pool;
    }

    void* take() {
        std::unique_lock hold(mutex_);
        if (!first_) {
            bool const isHuge = chunks_ != 0;
            hold.unlock();
            auto* const fresh = mapChunk(isHuge);
            hold.lock();
            ++chunks_;
            insert(*fresh);
        }
        auto& chunk = *first_;
        if (chunk.given == 0) --empty_;
        auto* const page = chunk.take();
        if (chunk.isFull()) remove(chunk);
        return page;
    }

    void give(void* page) noexcept {
        auto& chunk = Chunk::of(page);
        std::unique_lock hold(mutex_);
        bool const wasFull = chunk.isFull();
        chunk.give(page);
        if (wasFull) insertUsed(chunk);
        if (chunk.given != 0) return;
        if (empty_++ == 0) return; // one stays, for the next that comes
        --empty_;
        remove(chunk);
        --chunks_;
        hold.unlock();
        munmap(&chunk, chunkSize);
    }

private:
    void insert(Chunk& chunk) noexcept {
        insertUsed(chunk);
        ++empty_;
    }
    void insertUsed(Chunk& chunk) noexcept {
        chunk.previous = nullptr;
        chunk.next = first_;
        if (first_) first_->previous = &chunk;
        first_ = &chunk;
    }
    void remove(Chunk& chunk) noexcept {
        (chunk.previous ? chunk.previous->next : first_) = chunk.next;
        if (chunk.next) chunk.next->previous = chunk.previous;
    }

    SpinLock mutex_;
    // guarded by mutex_:
    Chunk* first_ = nullptr; // of those with a page to give
    std::size_t chunks_ = 0;
    std::size_t empty_ = 0; // chunks of which no page is out
};

} // namespace

// The address sanitizer watches the heap, and looks there for what keeps objects alive.
#if defined(__SANITIZE_ADDRESS__)
void* PagePool::take() { return ::operator new(pageSize, std::align_val_t{pageSize}); }
void PagePool::give(void* page) noexcept { ::operator delete(page, std::align_val_t{pageSize}); }
#else
void* PagePool::take() { return Pool::shared().take(); }
void PagePool::give(void* page) noexcept { Pool::shared().give(page); }
#endif

} // namespace Tessarin
