#include "Tessarin/platform/queues/engine/ItemDepot.h"

#include <algorithm>
#include <array>
#include <bit>
#include <functional>
#include <iterator>
#include <new>
#include <sys/mman.h>

// A leak checker, where the program has one: it looks for pointers in these parts of memory too.
extern "C" {
[[gnu::weak]] void __lsan_register_root_region(void const* begin, std::size_t size);
[[gnu::weak]] void __lsan_unregister_root_region(void const* begin, std::size_t size);
}

namespace Tessarin::engine {
namespace {

constexpr int pagesToKeep = 256; // a megabyte
constexpr std::uint64_t allPages = ~std::uint64_t{0};

/// A page as one batch, its first item first.
FreeItem* carve(std::byte* page) {
    Batch batch;
    for (auto* at = page + Batch::pageSize; at != page;) batch.push(::new (at -= sizeof(WorkItem)) FreeItem{nullptr, nullptr});
    return batch.items;
}

std::byte* mapped(std::size_t size) {
    auto* const memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    if (&__lsan_register_root_region) __lsan_register_root_region(memory, size);
    return static_cast<std::byte*>(memory);
}

void unmap(std::byte* memory, std::size_t size) noexcept {
    if (&__lsan_unregister_root_region) __lsan_unregister_root_region(memory, size);
    ::munmap(memory, size);
}

/// Gives the pages of the mask back, each row of neighbours at once.
void discard(std::byte* memory, std::uint64_t pages) {
    for (int at = 0; pages >> at != 0;) {
        at += std::countr_zero(pages >> at);
        int const length = std::countr_one(pages >> at);
        ::madvise(memory + at * Batch::pageSize, length * Batch::pageSize, MADV_DONTNEED);
        if ((at += length) == 64) return;
    }
}

} // namespace

ItemDepot& itemDepot() {
    static auto& depot = *new ItemDepot;
    return depot;
}

void ItemDepot::put(PageList pages) noexcept {
    if (pages.count == 0) return;
    std::lock_guard const hold(lock_);
    while (pages.count > 0) pages_.push(pages.pop());
}

void ItemDepot::put(std::span<Batch const> parts) noexcept {
    std::lock_guard const hold(lock_);
    for (auto batch : parts) {
        if (batch.count == 0) continue;
        auto const found = parts_.try_emplace(pageOf(batch.items)).first;
        while (batch.count > 0) found->second.push(batch.pop());
        if (!found->second.isFull()) continue;
        pages_.push(found->second.items);
        parts_.erase(found);
    }
}

Batch ItemDepot::takePart() noexcept {
    auto const found = parts_.begin();
    auto const batch = found->second;
    parts_.erase(found);
    return batch;
}

std::pair<Batch, PageList> ItemDepot::take() {
    std::unique_lock hold(lock_);
    PageList taken;
    if (pages_.count > 0) {
        while (taken.count < mostAtOnce && pages_.count > 0) taken.push(pages_.pop());
    } else {
        if (!parts_.empty()) return {takePart(), {}};
        taken = takeUnused(hold);
    }
    auto* const items = taken.pop();
    return {{items, Batch::size}, taken};
}

ItemDepot::Chunk& ItemDepot::chunkOf(std::byte* memory) noexcept {
    return *std::prev(std::ranges::upper_bound(chunks_, memory, std::less<>{}, &Chunk::memory));
}

ItemDepot::Chunk& ItemDepot::chunkWithUnused() {
    for (; unusedHint_ < chunks_.size(); ++unusedHint_)
        if (chunks_[unusedHint_].unused != 0) return chunks_[unusedHint_];
    if (chunks_.size() == chunks_.capacity()) chunks_.reserve(2 * chunks_.size() + 16);
    auto* const memory = mapped(chunkSize);
    auto const place = std::ranges::upper_bound(chunks_, memory, std::less<>{}, &Chunk::memory);
    unusedHint_ = static_cast<std::size_t>(place - chunks_.begin());
    return *chunks_.insert(place, {memory, allPages});
}

/// Pages that nobody has touched; called with the lock, which is given back before they are.
PageList ItemDepot::takeUnused(std::unique_lock<Lock>& hold) {
    // Twice as many whenever all are taken: a process with few items touches few pages.
    auto& chunk = chunkWithUnused();
    int const most = chunks_.size() > 1 ? mostAtOnce : std::clamp(64 - std::popcount(chunk.unused), 1, mostAtOnce);
    std::array<std::byte*, mostAtOnce> found;
    int count = 0;
    while (count < most && chunk.unused != 0) {
        found[count++] = chunk.memory + std::countr_zero(chunk.unused) * Batch::pageSize;
        chunk.unused &= chunk.unused - 1;
    }
    hold.unlock();
    PageList pages;
    while (count > 0) pages.push(carve(found[--count]));
    return pages;
}

void ItemDepot::trim() noexcept {
    try {
        std::vector<std::byte*> emptied;
        auto const pages = takeForTheSystem(emptied);
        for (auto const& [memory, mask] : pages) discard(memory, mask);
        addUnused(pages, emptied);
        for (auto* const memory : emptied) unmap(memory, chunkSize);
    } catch (std::bad_alloc const&) { // nothing was taken yet
    }
}

/// What is more than worth keeping, by chunk. Nobody else sees it until it is given back. Makes room for as many chunks.
std::vector<ItemDepot::Chunk> ItemDepot::takeForTheSystem(std::vector<std::byte*>& emptied) {
    std::vector<Chunk> result;
    std::lock_guard const hold(lock_);
    if (pages_.count <= pagesToKeep) return result;
    result.reserve(chunks_.size());
    emptied.reserve(chunks_.size());
    for (auto const& chunk : chunks_) result.push_back({chunk.memory, 0});
    PageList kept;
    while (kept.count < pagesToKeep) kept.push(pages_.pop());
    while (pages_.count > 0) {
        auto* const page = reinterpret_cast<std::byte*>(pageOf(pages_.pop()) * Batch::pageSize);
        auto const& chunk = chunkOf(page);
        auto const at = static_cast<std::size_t>(page - chunk.memory) / Batch::pageSize;
        result[static_cast<std::size_t>(&chunk - chunks_.data())].unused |= std::uint64_t{1} << at;
    }
    pages_ = kept;
    return result;
}

/// Takes out the chunks of which nothing is used any more, as far as there is room for them.
void ItemDepot::addUnused(std::span<Chunk const> pages, std::vector<std::byte*>& emptied) noexcept {
    std::lock_guard const hold(lock_);
    for (auto const& [memory, mask] : pages)
        if (mask != 0) chunkOf(memory).unused |= mask;
    unusedHint_ = 0;
    std::erase_if(chunks_, [&](auto const& chunk) {
        if (chunk.unused != allPages || emptied.size() == emptied.capacity()) return false;
        emptied.push_back(chunk.memory);
        return true;
    });
}

} // namespace Tessarin::engine
