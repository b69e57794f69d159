#include "Tessarin/platform/queues/engine/Timekeeper.h"

#include "Tessarin/platform/queues/engine/OwnRun.h"
#include "Tessarin/platform/queues/engine/Pool.h"
#include "Tessarin/platform/queues/engine/Thread.h"
#include "Tessarin/platform/queues/engine/ThreadStart.h"
#include <algorithm>
#include <mutex>
#include <sys/prctl.h>
#include <vector>

namespace Tessarin::engine {
namespace {

constexpr Nanoseconds shortestRound = 50'000;
constexpr Nanoseconds longestRound = 2'000'000;
constexpr Nanoseconds urgentRound = 250'000; // while turns of serial queues stand still
constexpr Nanoseconds standInRound = 1'000'000;
constexpr int quietRounds = 10; // then the monitor goes home

// Where timers are dense, they are submitted in batches this far apart: one wake-up for several.
constexpr Nanoseconds batching = 30'000;
constexpr Nanoseconds dense = 1'000'000;

struct Timer {
    Nanoseconds when;
    std::uint64_t sequence; // equal moments keep the order of submission
    WorkItem* item;         // its link, which nobody else uses yet, is the queue, or with a flag a droppable timer

    static constexpr std::uintptr_t IsDroppable = 1;
    DroppableTimer* droppable() const noexcept {
        return item->link & IsDroppable ? reinterpret_cast<DroppableTimer*>(item->link & ~IsDroppable) : nullptr;
    }
    bool isDropped() const noexcept {
        auto const* const own = droppable();
        return own && own->isDropped();
    }
    /// To its queue, unless it is dropped.
    void handOut() const noexcept {
        auto* const own = droppable();
        auto& queue = own ? own->queue() : *reinterpret_cast<DispatchQueue*>(item->link);
        bool const isGivenUp = isDropped();
        item->link = 0;
        isGivenUp ? recycle(item) : queue.submit(item);
        if (own) own->release();
        queue.release();
    }
};

bool isLater(Timer const& left, Timer const& right) {
    return left.when != right.when ? left.when > right.when : left.sequence > right.sequence;
}

class Timekeeper {
public:
    /// `link` is that of a Timer.
    void add(Nanoseconds when, std::uintptr_t link, WorkItem* item) {
        bool isNext = false;
        {
            std::lock_guard const hold(lock_);
            if (timers_.size() == timers_.capacity())
                timers_.reserve(timers_.size() + timers_.size() / 4 + 8); // they may be many
            item->link = link;
            timers_.push_back({when, ++sequence_, item});
            std::push_heap(timers_.begin(), timers_.end(), isLater);
            isNext = when < wakesAt_;
        }
        if (isNext) knock();
    }

    /// One of the pending ones, or one that has just been due, is dropped. Where most are, they go.
    void noteDropped() {
        static constexpr std::size_t fewDropped = 64;
        std::vector<Timer> dropped;
        {
            std::lock_guard const hold(lock_);
            if (++dropped_ < fewDropped || dropped_ < timers_.size() / 2) return;
            auto const first =
                std::partition(timers_.begin(), timers_.end(), [](Timer const& each) { return !each.isDropped(); });
            dropped.assign(first, timers_.end());
            timers_.erase(first, timers_.end());
            std::make_heap(timers_.begin(), timers_.end(), isLater);
            dropped_ = 0;
        }
        for (auto const& each : dropped) each.handOut();
    }

    /// Makes the thread look again, and start if need be.
    void knock() noexcept {
        knocks_.fetch_add(1, std::memory_order_seq_cst);
        if (!started_.load(std::memory_order_acquire) && !started_.exchange(true, std::memory_order_acq_rel)) return start();
        unpark(knocks_);
    }

private:
    static void succeed();
    bool startOwnThread() noexcept {
        auto const enter = [](void* self) -> void* {
            prctl(PR_SET_TIMERSLACK, 1); // nanosecond; the default adds 50 microseconds to every sleep
            static_cast<Timekeeper*>(self)->run();
            return nullptr;
        };
        return startThread("dispatch-timer", enter, this);
    }

    void start() noexcept {
        if (startOwnThread()) return;
        // Whoever calls next tries again. But timers wait for nobody's call.
        monitorIsOut.store(false, std::memory_order_seq_cst);
        started_.store(false, std::memory_order_seq_cst);
        lock_.lock();
        bool const isNeeded = !timers_.empty();
        lock_.unlock();
        if (isNeeded && !started_.exchange(true, std::memory_order_acq_rel)) sendStandIn();
    }

