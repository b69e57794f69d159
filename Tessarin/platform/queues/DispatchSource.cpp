#include "Tessarin/platform/queues/DispatchSource.h"

#include "Tessarin/platform/queues/Queue.h"
#include "Tessarin/platform/queues/engine/Required.h"
#include "Tessarin/platform/queues/engine/Thread.h"
#include "Tessarin/platform/queues/engine/Timekeeper.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include <algorithm>
#include <atomic>
#include <bit>
#include <memory>
#include <mutex>

namespace Tessarin {

using namespace engine;

namespace {

Nanoseconds bounded(std::uint64_t nanoseconds) noexcept {
    return static_cast<Nanoseconds>(std::min<std::uint64_t>(nanoseconds, never));
}
Nanoseconds sum(Nanoseconds a, Nanoseconds b) noexcept { return a > never - b ? never : a + b; }

/// The roundest moment between `due` and `leeway` later: timers that may be late a little come to the same ones.
Nanoseconds shared(Nanoseconds due, Nanoseconds leeway) noexcept {
    auto const last = static_cast<std::uint64_t>(sum(due, leeway));
    auto const differing = (static_cast<std::uint64_t>(due) - 1) ^ last;
    return static_cast<Nanoseconds>(last & ~(std::bit_floor(differing) - 1));
}

/// What the moments of a timer, the runs of its handler and those who change it share. Pending moments and runs keep it alive.
class Timer : public std::enable_shared_from_this<Timer> {
public:
    using Handler = std::shared_ptr<Closure<void()>>;

    explicit Timer(dispatch_queue_t queue) : queue_(std::move(queue)) {}

    void set(dispatch_time_t start, std::uint64_t interval, std::uint64_t leeway) {
        auto const now = monotonicNow();
        std::lock_guard const hold(lock_);
        due_ = start == DISPATCH_TIME_NOW ? now : deadlineOf(start);
        interval_ = interval == 0 ? never : bounded(interval);
        leeway_ = bounded(leeway);
        if (due_ < now)
            due_ = interval_ == never ? now : now - (now - due_) % interval_; // rounds before this call are not missed
        arm();
    }
    void setHandler(Closure<void()> handler) { exchange(handler_, std::move(handler)); }
    void setCancelHandler(Closure<void()> handler) { exchange(cancelHandler_, std::move(handler)); }
    std::uintptr_t rounds() const noexcept { return rounds_.load(std::memory_order_relaxed); }
    bool isCancelled() const noexcept { return isCancelled_.load(std::memory_order_acquire); }

    void cancel() {
        {
            std::lock_guard const hold(lock_);
            if (isCancelled_.exchange(true, std::memory_order_acq_rel)) return;
            disarm();
            if (isRunning_) return; // its end goes on from here
        }
        dispatch_async(queue_, [self = shared_from_this()] { self->end(); });
    }
    void suspend() {
        std::lock_guard const hold(lock_);
        ++suspensions_;
        disarm();
    }
    void resume() {
        std::lock_guard const hold(lock_);
        if (suspensions_ == 0) fatal("dispatch_resume: the source is not suspended");
        if (--suspensions_ > 0) return;
        isActive_ = true;
        arm();
    }
    void activate() {
        std::lock_guard const hold(lock_);
        if (!std::exchange(isActive_, true) && --suspensions_ == 0) arm();
    }

private:
    void exchange(Handler& place, Closure<void()> handler) {
        auto next = std::make_shared<Closure<void()>>(std::move(handler)); // the one before goes after the lock
        std::lock_guard const hold(lock_);
        std::swap(place, next);
    }
    void disarm() noexcept { // under lock_
        ++moment_;
        if (auto* const pending = std::exchange(pending_, nullptr)) pending->drop();
    }
    void arm() { // under lock_
        disarm();
        if (suspensions_ > 0 || isRunning_ || due_ == never || isCancelled()) return;
        pending_ = submitAtUnlessDropped(shared(due_, leeway_), *queue_,
                                         newItem([self = shared_from_this(), moment = moment_] { self->fire(moment); }));
    }
    void fire(std::uint64_t moment) {
        engine::thisThread.hasServedTimer = true;
        Handler handler;
        {
            std::lock_guard const hold(lock_);
            if (moment != moment_ || isCancelled()) return;
            std::exchange(pending_, nullptr)->release();
            auto const missed = interval_ == never ? 0 : (monotonicNow() - due_) / interval_;
            rounds_.store(static_cast<std::uintptr_t>(missed + 1), std::memory_order_relaxed);
            due_ = interval_ == never ? never : sum(due_ + missed * interval_, interval_);
            isRunning_ = true;
            handler = handler_;
        }
        if (handler) (*handler)();
        handler = nullptr;
        {
            std::lock_guard const hold(lock_);
            isRunning_ = false;
            if (!isCancelled()) return arm();
        }
        end(); // this is the queue
    }
    /// On the queue, after the last event: nobody else calls the handlers any more.
    void end() {
        Handler last, done;
        {
            std::lock_guard const hold(lock_);
            std::swap(last, handler_);
            std::swap(done, cancelHandler_);
        }
        if (done) (*done)();
    }

