#include "Tessarin/platform/queues/engine/ItemDepot.h"

#include <algorithm>
#include <functional>
#include <mutex>
#include <new>

namespace Tessarin::engine {
namespace {

constexpr std::size_t largestChunk = 4096; // items, 256 KiB
constexpr int batchesToKeep = 256;         // a megabyte

constexpr std::align_val_t alignment{alignof(WorkItem)};

/// Makes a list of batches; gives its last.
FreeItem* carve(std::byte* memory, std::size_t items, FreeItem*& batches) {
    FreeItem* last = nullptr;
    for (auto* at = memory + items * sizeof(WorkItem); at != memory;) {
        Batch batch;
        while (!batch.isFull()) batch.push(::new (at -= sizeof(WorkItem)) FreeItem{nullptr, nullptr});
        batch.items->nextBatch = std::exchange(batches, batch.items);
        if (!last) last = batch.items;
    }
    return last;
}

} // namespace

ItemDepot& itemDepot() {
    static auto& depot = *new ItemDepot;
    return depot;
}

void ItemDepot::put(Batch full) noexcept {
    std::lock_guard const hold(lock_);
    full.items->nextBatch = batches_;
    batches_ = full.items;
    ++batchCount_;
}

void ItemDepot::putLoose(Batch batch) noexcept {
    std::unique_lock hold(lock_);
    while (batch.count > 0) {
        loose_.push(batch.pop());
        if (!loose_.isFull()) continue;
        auto const full = std::exchange(loose_, {});
        hold.unlock();
        put(full);
        hold.lock();
    }
}

Batch ItemDepot::take() {
    std::unique_lock hold(lock_);
    if (!batches_) {
        auto const items = chunks_.empty() ? std::size_t{Batch::size} : std::min(2 * chunks_.back().items, largestChunk);
        hold.unlock(); // fresh memory takes its time
        auto* const memory = static_cast<std::byte*>(::operator new(items * sizeof(WorkItem), alignment));
        FreeItem* batches = nullptr;
        auto* const last = carve(memory, items, batches);
        hold.lock();
        chunks_.push_back({memory, items});
        last->nextBatch = batches_;
        batches_ = batches;
        batchCount_ += static_cast<int>(items / Batch::size);
    }
    --batchCount_;
    auto* const items = batches_;
    batches_ = items->nextBatch;
    return {items, Batch::size};
}

ItemDepot::Chunk& ItemDepot::chunkOf(FreeItem* item) noexcept {
    auto* const address = reinterpret_cast<std::byte*>(item);
    return *std::prev(std::ranges::upper_bound(chunks_, address, std::less<>{}, &Chunk::memory));
}

void ItemDepot::trim() {
    std::lock_guard const hold(lock_);
    if (batchCount_ <= batchesToKeep) return;
    std::ranges::sort(chunks_, std::less<>{}, &Chunk::memory);

    FreeItem* all = nullptr;
    for (auto* batch = std::exchange(batches_, nullptr); batch;) {
        auto* const nextBatch = batch->nextBatch;
        for (auto* item = batch; item;) {
            ++chunkOf(item).unused;
            auto* const next = item->next;
            item->next = all;
            all = item;
            item = next;
        }
        batch = nextBatch;
    }
    batchCount_ = 0;

    Batch batch = std::exchange(loose_, {}); // its items were not counted, so their chunks stay
    while (all) {
        auto* const item = std::exchange(all, all->next);
        if (auto const& chunk = chunkOf(item); chunk.unused == chunk.items) continue;
        batch.push(item);
        if (!batch.isFull()) continue;
        batch.items->nextBatch = batches_;
        batches_ = batch.items;
        ++batchCount_;
        batch = {};
    }
    loose_ = batch;

    std::erase_if(chunks_, [](auto const& chunk) {
        if (chunk.unused != chunk.items) return false;
        ::operator delete(chunk.memory, alignment);
        return true;
    });
    for (auto& chunk : chunks_) chunk.unused = 0;
}

} // namespace Tessarin::engine
