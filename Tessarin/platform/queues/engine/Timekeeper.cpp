#include "Tessarin/platform/queues/engine/Timekeeper.h"

#include "Tessarin/platform/queues/engine/Pool.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include <algorithm>
#include <csignal>
#include <mutex>
#include <pthread.h>
#include <sys/prctl.h>
#include <vector>

namespace Tessarin::engine {
namespace {

constexpr Nanoseconds shortestRound = 50'000;
constexpr Nanoseconds longestRound = 2'000'000;
constexpr int quietRounds = 10; // then the monitor goes home

// Where timers are dense, they are submitted in batches this far apart: one wake-up for several.
constexpr Nanoseconds batching = 50'000;

struct Timer {
    Nanoseconds when;
    std::uint64_t sequence; // equal moments keep the order of submission
    WorkItem* item;         // its link, which nobody else uses yet, is the queue

    DispatchQueue* queue() const noexcept { return reinterpret_cast<DispatchQueue*>(item->link); }
};

bool isLater(Timer const& left, Timer const& right) {
    return left.when != right.when ? left.when > right.when : left.sequence > right.sequence;
}

class Timekeeper {
public:
    void add(Nanoseconds when, DispatchQueue& queue, WorkItem* item) {
        bool isNext = false;
        {
            std::lock_guard const hold(lock_);
            if (timers_.size() == timers_.capacity()) timers_.reserve(timers_.size() + timers_.size() / 4 + 8); // they may be many
            item->link = reinterpret_cast<std::uintptr_t>(&queue);
            timers_.push_back({when, ++sequence_, item});
            std::push_heap(timers_.begin(), timers_.end(), isLater);
            isNext = when < wakesAt_;
        }
        if (isNext) knock();
    }

    /// Makes the thread look again, and start if need be.
    void knock() noexcept {
        knocks_.fetch_add(1, std::memory_order_seq_cst);
        if (!started_.load(std::memory_order_acquire) && !started_.exchange(true, std::memory_order_acq_rel)) return start();
        unpark(knocks_);
    }

private:
    void start() noexcept {
        sigset_t all;
        sigset_t before;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
        pthread_t thread;
        auto const enter = [](void* self) -> void* { static_cast<Timekeeper*>(self)->run(); };
        if (pthread_create(&thread, nullptr, enter, this) != 0) fatal("dispatch: no thread can be started");
        pthread_detach(thread);
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }

    [[noreturn]] void run() noexcept {
        pthread_setname_np(pthread_self(), "dispatch-timer");
        prctl(PR_SET_TIMERSLACK, 1); // nanosecond; the default adds 50 microseconds to every sleep
        for (;;) {
            auto const knocks = knocks_.load(std::memory_order_seq_cst);
            auto const nextTimer = submitDue();
            auto const nextRound = doRound();
            auto const deadline = std::min(nextTimer, nextRound);
            if (deadline > monotonicNow()) park(knocks_, knocks, deadline);
        }
    }

    /// When the next timer after those that are due now will be.
    Nanoseconds submitDue() noexcept {
        auto const now = monotonicNow();
        {
            std::lock_guard const hold(lock_);
            while (!timers_.empty() && timers_.front().when <= now) {
                std::pop_heap(timers_.begin(), timers_.end(), isLater);
                due_.push_back(timers_.back());
                timers_.pop_back();
            }
            wakesAt_ = timers_.empty() ? never : timers_.front().when;
        }
        if (due_.empty()) return wakesAt_;
        for (auto const& timer : due_) {
            auto* const queue = timer.queue();
            timer.item->link = 0;
            queue->submit(timer.item);
            queue->release();
        }
        due_.clear();
        return std::max(wakesAt_, now + batching);
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
        bool const busy = inspectPools(now);
        quiet_ = busy ? 0 : quiet_ + 1;
        if (quiet_ >= quietRounds) {
            monitorIsOut.store(false, std::memory_order_seq_cst);
            if (!inspectPools(now)) return never;
            monitorIsOut.store(true, std::memory_order_seq_cst);
            quiet_ = 0;
        }
        round_ = std::min(round_ * 2, longestRound);
        return nextRound_ = now + round_;
    }

    std::atomic<std::uint32_t> knocks_ = 0;
    std::atomic<bool> started_ = false;
    Lock lock_;
    std::vector<Timer> timers_;  // a heap, guarded by lock_
    std::uint64_t sequence_ = 0; // guarded by lock_
    Nanoseconds wakesAt_ = never; // written by the thread under lock_

    // The thread's own:
    std::vector<Timer> due_;
    Nanoseconds round_ = 0;
    Nanoseconds nextRound_ = 0;
    int quiet_ = 0;
};

Timekeeper& timekeeper() {
    static auto& instance = *new Timekeeper;
    return instance;
}

} // namespace

constinit std::atomic<bool> monitorIsOut = false;

void submitAt(Nanoseconds when, DispatchQueue& queue, WorkItem* item) { timekeeper().add(when, queue, item); }

void sendMonitor() noexcept {
    if (!monitorIsOut.exchange(true, std::memory_order_seq_cst)) timekeeper().knock();
}

} // namespace Tessarin::engine
