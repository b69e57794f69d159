#include "Tessarin/platform/queues/engine/DispatchQueue.h"

#include "Tessarin/platform/queues/engine/Pool.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include <mutex>

namespace Tessarin {

using namespace engine;

namespace {
std::uint64_t asBits(WorkItem* item) { return reinterpret_cast<std::uintptr_t>(item); }
WorkItem* itemsOf(std::uint64_t bits) { return reinterpret_cast<WorkItem*>(bits & state::Items); }
} // namespace

void DispatchQueue::submit(WorkItem* item) noexcept {
    if (isGlobal())
        static_cast<GlobalQueue*>(this)->pool.submit(item);
    else
        push(item);
}

void DispatchQueue::push(WorkItem* item) noexcept {
    auto* queue = this;
    while (queue && queue->enqueue(item)) queue = queue->lineUp(item);
}

/// Whether nobody looks after the queue, so that it must line up: then the caller has got its token.
bool DispatchQueue::enqueue(WorkItem* item) noexcept {
    bool retained = false;
    auto bits = state_.load(std::memory_order_relaxed);
    for (;;) {
        item->setNext(itemsOf(bits));
        auto next = (bits & ~state::Items) | asBits(item);
        bool const unattended = !(bits & (state::Owned | state::Token));
        if (unattended) {
            next |= state::Token | (bits & state::Suspended ? state::Parked : 0);
            // The token's reference must be there before the token: the queue may be drained before this call returns.
            if (!std::exchange(retained, true)) retain();
        }
        if (!state_.compare_exchange_weak(bits, next, std::memory_order_acq_rel, std::memory_order_relaxed)) continue;
        if (retained && !unattended) release();
        return unattended && !(bits & state::Suspended);
    }
}

/// Announces the queue where it is served: at its pool, to the main thread, or else by `turn` that is to be queued on its target.
DispatchQueue* DispatchQueue::lineUp(WorkItem*& turn) noexcept {
    auto* const above = target();
    if (!above) {
        signalMainThread();
        return nullptr;
    }
    turn = newItem([this] { thisThread.next = {this, nullptr}; });
    if (!isConcurrent()) turn->markAsTurn();
    if (!above->isGlobal()) return above;
    static_cast<GlobalQueue*>(above)->pool.submitQueue(turn);
    return nullptr;
}

void DispatchQueue::submitToTarget() noexcept {
    WorkItem* turn = nullptr;
    if (auto* const above = lineUp(turn)) above->push(turn);
}

bool DispatchQueue::detach() noexcept {
    auto const bits = state_.fetch_and(~state::Items, std::memory_order_acq_rel);
    fifo_ = reversed(itemsOf(bits)).first;
    return fifo_ != nullptr;
}

bool DispatchQueue::beginDrain() noexcept {
    auto bits = state_.load(std::memory_order_relaxed);
    for (;;) {
        auto const next = bits & state::Suspended ? bits | state::Parked : bits | state::Owned;
        if (!state_.compare_exchange_weak(bits, next, std::memory_order_acq_rel, std::memory_order_relaxed)) continue;
        turnUsed_ = false;
        return next & state::Owned;
    }
}

bool DispatchQueue::finish() noexcept {
    auto bits = state_.load(std::memory_order_relaxed);
    for (;;) {
        if (bits & state::Items) return false;
        auto const next = bits & ~(state::Owned | state::Token | state::Sleepers);
        if (!state_.compare_exchange_weak(bits, next, std::memory_order_acq_rel, std::memory_order_relaxed)) continue;
        if (bits & state::Sleepers) unpark(state_, 1);
        release();
        return true;
    }
}

void DispatchQueue::requeue() noexcept {
    state_.fetch_and(~state::Owned, std::memory_order_acq_rel);
    submitToTarget();
}

bool DispatchQueue::parkSuspended() noexcept {
    auto bits = state_.load(std::memory_order_relaxed);
    for (;;) {
        if (!(bits & state::Suspended)) return false;
        auto const next = (bits & ~state::Owned) | state::Parked;
        if (state_.compare_exchange_weak(bits, next, std::memory_order_acq_rel, std::memory_order_relaxed)) return true;
    }
}

bool DispatchQueue::parkBehindReaders() noexcept {
    auto bits = state_.load(std::memory_order_acquire); // what the last reader did comes before the barrier
    for (;;) {
        if (!(bits & state::Readers)) return false;
        auto const next = (bits & ~state::Owned) | state::Parked;
        if (state_.compare_exchange_weak(bits, next, std::memory_order_acq_rel, std::memory_order_acquire)) return true;
    }
}

void DispatchQueue::leaveShared() noexcept {
    auto bits = state_.load(std::memory_order_relaxed);
    for (;;) {
        auto next = bits - state::Reader;
        bool const wakes = !(next & state::Readers) && (bits & state::Parked) && !(bits & state::Suspended);
        if (wakes) next &= ~state::Parked;
        if (!state_.compare_exchange_weak(bits, next, std::memory_order_acq_rel, std::memory_order_relaxed)) continue;
        if (wakes) submitToTarget();
        if (next == state::Ended) end();
        return;
    }
}

void DispatchQueue::suspend() {
    if (isGlobal()) return;
    std::lock_guard const hold(rareLock);
    if (suspensions_++ > 0) return;
    halted_.store(true, std::memory_order_relaxed);
    state_.fetch_or(state::Suspended, std::memory_order_acq_rel);
}

void DispatchQueue::resume() {
    if (isGlobal()) return;
    std::unique_lock hold(rareLock);
    if (suspensions_ == 0) fatal("dispatch_resume: the queue is not suspended");
    if (--suspensions_ > 0) return;
    halted_.store(false, std::memory_order_relaxed);
    auto const bits = state_.fetch_and(~(state::Suspended | state::Parked), std::memory_order_acq_rel);
    hold.unlock();
    if (bits & state::Parked) submitToTarget();
}

} // namespace Tessarin
