#pragma once
#include "Tessarin/platform/queues/engine/DispatchQueue.h"
#include <atomic>

/// The engine's one service thread: it submits what `dispatch_after` put off, and visits the pools while something is queued in
/// them. With no timer and nothing queued it sleeps without a deadline.
namespace Tessarin::engine {

/// Submits the item at a moment of the monotonic clock; takes a reference of the queue's over.
void submitAt(Nanoseconds when, DispatchQueue& queue, WorkItem* item);

/// What can be given up before its moment. One reference is the caller's, who drops it once, at any time.
class DroppableTimer {
public:
    explicit DroppableTimer(DispatchQueue& queue) noexcept : queue_(queue) {}
    DispatchQueue& queue() const noexcept { return queue_; }
    bool isDropped() const noexcept { return isDropped_.load(std::memory_order_acquire); }
    /// Its item will not be submitted any more, unless it has been just now; then it is gone as soon as many are.
    void drop() noexcept;
    void release() noexcept {
        if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }

private:
    DispatchQueue& queue_; // kept alive by the moment
    std::atomic<bool> isDropped_ = false;
    std::atomic<std::uint8_t> references_ = 2;
};

/// Like `submitAt`, but retains the queue itself.
DroppableTimer* submitAtUnlessDropped(Nanoseconds when, DispatchQueue& queue, WorkItem* item);

extern std::atomic<bool> monitorIsOut;
void sendMonitor() noexcept;
/// To be called after queueing something that no running worker is certain to take soon.
inline void callMonitor() noexcept {
    if (!monitorIsOut.load(std::memory_order_seq_cst)) sendMonitor();
}

} // namespace Tessarin::engine
