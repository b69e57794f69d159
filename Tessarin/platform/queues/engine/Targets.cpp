#include "Tessarin/platform/queues/engine/DispatchQueue.h"

#include "Tessarin/platform/queues/Queue+Waiting.h"
#include "Tessarin/platform/queues/engine/Required.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include <mutex>
#include <unordered_set>
#include <vector>

namespace Tessarin {

using namespace engine;

// A queue that somebody owns keeps its target until its owner comes to the change. Until then both targets count: the queue may
// have to pass through either. The coming one is known to everybody before the chain above it is searched, so that of two
// changes that close a circle together the later one finds it.
void DispatchQueue::setTarget(DispatchQueue& above) {
    if (isRoot()) fatal("dispatch_set_target_queue: the main queue and the global queues have no target");
    above.retain();
    std::unique_lock hold(rareLock);
    auto* const before = std::exchange(comingTarget_, &above);
    if (!above.isRoot()) above.isTargeted_ = true;
    bool const mayBeAbove = isTargeted_; // a queue that nobody targets is above nobody: a chain can be built at no more cost
    hold.unlock();
    if (before) before->release();
    if (mayBeAbove && leadsTo(above, *this)) fatal("dispatch_set_target_queue: the queue would target itself");

    if (!tryClaim(Access::Exclusive)) return push(newItem([this] { takeComingTarget(); }, ItemKind::Barrier));
    takeComingTarget();
    leaveExclusive();
}

/// Called by the owner. Of several changes the latest counts, and those before it find nothing to do any more.
void DispatchQueue::takeComingTarget() noexcept {
    std::unique_lock hold(rareLock);
    auto* const coming = std::exchange(comingTarget_, nullptr);
    if (!coming) return;
    auto* const before = target_.exchange(coming, std::memory_order_relaxed);
    hold.unlock();
    before->release();
}

/// Looks along all targets, also those to come. The lock, which is everybody's, is held for a step at a time; references keep the
/// queues on the way where they are.
bool DispatchQueue::leadsTo(DispatchQueue& start, DispatchQueue const& wanted) {
    std::vector<dispatch_queue_t> open{dispatch_queue_t{&start}};
    std::unordered_set<dispatch_queue_t> seen;
    while (!open.empty()) {
        auto const queue = std::move(open.back());
        open.pop_back();
        if (queue.get() == &wanted) return true;
        if (!seen.insert(queue).second) continue;
        std::lock_guard const hold(rareLock);
        for (auto* const next : {queue->target(), queue->comingTarget_})
            if (next && !next->isRoot()) open.emplace_back(next);
    }
    return false;
}

bool queueWaitsForThisThread(dispatch_queue_t const& queue) {
    required(queue, __func__);
    for (auto level = queue; level;) {
        if (level->isMain()) return isMainThread();
        if (level->runsAlone() && queueIsHeld(level)) return true;
        auto const below = std::move(level); // goes after the lock
        std::lock_guard const hold(rareLock);
        level = dispatch_queue_t{below->target()};
    }
    return false;
}

} // namespace Tessarin
