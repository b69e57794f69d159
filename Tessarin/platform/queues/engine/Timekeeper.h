#pragma once
#include "Tessarin/platform/queues/engine/DispatchQueue.h"
#include <atomic>

/// The engine's one service thread: it submits what `dispatch_after` put off, and visits the pools while something is queued in
/// them. With no timer and nothing queued it sleeps without a deadline.
namespace Tessarin::engine {

/// Submits the item at a moment of the monotonic clock; takes a reference of the queue's over.
void submitAt(Nanoseconds when, DispatchQueue& queue, WorkItem* item);

extern std::atomic<bool> monitorIsOut;
void sendMonitor() noexcept;
/// To be called after queueing something that no running worker is certain to take soon.
inline void callMonitor() noexcept {
    if (!monitorIsOut.load(std::memory_order_seq_cst)) sendMonitor();
}

} // namespace Tessarin::engine
