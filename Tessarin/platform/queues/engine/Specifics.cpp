#include "Tessarin/platform/queues/engine/Specifics.h"

#include "Tessarin/platform/queues/Queue.h"
#include "Tessarin/platform/queues/engine/Required.h"
#include "Tessarin/platform/queues/engine/Thread.h"
#include <mutex>

namespace Tessarin {

using namespace engine;

namespace {

void destroyLater(void* value, dispatch_function_t destructor) {
    if (value && destructor) defaultGlobalQueue().submit(newItem([=] { destructor(value); }));
}

/// The entry of the key, or a free one in a block that may have to be made.
Specific& entryFor(std::atomic<SpecificTable*>& first, void const* key) {
    for (auto* link = &first;; link = &link->load(std::memory_order_relaxed)->next) {
        auto* block = link->load(std::memory_order_relaxed);
        if (!block || block == &noSpecifics) link->store(block = new SpecificTable, std::memory_order_release);
        for (auto& entry : block->entries)
            if (auto const* const present = entry.key.load(std::memory_order_relaxed); present == key || !present) return entry;
    }
}

} // namespace

namespace engine {

constinit SpecificTable noSpecifics;

void* SpecificTable::findBehindFirst(void const* key) const noexcept {
    for (auto const* block = this; block; block = block->next.load(std::memory_order_acquire))
        for (auto const& entry : block->entries) {
            auto const* const present = entry.key.load(std::memory_order_relaxed);
            if (present == key) return entry.value.load(std::memory_order_acquire);
            if (!present) return nullptr;
        }
    return nullptr;
}

} // namespace engine

void DispatchQueue::setSpecific(void const* key, void* value, dispatch_function_t destructor) {
    if (!key) return;
    std::unique_lock hold(rareLock);
    auto& entry = entryFor(specifics_, key);
    auto* const before = entry.value.exchange(value, std::memory_order_acq_rel);
    auto const destructorBefore = std::exchange(entry.destructor, destructor);
    entry.key.store(key, std::memory_order_release);
    specifics_.load(std::memory_order_relaxed)->marks.fetch_or(SpecificTable::markOf(key), std::memory_order_release);
    hold.unlock();
    destroyLater(before, destructorBefore);
}

void* DispatchQueue::specific(void const* key) const noexcept {
    return specifics_.load(std::memory_order_acquire)->find(key, SpecificTable::markOf(key));
}

void engine::destroySpecifics(SpecificTable* table) {
    while (table && table != &noSpecifics) {
        for (auto const& entry : table->entries) destroyLater(entry.value.load(std::memory_order_acquire), entry.destructor);
        delete std::exchange(table, table->next.load(std::memory_order_acquire));
    }
}

namespace {

inline void* nearestSpecific(DispatchQueue const* queue, void const* key) noexcept {
    for (;;) {
        if (void* const value = queue->specific(key)) [[likely]]
            return value;
        if (!(queue = queue->target())) return nullptr;
    }
}

/// Apart, so that the other way needs no registers of the caller's.
[[gnu::noinline]] void* specificOutsideItems(void const* key) noexcept {
    auto const* const queue = currentQueue();
    return queue ? nearestSpecific(queue, key) : nullptr;
}

} // namespace

DispatchQueue* engine::currentQueue() noexcept {
    if (auto const* const frame = thisThread.frames) return frame->queue;
    return isMainThread() ? &mainQueue() : nullptr;
}

void* dispatch_get_specific(void const* key) {
    auto const* const frame = thisThread.frames;
    return frame ? nearestSpecific(frame->queue, key) : specificOutsideItems(key);
}

bool queueIsHeld(dispatch_queue_t const& wanted) {
    if (required(wanted, __func__).isMain()) return isMainThread();
    for (auto const* frame = thisThread.frames; frame; frame = frame->outer)
        for (auto const* queue = frame->queue; queue; queue = queue->target())
            if (queue == wanted.get()) return true;
    return false;
}

} // namespace Tessarin
