#pragma once
#include "Tessarin/platform/queues/engine/Parking.h"
#include "Tessarin/platform/queues/engine/WorkItem.h"

namespace Tessarin::engine {

class Pool;

/// What a thread gets in its hands when it makes a queue runnable, instead of the pool; see ThreadContext.
struct Catch {
    WorkItem* item = nullptr;
    Pool* pool = nullptr;
};

/// Lets the timekeeper's thread run short items of busy timers itself: calling a worker for each batch would cost more than the
/// timers do (benchmark "timers"). So that an item which takes long, or waits for ever, delays no other timer, a deputy looks
/// every millisecond; when it finds the same run twice it takes the timekeeper's place, and the thread that runs the item ends
/// with it.
class OwnRun {
public:
    using Successor = void (*)();
    explicit OwnRun(Successor successor) noexcept : successor_(successor) {}

    /// Whether the thread may run items now. Long ones put that off for a while.
    bool isAllowed(Nanoseconds now) const noexcept { return now >= allowedFrom_; }
    /// Runs what was caught. False when the deputy has taken over: then the thread must touch nothing more.
    bool run(Catch const& caught) noexcept;
    /// Nothing is due soon: the deputy may sleep.
    void pause() noexcept { watched_.store(0, std::memory_order_relaxed); }

private:
    void callDeputy() noexcept;
    void watch() noexcept;

    Successor const successor_;
    std::atomic<std::uint64_t> current_ = 0; // the number of the run that is under way, or 0; each number is used once
    std::atomic<std::uint32_t> watched_ = 0; // whether the deputy looks
    bool hasDeputy_ = false; // from here on the timekeeper's
    std::uint64_t number_ = 0;
    Nanoseconds allowedFrom_ = 0;
};

} // namespace Tessarin::engine
