#pragma once
#include "Tessarin/platform/queues/engine/Thread.h"

namespace Tessarin::engine {

struct Waiter;

/// While queues are checked, a sync that sleeps stands in a list, with what its thread holds: so that one which has slept for
/// long can see whether it waits for itself, straight or through others that wait, too.
class SyncCycle {
public:
    explicit SyncCycle(Waiter const& waiter) noexcept;
    SyncCycle(SyncCycle const&) = delete;
    SyncCycle& operator=(SyncCycle const&) = delete;
    ~SyncCycle();
    /// One line on standard error, once for each cycle.
    void tellIfClosed() noexcept;

private:
    bool holds(DispatchQueue const& queue) const noexcept;
    SyncCycle* nextInCycle() const noexcept;

    Waiter const& waiter_;
    Frame const* const frames_ = thisThread.frames; // which stay as they are while the thread sleeps
    bool const isMain_ = isMainThread();
    bool isTold_ = false;
    SyncCycle* next_ = nullptr; // in the list
};

} // namespace Tessarin::engine
