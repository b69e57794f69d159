#include "Tessarin/platform/queues/engine/Specifics.h"

#include "Tessarin/platform/queues/Queue.h"
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
        if (!link->load(std::memory_order_relaxed)) link->store(new SpecificTable, std::memory_order_release);
        for (auto& entry : link->load(std::memory_order_relaxed)->entries)
            if (auto const* const present = entry.key.load(std::memory_order_relaxed); present == key || !present) return entry;
    }
}

} // namespace

void DispatchQueue::setSpecific(void const* key, void* value, dispatch_function_t destructor) {
    if (!key) return;
    std::unique_lock hold(rareLock);
    auto& entry = entryFor(specifics_, key);
    auto* const before = entry.value.exchange(value, std::memory_order_acq_rel);
    auto const destructorBefore = std::exchange(entry.destructor, destructor);
    entry.key.store(key, std::memory_order_release);
    hold.unlock();
    destroyLater(before, destructorBefore);
}

void* DispatchQueue::specific(void const* key) const noexcept {
    auto* const table = specifics_.load(std::memory_order_acquire);
    auto const* const entry = table && key ? table->find(key) : nullptr;
    return entry ? entry->value.load(std::memory_order_acquire) : nullptr;
}

void engine::destroySpecifics(SpecificTable* table) {
    while (table) {
        for (auto const& entry : table->entries) destroyLater(entry.value.load(std::memory_order_acquire), entry.destructor);
        delete std::exchange(table, table->next.load(std::memory_order_acquire));
    }
}

DispatchQueue* engine::currentQueue() noexcept {
    if (auto const* const frame = thisThread.frames) return frame->queue;
    return isMainThread() ? &mainQueue() : nullptr;
}

void* dispatch_get_specific(void const* key) {
    for (auto const* queue = currentQueue(); queue; queue = queue->target())
        if (void* const value = queue->specific(key)) return value;
    return nullptr;
}

bool queueIsHeld(dispatch_queue_t const& wanted) {
    if (wanted->isMain()) return isMainThread();
    for (auto const* frame = thisThread.frames; frame; frame = frame->outer)
        for (auto const* queue = frame->queue; queue; queue = queue->target())
            if (queue == wanted.get()) return true;
    return false;
}

} // namespace Tessarin
