#include "Tessarin/platform/queues/engine/ItemDepot.h"

#include <algorithm>
#include <functional>
#include <new>

namespace Tessarin::engine {
namespace {

constexpr std::size_t largestChunk = 4096; // items, 256 KiB
constexpr int batchesToKeep = 256;         // a megabyte

constexpr std::align_val_t alignment{Batch::pageSize};

/// Makes a list of batches, a page each; gives its last.
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

void ItemDepot::putFull(FreeItem* items) noexcept {
    items->nextBatch = std::exchange(batches_, items);
    ++batchCount_;
}

void ItemDepot::put(Batch batch) noexcept {
    if (batch.count == 0) return;
    std::lock_guard const hold(lock_);
    if (batch.isFull()) return putFull(batch.items);
    auto const found = parts_.try_emplace(pageOf(batch.items)).first;
    while (batch.count > 0) found->second.push(batch.pop());
    if (!found->second.isFull()) return;
    putFull(found->second.items);
    parts_.erase(found);
}

Batch ItemDepot::takePart() noexcept {
    auto const found = parts_.begin();
    auto const batch = found->second;
    parts_.erase(found);
    return batch;
}

void ItemDepot::addFresh(std::unique_lock<Lock>& hold) {
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

Batch ItemDepot::take() {
    std::unique_lock hold(lock_);
    if (!batches_ && !parts_.empty()) return takePart();
    if (!batches_) addFresh(hold);
    --batchCount_;
    auto* const items = batches_;
    batches_ = items->nextBatch;
    return {items, Batch::size};
}

ItemDepot::Chunk& ItemDepot::chunkOf(FreeItem* item) noexcept {
    auto* const address = reinterpret_cast<std::byte*>(item);
    return *std::prev(std::ranges::upper_bound(chunks_, address, std::less<>{}, &Chunk::memory));
}

/// Only chunks all of whose pages are whole can go, so parts need not be looked at.
void ItemDepot::trim() {
    std::lock_guard const hold(lock_);
    if (batchCount_ <= batchesToKeep) return;
    std::ranges::sort(chunks_, std::less<>{}, &Chunk::memory);
    for (auto* batch = batches_; batch; batch = batch->nextBatch) chunkOf(batch).unused += Batch::size;
    for (auto* batch = std::exchange(batches_, nullptr); batch;) {
        auto* const next = batch->nextBatch;
        if (auto const& chunk = chunkOf(batch); chunk.unused == chunk.items)
            --batchCount_;
        else
            batch->nextBatch = std::exchange(batches_, batch);
        batch = next;
    }
    std::erase_if(chunks_, [](auto const& chunk) {
        if (chunk.unused != chunk.items) return false;
        ::operator delete(chunk.memory, alignment);
        return true;
    });
    for (auto& chunk : chunks_) chunk.unused = 0;
}

} // namespace Tessarin::engine
