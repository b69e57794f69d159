#include "Tessarin/platform/queues/engine/DispatchQueue.h"

#include "Tessarin/platform/queues/engine/Pool.h"
#include "Tessarin/platform/queues/engine/Waiter.h"

namespace Tessarin {

using namespace engine;

// A queue directly on a pool is drained until it is empty, or until the pool wants the worker for others. A queue on another
// queue gets its turn there: what was queued at the start runs, and then it lines up behind its siblings again. The same makes an
// item of the main queue that submits itself again run once per drain.
void DispatchQueue::drain() noexcept {
    if (!beginDrain()) return;
    FrameScope const frame(*this);
    auto* const above = target();
    auto* const pool = above && above->isGlobal() ? &static_cast<GlobalQueue*>(above)->pool : nullptr;
    bool turnUsed = false;
    for (;;) {
        if (!fifo_) {
            if (turnUsed) {
                if (!finish()) requeue();
                return;
            }
            if (!detach()) {
                if (finish()) return;
                continue;
            }
            turnUsed = pool == nullptr;
        }
        if (halted_.load(std::memory_order_relaxed) && parkSuspended()) return;
        if (!(isConcurrent() ? runNextConcurrent() : runNext())) return;
        if (target() != above || (pool ? pool->wantsWorkersBack() : isMain() && mainLoopShallStop())) return requeue();
    }
}

/// False when the queue is no longer this thread's.
bool DispatchQueue::runNext() noexcept {
    auto* const item = fifo_;
    fifo_ = item->next();
    if (item->kind() >= ItemKind::Waiter)
        giveTo(*static_cast<Waiter*>(item));
    else
        runAndRecycle(item);
    return !thisThread.chainPassedOn;
}

bool DispatchQueue::runNextConcurrent() noexcept {
    auto* const item = fifo_;
    auto const kind = item->kind();
    if (kind == ItemKind::Barrier || kind == ItemKind::Waiter) return !parkBehindReaders() && runNext();

    if (state_.load(std::memory_order_relaxed) >= state::MostReaders && parkBehindReaders()) return false;
    fifo_ = item->next();
    state_.fetch_add(state::Reader, std::memory_order_acq_rel);
    if (kind == ItemKind::Plain) {
        redirect(item);
    } else {
        // A reader that waits: let go here, or sent on to wait for the target.
        auto& waiter = *static_cast<Waiter*>(item);
        auto& above = *target();
        above.isGlobal() ? waiter.settle(Waiter::Granted) : waiter.line(above, plainAccess(above));
    }
    return true;
}

/// Sends an item of a concurrent queue to run on the target beside its siblings.
void DispatchQueue::redirect(WorkItem* item) noexcept {
    retain();
    target()->submit(newItem([this, item] {
        {
            FrameScope const frame(*this);
            runAndRecycle(item);
        }
        if (!thisThread.chainPassedOn) leaveShared();
        release();
    }));
}

void DispatchQueue::giveTo(Waiter& waiter) noexcept {
    if (isMainThread()) return waiter.runHere();
    thisThread.chainPassedOn = true;
    passOn(waiter, true);
}

/// Gives this queue and those above it to the waiter: their tokens go first, for they are the waiter's once it is granted, and
/// the references of the tokens last. A concurrent queue on the way is held by a reader, which the waiter takes over.
void DispatchQueue::passOn(Waiter& waiter, bool isDrained) noexcept {
    if (isRoot()) return waiter.settle(Waiter::Granted);
    bool const hasTokenHere = isDrained || !isConcurrent();
    if (hasTokenHere) state_.fetch_and(~state::Token, std::memory_order_acq_rel);
    target()->passOn(waiter, false);
    if (hasTokenHere) release();
}

} // namespace Tessarin