    /// Has a worker do the thread's work between two others, again and again until there is a thread for it.
    void sendStandIn() noexcept {
        defaultGlobalQueue().submit(newItem([this] {
            if (startOwnThread()) return;
            takeDue();
            handOut();
            {
                BlockingScope const blocking;
                park(knocks_, knocks_.load(std::memory_order_relaxed), std::min(wakesAt_, now_ + standInRound));
            }
            sendStandIn();
        }));
    }

    /// Returns when another thread has taken its place.
    void run() noexcept {
        for (;;) {
            auto const knocks = knocks_.load(std::memory_order_seq_cst);
            takeDue();
            auto const nextTimer = due_.empty() ? wakesAt_ : std::max(wakesAt_, now_ + batching);
            if (!submitDue()) return;
            auto const nextRound = doRound();
            auto const deadline = std::min(nextTimer, nextRound);
            if (deadline > monotonicNow()) park(knocks_, knocks, deadline);
        }
    }

    void takeDue() noexcept {
        now_ = monotonicNow();
        std::lock_guard const hold(lock_);
        while (!timers_.empty() && timers_.front().when <= now_) {
            std::pop_heap(timers_.begin(), timers_.end(), isLater);
            due_.push_back(timers_.back());
            timers_.pop_back();
        }
        wakesAt_ = timers_.empty() ? never : timers_.front().when;
    }

    /// Gives what is due to its queues; where timers are dense, one of the queues gets its turn here. False as OwnRun::run.
    bool submitDue() noexcept {
        Catch caught;
        bool const isDense = wakesAt_ - now_ < dense;
        if (isDense && ownRun_.isAllowed(now_)) thisThread.catching = &caught;
        if (!isDense) ownRun_.pause();
        handOut();
        thisThread.catching = nullptr;
        return !caught.item || ownRun_.run(caught);
    }
    void handOut() noexcept {
        for (auto const& timer : due_) timer.handOut();
        due_.clear();
    }

    Nanoseconds doRound() noexcept {
        if (!monitorIsOut.load(std::memory_order_seq_cst)) {
            round_ = 0;
            return never;
        }
        auto const now = monotonicNow();
        if (round_ == 0) { // just called: give the workers a moment
            round_ = shortestRound;
            quiet_ = 0;
            return nextRound_ = now + round_;
        }
        if (now < nextRound_) return nextRound_;
        auto visit = inspectPools(now);
        quiet_ = visit != Pool::Visit::NotNeeded ? 0 : quiet_ + 1;
        if (quiet_ >= quietRounds) {
            monitorIsOut.store(false, std::memory_order_seq_cst);
            visit = inspectPools(now);
            if (visit == Pool::Visit::NotNeeded) return never;
            monitorIsOut.store(true, std::memory_order_seq_cst);
            quiet_ = 0;
        }
        round_ = std::min(round_ * 2, visit == Pool::Visit::Soon ? urgentRound : longestRound);
        return nextRound_ = now + round_;
    }

    std::atomic<std::uint32_t> knocks_ = 0;
    std::atomic<bool> started_ = false;
    Lock lock_;
    std::vector<Timer> timers_;  // a heap, guarded by lock_
    std::uint64_t sequence_ = 0; // guarded by lock_
    std::size_t dropped_ = 0;    // since they were last cleared; guarded by lock_
    Nanoseconds wakesAt_ = never; // written by the thread under lock_

    // The thread's own:
    Nanoseconds now_ = 0;
    std::vector<Timer> due_;
    OwnRun ownRun_{[] { succeed(); }};
    Nanoseconds round_ = 0;
    Nanoseconds nextRound_ = 0;
    int quiet_ = 0;
};

Timekeeper& timekeeper() {
    static auto& instance = *new Timekeeper;
    return instance;
}

void Timekeeper::succeed() { timekeeper().run(); }

} // namespace

constinit std::atomic<bool> monitorIsOut = false;

void submitAt(Nanoseconds when, DispatchQueue& queue, WorkItem* item) {
    timekeeper().add(when, reinterpret_cast<std::uintptr_t>(&queue), item);
}

DroppableTimer* submitAtUnlessDropped(Nanoseconds when, DispatchQueue& queue, WorkItem* item) {
    queue.retain();
    auto* const timer = new DroppableTimer(queue);
    timekeeper().add(when, reinterpret_cast<std::uintptr_t>(timer) | Timer::IsDroppable, item);
    return timer;
}

void DroppableTimer::drop() noexcept {
    isDropped_.store(true, std::memory_order_release);
    timekeeper().noteDropped();
    release();
}

void sendMonitor() noexcept {
    if (!monitorIsOut.exchange(true, std::memory_order_seq_cst)) timekeeper().knock();
}

} // namespace Tessarin::engine
