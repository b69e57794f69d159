// Coroutines that wait for a moment.
#include "Tessarin/platform/queues/Coroutine.h"

#include "Tessarin/platform/queues/DispatchTime.h"
#include "Tessarin/platform/queues/engine/DispatchQueue.h"
#include "Tessarin/platform/queues/engine/Timekeeper.h"
#include "Tessarin/platform/runtime/Hold.h"
#include <utility>

namespace Tessarin {

using namespace engine;

namespace {

/// A wait that ends by its timer or by a cancel, whichever comes first.
class Sleep final : public Awaited {
public:
    explicit Sleep(Coroutine& sleeper) noexcept : sleeper_(sleeper) {}

    void begin(Nanoseconds when, DispatchQueue& queue) {
        Hold const hold(lock_);
        if (isOver_) return; // cancelled before
        timer_ = submitAtUnlessDropped(when, queue, newItem([self = Retained<Sleep>{this}] { self->timeIsUp(); }));
    }
    void cancel() noexcept override {
        DroppableTimer* timer = nullptr;
        {
            Hold const hold(lock_);
            if (std::exchange(isOver_, true)) return;
            timer = std::exchange(timer_, nullptr);
        }
        if (timer) timer->drop();
        sleeper_.goOn();
    }

private:
    void timeIsUp() noexcept {
        {
            Hold const hold(lock_);
            if (std::exchange(isOver_, true)) return;
            std::exchange(timer_, nullptr)->release();
        }
        sleeper_.goOnHere();
    }

    Coroutine& sleeper_; // waits until this is over
    Lock lock_;
    DroppableTimer* timer_ = nullptr; // guarded by lock_, like what follows
    bool isOver_ = false;
};

} // namespace

void Coroutine::waitFor(std::int64_t nanoseconds) {
    auto const sleep = Retained<Sleep>::adopt(new Sleep(*this));
    auto const when = deadlineOf(dispatch_time(DISPATCH_TIME_NOW, nanoseconds));
    auto* const current = currentQueue();
    auto const queue = dispatch_queue_t{current ? current : &defaultGlobalQueue()};
    // From here on it may be cancelled, and go on: nothing of its own is touched any more.
    if (!wait(Retained<Awaited>{sleep.get()}) || nanoseconds <= 0) return sleep->cancel();
    if (when != never) sleep->begin(when, *queue);
}

} // namespace Tessarin
