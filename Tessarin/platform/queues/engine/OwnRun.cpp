#include "Tessarin/platform/queues/engine/OwnRun.h"

#include "Tessarin/platform/queues/engine/Pool.h"
#include "Tessarin/platform/queues/engine/ThreadStart.h"
#include <utility>

namespace Tessarin::engine {
namespace {

constexpr Nanoseconds shortRun = 20'000; // about what calling a worker costs
constexpr Nanoseconds penalty = 5'000'000;
constexpr Nanoseconds watchEvery = 1'000'000;

} // namespace

bool OwnRun::run(Catch const& caught) noexcept {
    callDeputy();
    if (!hasDeputy_) {
        caught.pool->submit(caught.item);
        return true;
    }
    auto const start = monotonicNow();
    auto number = ++number_;
    current_.store(number, std::memory_order_release);
    caught.pool->runOn(caught.item);
    if (!current_.compare_exchange_strong(number, 0, std::memory_order_acq_rel)) return false;
    auto const end = monotonicNow();
    if (end - start > shortRun) allowedFrom_ = end + penalty;
    return true;
}

void OwnRun::callDeputy() noexcept {
    if (hasDeputy_ && watched_.load(std::memory_order_relaxed)) return;
    watched_.store(1, std::memory_order_relaxed);
    if (hasDeputy_) {
        unpark(watched_);
        return;
    }
    auto const enter = [](void* self) -> void* {
        static_cast<OwnRun*>(self)->watch();
        return nullptr;
    };
    hasDeputy_ = startThread("dispatch-timer", enter, this);
}

void OwnRun::watch() noexcept {
    std::atomic<std::uint32_t> const nobody = 0;
    std::uint64_t seen = 0;
    for (;;) {
        while (!watched_.load(std::memory_order_relaxed)) park(watched_, 0);
        park(nobody, 0, monotonicNow() + watchEvery);
        auto number = current_.load(std::memory_order_acquire);
        if (number == 0 || std::exchange(seen, number) != number) continue;
        if (!current_.compare_exchange_strong(number, 0, std::memory_order_acq_rel)) continue;
        // The place is this thread's now; the next run has no deputy yet, and one that is called for it must find nothing to
        // take.
        hasDeputy_ = false;
        allowedFrom_ = monotonicNow() + penalty;
        return successor_();
    }
}

} // namespace Tessarin::engine
