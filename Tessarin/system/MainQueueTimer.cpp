#include "Tessarin/system/MainQueueTimer.h"

#include "Tessarin/platform/queues/Dispatch.h"
#include "Tessarin/platform/runtime/AssociatedObjects.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/platform/runtime/NSObject.h"

#include <algorithm>
#include <cstdint>

namespace Tessarin {
namespace {

std::int64_t nanoseconds(double seconds) {
    double const count = seconds * 1e9;
    if (!(count >= -0x1p63 && count < 0x1p63)) fatal("MainQueueTimer: the seconds do not fit 64-bit nanoseconds");
    return std::max<std::int64_t>(static_cast<std::int64_t>(count), 0);
}
std::int64_t now() { return static_cast<std::int64_t>(dispatch_time(DISPATCH_TIME_NOW, 0)); }
/// What lies beyond the clock's end is never.
std::int64_t after(std::int64_t delta) {
    return static_cast<std::int64_t>(std::min<dispatch_time_t>(dispatch_time(DISPATCH_TIME_NOW, delta), INT64_MAX));
}
/// Seconds from now; for what is too far away the most that fit.
double ahead(NSDate const& date) { return std::clamp(date.timeIntervalSinceNow(), 0.0, 9e9); }

} // namespace

/// Attached to the tied object, it ends with that.
class MainQueueTimer::End : public NSObject {
public:
    ~End() override {
        if (auto const timer = timer_.lock()) timer->invalidate();
    }
    using NSObject::init;
    virtual void init(WeakRef<MainQueueTimer> timer) {
        NSObject::init();
        timer_ = std::move(timer);
    }

private:
    WeakRef<MainQueueTimer> timer_;
};

MainQueueTimer::~MainQueueTimer() = default;

Ref<MainQueueTimer> MainQueueTimer::after(double seconds, Closure<void()> block, MainQueueTimerOptions options) {
    return make<MainQueueTimer>(Kind::After, seconds, std::move(block), std::move(options));
}
Ref<MainQueueTimer> MainQueueTimer::every(double interval, Closure<void()> block, MainQueueTimerOptions options) {
    if (!(interval >= 1e-9)) fatal("MainQueueTimer.every: the interval is not more than 0");
    return make<MainQueueTimer>(Kind::Every, interval, std::move(block), std::move(options));
}
Ref<MainQueueTimer> MainQueueTimer::at(NSDate const& date, Closure<void()> block, MainQueueTimerOptions options) {
    return make<MainQueueTimer>(Kind::At, ahead(date), std::move(block), std::move(options));
}

void MainQueueTimer::init(Kind kind, double seconds, Closure<void()> block, MainQueueTimerOptions options) {
    kind_ = kind;
    interval_ = kind == Kind::Every ? nanoseconds(seconds) : 0;
    tolerance_ = nanoseconds(options.tolerance);
    block_ = std::move(block);
    due_ = Tessarin::after(nanoseconds(seconds));
    isTied_ = static_cast<bool>(options.tiedTo);
    tiedTo_ = options.tiedTo.object();
    source_ = dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, dispatch_get_main_queue());
    // The handler keeps the timer until the source is cancelled, which destroys it on the main queue.
    dispatch_source_set_event_handler(source_, [self = shared_from_this()] { self->fell(); });
    dispatch_source_set_cancel_handler(source_, [self = shared_from_this()] { self->block_ = nullptr; });
    set();
    if (auto const& object = options.tiedTo.object()) setAssociatedObject(*object, this, make<End>(weak_from_this()));
    dispatch_activate(source_);
}

void MainQueueTimer::set() {
    dispatch_source_set_timer(source_, static_cast<dispatch_time_t>(due_), static_cast<std::uint64_t>(interval_),
                              static_cast<std::uint64_t>(tolerance_));
}

void MainQueueTimer::invalidate() {
    auto const mayWait = queueIsHeld(dispatch_get_main_queue()) ? CallGate::Wait::No : CallGate::Wait::Yes;
    if (!gate_.close(mayWait)) return;
    dispatch_source_cancel(source_);
    if (!isTied_) return;
    if (auto const object = tiedTo_.lock()) setAssociatedObject(*object, this, nullptr);
}

void MainQueueTimer::fell() {
    if (interval_ > 0) due_ += interval_ * static_cast<std::int64_t>(dispatch_source_get_data(source_));
    call(0);
}

void MainQueueTimer::call(std::int64_t) {
    auto const tied = tiedTo_.lock(); // kept while the block runs; what is no object has no address, but an owner
    if (isTied_ && tied.use_count() == 0) return invalidate();
    auto const self = shared_from_this();
    if (!gate_.enter()) return;
    if (block_) block_();
    gate_.leave();
    if (interval_ == 0) invalidate();
}

void MainQueueTimer::onMainQueue(void (MainQueueTimer::*change)(std::int64_t), std::int64_t argument) {
    if (queueIsHeld(dispatch_get_main_queue())) return (this->*change)(argument);
    dispatch_async(dispatch_get_main_queue(), [self = shared_from_this(), change, argument] { (*self.*change)(argument); });
}

void MainQueueTimer::fire() { onMainQueue(&MainQueueTimer::call); }
void MainQueueTimer::pause() { onMainQueue(&MainQueueTimer::pauseNow); }
void MainQueueTimer::resume() { onMainQueue(&MainQueueTimer::resumeNow); }
void MainQueueTimer::move(double seconds) { onMainQueue(&MainQueueTimer::moveNow, Tessarin::after(nanoseconds(seconds))); }
void MainQueueTimer::moveTo(NSDate const& date) { move(ahead(date)); }

void MainQueueTimer::pauseNow(std::int64_t) {
    if (isPaused_.exchange(true)) return;
    if (kind_ != Kind::At) due_ = std::max<std::int64_t>(due_ - now(), 0);
    dispatch_source_set_timer(source_, DISPATCH_TIME_FOREVER, 0, 0);
}

void MainQueueTimer::resumeNow(std::int64_t) {
    if (!isPaused_.exchange(false)) return;
    if (kind_ != Kind::At) due_ = Tessarin::after(due_);
    set();
}

void MainQueueTimer::moveNow(std::int64_t due) {
    due_ = due;
    if (!isPaused_.get()) return set();
    if (kind_ != Kind::At) due_ = std::max<std::int64_t>(due - now(), 0);
}

std::optional<NSDate> MainQueueTimer::fireDate() const {
    if (!isValid() || isPaused()) return {};
    return NSDate().dateByAddingTimeInterval(static_cast<double>(due_ - now()) / 1e9);
}

} // namespace Tessarin
