#include "Tessarin/platform/queues/Queue.h"

#include "Tessarin/platform/queues/engine/Pool.h"
#include "Tessarin/platform/queues/engine/Thread.h"
#include <algorithm>
#include <memory>

namespace Tessarin {

using namespace engine;

namespace {

/// The calls of one apply, which the caller and its helpers take one after the other. Helpers that come late find none left; they
/// may outlive the call, so they share this.
class Calls {
public:
    Calls(std::size_t count, FunctionRef<void(std::size_t)> work) noexcept : count_(count), left_(count), work_(work) {}

    void help() noexcept {
        std::size_t made = 0;
        for (;; ++made) {
            auto const index = next_.fetch_add(1, std::memory_order_relaxed);
            if (index >= count_) break;
            work_(index);
        }
        if (made > 0 && left_.fetch_sub(made, std::memory_order_acq_rel) == made) {
            over_.store(1, std::memory_order_release);
            unpark(over_);
        }
    }

    void wait() noexcept {
        auto const isOver = [this] { return over_.load(std::memory_order_acquire) == 1; };
        if (spin(spinTime, isOver)) return;
        BlockingScope const blocking;
        while (!isOver()) park(over_, 0);
    }

private:
    static constexpr Nanoseconds spinTime = 10'000;

    std::size_t const count_;
    alignas(64) std::atomic<std::size_t> next_ = 0;
    alignas(64) std::atomic<std::size_t> left_;
    FunctionRef<void(std::size_t)> const work_;
    std::atomic<std::uint32_t> over_ = 0;
};

void callAll(std::size_t iterations, FunctionRef<void(std::size_t)> work) {
    for (std::size_t index = 0; index < iterations; ++index) work(index);
}

} // namespace

void dispatch_apply(std::size_t iterations, dispatch_queue_t const& chosen, FunctionRef<void(std::size_t)> work) {
    if (iterations == 0) return;
    auto const queue = chosen ? chosen : dispatch_queue_t{&defaultGlobalQueue()};
    // Waiting for a barrier that waits for this thread would be for ever.
    if (!queue->isGlobal() && queueIsHeld(queue)) return callAll(iterations, work);
    if (iterations == 1 || !(queue->isConcurrent() || queue->isGlobal()))
        return dispatch_sync(queue, [&] { callAll(iterations, work); });

    auto const calls = std::make_shared<Calls>(iterations, work);
    auto const helpers = std::min<std::size_t>(iterations, processorCount()) - 1;
    for (std::size_t i = 0; i < helpers; ++i) dispatch_async(queue, [calls] { calls->help(); });
    dispatch_sync(queue, [&] { calls->help(); });
    calls->wait();
}

void dispatch_apply_f(std::size_t iterations, dispatch_queue_t const& queue, void* context, void (*work)(void*, std::size_t)) {
    dispatch_apply(iterations, queue, [&](std::size_t index) { work(context, index); });
}

} // namespace Tessarin
