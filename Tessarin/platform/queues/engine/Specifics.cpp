#include "Tessarin/platform/queues/engine/Specifics.h"

#include "Tessarin/platform/queues/Queue.h"
#include "Tessarin/platform/queues/engine/Thread.h"
#include <mutex>

namespace Tessarin {

using namespace engine;

namespace {

Specific* find(SpecificTable const* table, void const* key) noexcept {
    if (!table) return nullptr;
    auto const count = table->count.load(std::memory_order_acquire);
    for (std::size_t i = 0; i < count; ++i)
        if (table->entries[i].key == key) return &table->entries[i];
    return nullptr;
}

void destroyLater(void* value, dispatch_function_t destructor) {
    if (value && destructor) defaultGlobalQueue().submit(newItem([=] { destructor(value); }));
}

SpecificTable* grown(SpecificTable* table) {
    auto* const larger = new SpecificTable(table ? 2 * table->capacity : 2);
    larger->before = table;
    auto const count = table ? table->count.load(std::memory_order_relaxed) : 0;
    for (std::size_t i = 0; i < count; ++i) {
        larger->entries[i].key = table->entries[i].key;
        larger->entries[i].value.store(table->entries[i].value.load(std::memory_order_relaxed), std::memory_order_relaxed);
        larger->entries[i].destructor = table->entries[i].destructor;
    }
    larger->count.store(count, std::memory_order_relaxed);
    return larger;
}

} // namespace

void DispatchQueue::setSpecific(void const* key, void* value, dispatch_function_t destructor) {
    std::unique_lock hold(rareLock);
    auto* table = specifics_.load(std::memory_order_relaxed);
    auto* entry = find(table, key);
    if (!entry) {
        if (!value) return;
        auto const count = table ? table->count.load(std::memory_order_relaxed) : 0;
        if (!table || count == table->capacity) table = grown(table);
        entry = &table->entries[count];
        entry->key = key;
        table->count.store(count + 1, std::memory_order_release);
        specifics_.store(table, std::memory_order_release);
    }
    auto* const before = entry->value.exchange(value, std::memory_order_acq_rel);
    auto const destructorBefore = std::exchange(entry->destructor, destructor);
    hold.unlock();
    destroyLater(before, destructorBefore);
}

void* DispatchQueue::specific(void const* key) const noexcept {
    auto const* const entry = find(specifics_.load(std::memory_order_acquire), key);
    return entry ? entry->value.load(std::memory_order_acquire) : nullptr;
}

void engine::destroySpecifics(SpecificTable* table) {
    auto const count = table ? table->count.load(std::memory_order_acquire) : 0;
    for (std::size_t i = 0; i < count; ++i) destroyLater(table->entries[i].value.load(std::memory_order_acquire), table->entries[i].destructor);
    delete table;
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
