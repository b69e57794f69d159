#pragma once
#include <atomic>
#include <sched.h>

namespace Tessarin {

/// A lock for a few instructions that hardly ever meet another thread: a third of the cost of a mutex when they do not. A
/// waiting thread gives its time away, so that one which was interrupted inside can go on. For Hold.
/// The benchmark "store", row W3, shows why.
class SpinLock {
public:
    void lock() noexcept {
        for (int spins = 0; taken_.test_and_set(std::memory_order_acquire); ++spins)
            if (spins > 64) sched_yield();
    }
    void unlock() noexcept { taken_.clear(std::memory_order_release); }

private:
    std::atomic_flag taken_;
};

} // namespace Tessarin
