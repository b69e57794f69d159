#pragma once
#include "Tessarin/platform/queues/QueueChecks.h"
#include "Tessarin/platform/queues/engine/DispatchQueue.h"
#include "Tessarin/platform/queues/engine/SyncCycle.h"
#include "Tessarin/platform/queues/engine/Thread.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <sched.h>

namespace Tessarin::engine {

/// Runs borrowed work; an exception that leaves it ends the process with its message.
inline void runInQueue(DispatchQueue& queue, FunctionRef<void()> work) noexcept {
    FrameScope const frame(queue);
    work();
}

/// A sync that waits in line, on the stack of its thread.
struct Waiter : WorkItem {
    enum Outcome : std::uint32_t { Waiting, Asleep, Granted, Done };

    Waiter(DispatchQueue& home, FunctionRef<void()> borrowed) noexcept : queue(home), function(borrowed) {}

    /// Queues it on `at`, and waits until the queues from there up are this thread's (Granted) or the main thread has run the
    /// work (Done).
    Outcome waitOn(DispatchQueue& at, Access access) noexcept {
        auto const turns = at.turns();
        line(at, access);
        if (turns == SyncTurns::Middling || turns == SyncTurns::PerhapsLong ? yieldUntilSettled()
                                                                            : spin(3'000, [this] { return isSettled(); }))
            return result();
        BlockingScope const blocking;
        std::uint32_t expected = Waiting;
        outcome.compare_exchange_strong(expected, Asleep, std::memory_order_acq_rel);
        if (queuesAreChecked()) sleepWatchfully();
        while (outcome.load(std::memory_order_acquire) == Asleep) park(outcome, Asleep);
        return result();
    }
    /// After two seconds, and from then on with growing pauses, looks whether the sync can never return.
    void sleepWatchfully() noexcept {
        SyncCycle cycle(*this);
        for (Nanoseconds pause = 2'000'000'000; outcome.load(std::memory_order_acquire) == Asleep; pause *= 2) {
            for (auto const deadline = monotonicNow() + pause;
                 outcome.load(std::memory_order_acquire) == Asleep && monotonicNow() < deadline;)
                park(outcome, Asleep, deadline);
            if (outcome.load(std::memory_order_acquire) == Asleep) cycle.tellIfClosed();
        }
    }
    void line(DispatchQueue& at, Access access) noexcept {
        level = &at;
        setKind(access == Access::Shared ? ItemKind::SharedWaiter : ItemKind::Waiter);
        at.submit(this);
    }
    /// The last thing that others do with a waiter: it is gone as soon as its thread sees the outcome.
    void settle(Outcome how) noexcept {
        if (outcome.exchange(how, std::memory_order_acq_rel) == Asleep) unpark(outcome);
    }
    void runHere() noexcept {
        runInQueue(queue, function);
        settle(Done);
    }
    bool isSettled() const noexcept { return outcome.load(std::memory_order_acquire) >= Granted; }
    /// Spinning, but for threads that have something to do: the one that has the queue may be among them.
    bool yieldUntilSettled() const noexcept {
        for (auto const end = monotonicNow() + yieldPatience; !isSettled(); sched_yield())
            if (monotonicNow() > end) return false;
        return true;
    }
    Outcome result() const noexcept { return static_cast<Outcome>(outcome.load(std::memory_order_acquire)); }

    static constexpr Nanoseconds yieldPatience = 1'000'000;

    DispatchQueue& queue; // whose work it is
    DispatchQueue* level = nullptr; // on whose list it stands
    FunctionRef<void()> function;
    std::atomic<std::uint32_t> outcome = Waiting;
};

} // namespace Tessarin::engine
