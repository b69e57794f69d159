#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/notifications/TiedObject.h"
#include "Tessarin/platform/foundation/operations/CallGate.h"
#include "Tessarin/platform/foundation/time/NSDate.h"
#include "Tessarin/platform/queues/DispatchSource.h"
#include "Tessarin/platform/runtime/Cell.h"
#include "Tessarin/platform/runtime/Ref.h"
#include <cstdint>
#include <optional>

namespace Tessarin {

struct MainQueueTimerOptions {
    double tolerance = 0;   // seconds it may be late, so that timers share a wake-up; never early
    TiedObject tiedTo = {}; // held weakly: the timer ends with it
};

/// Calls a block on the main queue, once or again and again, until it is invalidated, its tied object ends, or its one call is
/// over. Until then nobody needs to keep it. What follows may be called from any thread; outside the main queue `pause`,
/// `resume`, `move` and `fire` take effect when the main queue comes to it.
///
///     MainQueueTimer::after(0.3, [=] { search(text); });
///     clock = MainQueueTimer::every(1, [this] { showTime(); }, {.tolerance = 0.1, .tiedTo = self()});
///     clock->invalidate();
///
/// Seconds that do not fit 64-bit nanoseconds are fatal; negative ones are as 0.
class TESSARIN_API MainQueueTimer : public std::enable_shared_from_this<MainQueueTimer> {
public:
    MainQueueTimer(MainQueueTimer const&) = delete;
    MainQueueTimer& operator=(MainQueueTimer const&) = delete;
    virtual ~MainQueueTimer();

    static Ref<MainQueueTimer> after(double seconds, Closure<void()> block, MainQueueTimerOptions options = {});
    /// First after one interval. Lateness does not add up, and calls that were missed are not made up for. Fatal unless it is
    /// more than 0.
    static Ref<MainQueueTimer> every(double interval, Closure<void()> block, MainQueueTimerOptions options = {});
    /// At once when the date is past. Setting the system's clock afterwards does not move it.
    static Ref<MainQueueTimer> at(NSDate const& date, Closure<void()> block, MainQueueTimerOptions options = {});

    /// The block never runs after this. On another thread it waits for a call under way, so it must not be called there by
    /// something that the block waits for.
    void invalidate();
    bool isValid() const { return gate_.isOpen(); }

    /// Calls the block now: here, in the main queue. A timer for one call has had it then; the next of a repeating one is as it
    /// was.
    void fire();
    /// What remains until the next call stays as it is, until `resume`. A timer for a date keeps the date: past, it is called
    /// at the resume.
    void pause();
    void resume();
    bool isPaused() const { return isPaused_.get(); }
    /// The next call is so many seconds from now, or at the date; further ones an interval apart from there.
    void move(double seconds);
    void moveTo(NSDate const& date);
    /// When it is called next; absent when it is paused or no longer valid. For the main queue.
    std::optional<NSDate> fireDate() const;

protected:
    enum class Kind { After, Every, At };
    MainQueueTimer() = default;
    virtual void init(Kind kind, double seconds, Closure<void()> block, MainQueueTimerOptions options);

private:
    class End;
    void onMainQueue(void (MainQueueTimer::*change)(std::int64_t), std::int64_t argument = 0);
    void set();
    void fell();
    void call(std::int64_t);
    void pauseNow(std::int64_t);
    void resumeNow(std::int64_t);
    void moveNow(std::int64_t due);

    CallGate gate_;
    dispatch_source_t source_; // this and the next five are constant after init
    Kind kind_ = Kind::After;
    std::int64_t interval_ = 0, tolerance_ = 0; // nanoseconds
    Closure<void()> block_;
    bool isTied_ = false;
    WeakRef<NSObject> tiedTo_;
    Cell<bool> isPaused_{false};
    std::int64_t due_ = 0; // by the monotonic clock; while it is paused, what remains. The main queue's
};

} // namespace Tessarin