    dispatch_queue_t const queue_;
    std::atomic<bool> isCancelled_ = false;
    std::atomic<std::uintptr_t> rounds_ = 0;
    Lock lock_; // guards the rest
    Handler handler_, cancelHandler_;
    Nanoseconds due_ = never, interval_ = never, leeway_ = 0;
    DroppableTimer* pending_ = nullptr;
    std::uint64_t moment_ = 0; // what was armed before another one does nothing
    std::uint32_t suspensions_ = 1;
    bool isActive_ = false;
    bool isRunning_ = false;
};

} // namespace

class DispatchSource {
public:
    explicit DispatchSource(dispatch_queue_t queue) : timer(std::make_shared<Timer>(std::move(queue))) {}

    void retain() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept {
        if (references_.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
        timer->cancel();
        delete this;
    }

    std::shared_ptr<Timer> const timer;

private:
    std::atomic<std::uint32_t> references_ = 1;
};

void retainObject(DispatchSource& source) noexcept { source.retain(); }
void releaseObject(DispatchSource& source) noexcept { source.release(); }

dispatch_source_t dispatch_source_create(dispatch_source_type_t, std::uintptr_t handle, std::uintptr_t mask,
                                         dispatch_queue_t const& queue) {
    required(queue, __func__);
    if (handle != 0 || mask != 0) fatal("dispatch_source_create: a timer has neither a handle nor a mask");
    return dispatch_source_t::adopt(new DispatchSource(queue));
}

void dispatch_source_set_timer(dispatch_source_t const& source, dispatch_time_t start, std::uint64_t interval,
                               std::uint64_t leeway) {
    required(source, __func__).timer->set(start, interval, leeway);
}
void dispatch_source_set_event_handler(dispatch_source_t const& source, Closure<void()> handler) {
    required(source, __func__).timer->setHandler(std::move(handler));
}
void dispatch_source_set_cancel_handler(dispatch_source_t const& source, Closure<void()> handler) {
    required(source, __func__).timer->setCancelHandler(std::move(handler));
}
std::uintptr_t dispatch_source_get_data(dispatch_source_t const& source) { return required(source, __func__).timer->rounds(); }
void dispatch_source_cancel(dispatch_source_t const& source) { required(source, __func__).timer->cancel(); }
std::intptr_t dispatch_source_testcancel(dispatch_source_t const& source) {
    return required(source, __func__).timer->isCancelled();
}
void dispatch_activate(dispatch_source_t const& source) { required(source, __func__).timer->activate(); }
void dispatch_suspend(dispatch_source_t const& source) { required(source, __func__).timer->suspend(); }
void dispatch_resume(dispatch_source_t const& source) { required(source, __func__).timer->resume(); }

} // namespace Tessarin
