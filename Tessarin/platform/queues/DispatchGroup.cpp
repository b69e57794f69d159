#include "Tessarin/platform/queues/DispatchGroup.h"

#include "Tessarin/platform/queues/engine/DispatchQueue.h"
#include "Tessarin/platform/queues/engine/Required.h"
#include "Tessarin/platform/queues/engine/Thread.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include <algorithm>
#include <climits>
#include <iterator>
#include <mutex>
#include <vector>

namespace Tessarin {

using namespace engine;

/// One word: the count above, and below it the number of times the group has become empty, whose end waiting threads sleep on,
/// with two flags that are cleared on that occasion.
class DispatchGroup {
public:
    void retain() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept {
        if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }

    void enter() noexcept {
        auto const before = state_.fetch_add(One, std::memory_order_acquire);
        if (isEmpty(before)) retain(); // the count holds one reference
    }

    void leave() noexcept {
        auto state = state_.load(std::memory_order_relaxed);
        std::uint64_t next = 0;
        do {
            if (isEmpty(state)) fatal("dispatch_group_leave: without dispatch_group_enter");
            next = state - One;
            if (isEmpty(next)) next = (roundOf(state) + Round) & Lower;
        } while (!state_.compare_exchange_weak(state, next, std::memory_order_acq_rel, std::memory_order_relaxed));
        if (!isEmpty(next)) return;
        if (state & Waiters) unpark(state_, INT_MAX);
        if (state & Notifies) submitNotices(roundOf(state));
        release();
    }

    void notify(DispatchQueue& queue, WorkItem* item) {
        {
            std::lock_guard const hold(lock_);
            auto state = state_.load(std::memory_order_relaxed);
            while (!isEmpty(state)) {
                if (!state_.compare_exchange_weak(state, state | Notifies, std::memory_order_acq_rel, std::memory_order_relaxed))
                    continue;
                notices_.push_back({dispatch_queue_t{&queue}, item, roundOf(state)});
                return;
            }
        }
        queue.submit(item);
    }

    bool wait(dispatch_time_t timeout) noexcept {
        auto state = state_.load(std::memory_order_acquire);
        auto const round = roundOf(state);
        auto const isOver = [&] { return isEmpty(state) || roundOf(state) != round; };
        if (isOver()) return true;
        if (timeout == DISPATCH_TIME_NOW) return false;
        if (spin(spinTime, [&] {
                state = state_.load(std::memory_order_acquire);
                return isOver();
            }))
            return true;
        BlockingScope const blocking;
        auto const deadline = deadlineOf(timeout);
        for (bool inTime = true; !isOver();) {
            if (!inTime) return false;
            if (!(state & Waiters) &&
                !state_.compare_exchange_weak(state, state | Waiters, std::memory_order_acq_rel, std::memory_order_acquire))
                continue;
            inTime = park(state_, state | Waiters, deadline);
            state = state_.load(std::memory_order_acquire);
        }
        return true;
    }

private:
    static constexpr std::uint64_t One = std::uint64_t{1} << 32;
    static constexpr std::uint64_t Lower = One - 1;
    static constexpr std::uint64_t Waiters = 1;
    static constexpr std::uint64_t Notifies = 2;
    static constexpr std::uint64_t Round = 4;
    static bool isEmpty(std::uint64_t state) noexcept { return state < One; }
    static std::uint64_t roundOf(std::uint64_t state) noexcept { return state & Lower & ~(Waiters | Notifies); }

    struct Notice {
        dispatch_queue_t queue;
        WorkItem* item;
        std::uint64_t round; // the one that it waits for the end of
    };

    /// Only those of the round that has ended: the next one may have begun, and have notices of its own.
    void submitNotices(std::uint64_t round) noexcept {
        std::vector<Notice> ended;
        {
            std::lock_guard const hold(lock_);
            auto const first =
                std::ranges::stable_partition(notices_, [=](auto const& notice) { return notice.round != round; }).begin();
            ended.assign(std::make_move_iterator(first), std::make_move_iterator(notices_.end()));
            notices_.erase(first, notices_.end());
        }
        for (auto const& notice : ended) notice.queue->submit(notice.item);
    }

    static constexpr Nanoseconds spinTime = 3'000;

    std::atomic<std::uint64_t> state_ = 0;
    std::atomic<std::uint32_t> references_ = 1;
    Lock lock_;
    std::vector<Notice> notices_; // guarded by lock_
};

void retainObject(DispatchGroup& group) noexcept { group.retain(); }
void releaseObject(DispatchGroup& group) noexcept { group.release(); }

dispatch_group_t dispatch_group_create() { return dispatch_group_t::adopt(new DispatchGroup); }
void dispatch_group_enter(dispatch_group_t const& group) { required(group, __func__).enter(); }
void dispatch_group_leave(dispatch_group_t const& group) { required(group, __func__).leave(); }

void dispatch_group_async(dispatch_group_t const& group, dispatch_queue_t const& queue, Closure<void()> work) {
    auto& wanted = required(queue, __func__);
    required(group, __func__).enter();
    // The count keeps the group alive; the inner item keeps the closure, so that nothing is allocated.
    wanted.submit(newItem([group = group.get(), item = newItem(std::move(work))] {
        runAndRecycle(item);
        group->leave();
    }));
}
void dispatch_group_async_f(dispatch_group_t const& group, dispatch_queue_t const& queue, void* context,
                            dispatch_function_t work) {
    dispatch_group_async(group, queue, [=] { work(context); });
}

void dispatch_group_notify(dispatch_group_t const& group, dispatch_queue_t const& queue, Closure<void()> work) {
    required(group, __func__).notify(required(queue, __func__), newItem(std::move(work)));
}
void dispatch_group_notify_f(dispatch_group_t const& group, dispatch_queue_t const& queue, void* context,
                             dispatch_function_t work) {
    dispatch_group_notify(group, queue, [=] { work(context); });
}

std::intptr_t dispatch_group_wait(dispatch_group_t const& group, dispatch_time_t timeout) {
    return required(group, __func__).wait(timeout) ? 0 : 1;
}

} // namespace Tessarin
