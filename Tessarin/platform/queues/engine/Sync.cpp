#include "Tessarin/platform/queues/engine/DispatchQueue.h"

#include "Tessarin/platform/queues/engine/Waiter.h"

namespace Tessarin {

using namespace engine;

namespace {

// A sync spins for what a short critical section takes, then sleeps beside the queue and competes with others for it: strict
// hand-over costs a switch of threads every time. After a millisecond it stands in line, where nobody overtakes it. Behind longer
// sections it stands in line at once, for some time without sleeping, and the switch costs little.
constexpr Nanoseconds spinPatience = 4'000;
constexpr Nanoseconds patience = 1'000'000;
constexpr Nanoseconds shortTurn = 8'000;
constexpr Nanoseconds middlingTurn = 200'000;

constexpr std::uint64_t closedToReaders = state::Owned | state::Token | state::Suspended | state::Items;

} // namespace

bool DispatchQueue::tryClaim(Access access) noexcept {
    if (isRoot()) return isGlobal();
    if (access == Access::Exclusive) {
        std::uint64_t expected = 0;
        return state_.compare_exchange_strong(expected, state::Owned, std::memory_order_acquire, std::memory_order_relaxed);
    }
    auto bits = state_.load(std::memory_order_relaxed);
    while (!(bits & closedToReaders) && bits < state::MostReaders)
        if (state_.compare_exchange_weak(bits, bits + state::Reader, std::memory_order_acquire, std::memory_order_relaxed))
            return true;
    return false;
}

bool DispatchQueue::claim(Access access) noexcept {
    if (isRoot()) return isGlobal();
    if (turns() != SyncTurns::Short) return tryClaim(access);
    bool claimed = false;
    spin(spinPatience, [&] {
        auto bits = state_.load(std::memory_order_relaxed);
        if (bits & state::Suspended) return true;
        if (bits == 0 || (access == Access::Shared && !(bits & closedToReaders)) || bits == state::Sleepers)
            claimed = access == Access::Shared
                          ? tryClaim(access)
                          : state_.compare_exchange_strong(bits, bits | state::Owned, std::memory_order_acquire,
                                                           std::memory_order_relaxed);
        return claimed;
    });
    if (claimed || isConcurrent()) return claimed;

    BlockingScope const blocking;
    auto const deadline = monotonicNow() + patience;
    auto bits = state_.load(std::memory_order_relaxed);
    do {
        if (bits & (state::Token | state::Suspended)) return false;
        // Who has slept claims with Sleepers set: it cannot know whether it was the only one.
        if ((bits & ~(state::Sleepers | state::Ended)) == 0) {
            if (state_.compare_exchange_weak(bits, bits | state::Owned | state::Sleepers, std::memory_order_acquire,
                                             std::memory_order_relaxed))
                return true;
            continue;
        }
        if (!(bits & state::Sleepers) &&
            !state_.compare_exchange_weak(bits, bits | state::Sleepers, std::memory_order_relaxed, std::memory_order_relaxed))
            continue;
        park(state_, bits | state::Sleepers, deadline);
        bits = state_.load(std::memory_order_relaxed);
    } while (monotonicNow() < deadline);
    return false;
}

void DispatchQueue::noteTurn(Nanoseconds length) noexcept {
    auto const before = turns();
    auto const now = length < shortTurn      ? SyncTurns::Short
                     : length < middlingTurn ? SyncTurns::Middling
                                             : (before < SyncTurns::PerhapsLong ? SyncTurns::PerhapsLong : SyncTurns::Long);
    if (now != before) turns_.store(now, std::memory_order_relaxed);
}

void DispatchQueue::leaveExclusiveSlowly() noexcept {
    auto bits = state_.load(std::memory_order_acquire);
    for (;;) {
        if (!fifo_ && !(bits & state::Items)) {
            auto const next = bits & ~(state::Owned | state::Sleepers);
            if (!state_.compare_exchange_weak(bits, next, std::memory_order_acq_rel, std::memory_order_acquire)) continue;
            bool const wakesAnother = (bits & state::Sleepers) && unpark(state_, 1) != 0;
            if (bits & state::Ended && !wakesAnother) end();
            return;
        }
        // Straight to the next in line, unless more than this queue would have to be handed over.
        if (!fifo_) detach();
        if (!(bits & state::Suspended) && !isConcurrent() && target()->isGlobal() && fifo_->kind() == ItemKind::Waiter) {
            auto& waiter = *static_cast<Waiter*>(fifo_);
            fifo_ = fifo_->next();
            return waiter.settle(Waiter::Granted);
        }
        retain();
        bits = state_.fetch_or(state::Token, std::memory_order_acq_rel);
        if (!(bits & state::Suspended) || !parkSuspended()) requeue();
        return;
    }
}

namespace engine {
namespace {

/// Gives back what is held from `innermost` up, below `stop`. A queue may go as soon as it is left, and then only a reference
/// keeps its target.
void leaveChain(DispatchQueue& innermost, Access access, DispatchQueue const* stop) noexcept {
    auto* queue = &innermost;
    while (queue != stop && !queue->isRoot()) {
        auto* const above = queue->target();
        if (!above->isRoot()) above->retain();
        queue->leave(access);
        if (queue != &innermost) queue->release();
        queue = above;
        access = plainAccess(*queue);
    }
    if (queue != &innermost && !queue->isRoot()) queue->release();
}

/// `level` is the first queue that is not held yet.
[[gnu::noinline]] void syncSlowly(DispatchQueue& queue, Access access, DispatchQueue& firstLevel,
                                  FunctionRef<void()> work) noexcept {
    Waiter waiter(queue, work);
    auto* level = &firstLevel;
    for (;; level = level->target()) {
        auto const wanted = level == &queue ? access : plainAccess(*level);
        if (!level->claim(wanted)) {
            if (waiter.waitOn(*level, wanted) == Waiter::Done) return leaveChain(queue, access, waiter.level);
            break;
        }
        if (level->isGlobal()) break;
    }
    auto const start = monotonicNow();
    runInQueue(queue, work);
    if (access == Access::Exclusive && !queue.isConcurrent()) queue.noteTurn(monotonicNow() - start);
    leaveChain(queue, access, nullptr);
}

} // namespace

void syncOn(DispatchQueue& queue, Access access, FunctionRef<void()> work) noexcept {
    if (!queue.tryClaim(access)) return syncSlowly(queue, access, queue, work);
    if (queue.isGlobal()) return runInQueue(queue, work);
    if (!queue.target()->isGlobal()) return syncSlowly(queue, access, *queue.target(), work);
    runInQueue(queue, work);
    queue.leave(access);
}

} // namespace engine
} // namespace Tessarin
