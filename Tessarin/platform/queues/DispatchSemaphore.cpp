#include "Tessarin/platform/queues/DispatchSemaphore.h"

#include "Tessarin/platform/queues/engine/Parking.h"
#include "Tessarin/platform/queues/engine/Required.h"
#include "Tessarin/platform/queues/engine/Thread.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include <atomic>

namespace Tessarin {

using namespace engine;

/// `value_` below zero counts those who wait; each of them needs one of the `grants_` that signals hand out.
class DispatchSemaphore {
public:
    explicit DispatchSemaphore(std::intptr_t value) noexcept : value_(value), initial_(value) {}

    void retain() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept {
        if (references_.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
        if (value_.load(std::memory_order_relaxed) < initial_)
            fatal("dispatch_semaphore_create: the semaphore was released while in use");
        delete this;
    }

    bool wait(dispatch_time_t timeout) noexcept {
        if (timeout == DISPATCH_TIME_NOW) return tryTake();
        if (spin(spinTime, [this] { return tryTake(); })) return true;
        if (value_.fetch_sub(1, std::memory_order_acq_rel) > 0) return true;
        BlockingScope const blocking;
        auto const deadline = deadlineOf(timeout);
        for (;;) {
            if (tryTakeGrant()) return true;
            if (park(grants_, 0, deadline)) continue;
            // Too late, unless a signal has counted this thread as woken: then its grant must be taken.
            auto value = value_.load(std::memory_order_relaxed);
            while (value < 0)
                if (value_.compare_exchange_weak(value, value + 1, std::memory_order_acq_rel, std::memory_order_relaxed))
                    return false;
        }
    }

    bool signal() noexcept {
        if (value_.fetch_add(1, std::memory_order_acq_rel) >= 0) return false;
        grants_.fetch_add(1, std::memory_order_release);
        unpark(grants_);
        return true;
    }

private:
    static constexpr Nanoseconds spinTime = 3'000;

    bool tryTake() noexcept {
        auto value = value_.load(std::memory_order_relaxed);
        while (value > 0)
            if (value_.compare_exchange_weak(value, value - 1, std::memory_order_acq_rel, std::memory_order_relaxed)) return true;
        return false;
    }
    bool tryTakeGrant() noexcept {
        auto grants = grants_.load(std::memory_order_relaxed);
        while (grants > 0)
            if (grants_.compare_exchange_weak(grants, grants - 1, std::memory_order_acq_rel, std::memory_order_relaxed))
                return true;
        return false;
    }

    std::atomic<std::intptr_t> value_;
    std::intptr_t const initial_;
    std::atomic<std::uint32_t> grants_ = 0;
    std::atomic<std::uint32_t> references_ = 1;
};

void retainObject(DispatchSemaphore& semaphore) noexcept { semaphore.retain(); }
void releaseObject(DispatchSemaphore& semaphore) noexcept { semaphore.release(); }

dispatch_semaphore_t dispatch_semaphore_create(std::intptr_t value) {
    return value < 0 ? nullptr : dispatch_semaphore_t::adopt(new DispatchSemaphore(value));
}

std::intptr_t dispatch_semaphore_wait(dispatch_semaphore_t const& semaphore, dispatch_time_t timeout) {
    return required(semaphore, __func__).wait(timeout) ? 0 : 1;
}

std::intptr_t dispatch_semaphore_signal(dispatch_semaphore_t const& semaphore) {
    return required(semaphore, __func__).signal() ? 1 : 0;
}

} // namespace Tessarin
