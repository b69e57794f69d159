#include "Tessarin/platform/queues/engine/DispatchQueue.h"

#include "Tessarin/platform/queues/engine/Pool.h"
#include "Tessarin/platform/queues/engine/Waiter.h"
#include <utility>

namespace Tessarin {

using namespace engine;

void DispatchQueue::follow(Step step) noexcept {
    auto* const outermost = step.queue;
    FrameScope frame(*outermost);
    for (;;) {
        auto* queue = step.queue;
        frame.moveTo(*queue);
        // Those that are held on the way keep their targets; the one that is drained may get another one, or go.
        auto* above = queue->target();
        for (bool isLeft = !queue->begin(step); isLeft; isLeft = !queue->goOn()) {
            if (thisThread.chainPassedOn || queue == outermost) return;
            queue = above;
            above = queue->target();
            frame.moveTo(*queue);
        }
        step = std::exchange(thisThread.next, {});
    }
}

// The following are true when an item stands for a queue further down, and false when this one has been left.

bool DispatchQueue::begin(Step step) noexcept {
    if (!step.item) return beginDrain() && goOnDraining(false);
    runAndRecycle(step.item);
    return goOnReading();
}

bool DispatchQueue::goOnReading() noexcept {
    if (thisThread.next.queue) return true;
    leaveShared();
    release();
    return false;
}

// A queue directly on a pool is drained until it is empty, or until the pool wants the worker for others. A queue on another
// queue gets its turn there: what was queued at the start runs, and then it lines up behind its siblings again. The same makes an
// item of the main queue that submits itself again run once per drain.
bool DispatchQueue::goOnDraining(bool isUnderWay) noexcept {
    auto* const above = target();
    auto* const pool = above && above->isGlobal() ? &static_cast<GlobalQueue*>(above)->pool : nullptr;
    for (;; isUnderWay = true) {
        if (isUnderWay && (target() != above || (pool ? pool->wantsWorkersBack() : isMain() && mainLoopShallStop()))) {
            requeue();
            return false;
        }
        if (!fifo_) {
            if (turnUsed_) {
                if (!finish()) requeue();
                return false;
            }
            if (!detach()) {
                if (finish()) return false;
                continue;
            }
            turnUsed_ = pool == nullptr;
        }
        if (halted_.load(std::memory_order_relaxed) && parkSuspended()) return false;
        bool const isOurs = isConcurrent() ? runNextConcurrent(!isUnderWay) : runNext();
        if (thisThread.next.queue) return true;
        if (!isOurs) return false;
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

bool DispatchQueue::runNextConcurrent(bool isFirst) noexcept {
    auto* const item = fifo_;
    auto const kind = item->kind();
    if (kind == ItemKind::Barrier || kind == ItemKind::Waiter) return !parkBehindReaders() && runNext();

    if (state_.load(std::memory_order_relaxed) >= state::MostReaders && parkBehindReaders()) return false;
    fifo_ = item->next();
    state_.fetch_add(state::Reader, std::memory_order_acq_rel);
    if (kind == ItemKind::Plain) {
        retain();
        // A lone item runs here: in a chain of concurrent queues it would begin at the pool again for each of them.
        if (isFirst && !fifo_ && finish()) {
            thisThread.next = {this, item};
            return false;
        }
        target()->submit(newItem([this, item] { thisThread.next = {this, item}; }));
    } else {
        // A reader that waits: let go here, or sent on to wait for the target.
        auto& waiter = *static_cast<Waiter*>(item);
        auto& above = *target();
        above.isGlobal() ? waiter.settle(Waiter::Granted) : waiter.line(above, plainAccess(above));
    }
    return true;
}

void DispatchQueue::giveTo(Waiter& waiter) noexcept {
    if (isMainThread()) return waiter.runHere();
    thisThread.chainPassedOn = true;
    passOn(waiter);
}

/// Gives this queue and those above it to the waiter, without their tokens and without the references of these: a queue that
/// somebody owns outlives its last reference. A concurrent queue on the way is held by a reader, which the waiter takes over.
void DispatchQueue::passOn(Waiter& waiter) noexcept {
    for (auto* queue = this; !queue->isRoot();) {
        auto* const above = queue->target();
        if (queue == this || !queue->isConcurrent()) queue->state_.fetch_and(~state::Token, std::memory_order_acq_rel);
        queue->release();
        queue = above;
    }
    waiter.settle(Waiter::Granted);
}

} // namespace Tessarin
