#include "Tessarin/platform/queues/DispatchSource.h"
#include "tests/platform/queues/Support.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

namespace Tessarin {
namespace {

using namespace tests;

constexpr std::int64_t millisecond = 1'000'000;
dispatch_source_t timer(dispatch_queue_t const& queue) { return dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, queue); }
std::int64_t since(std::chrono::steady_clock::time_point start) {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now() - start).count();
}

TEST(TimerSource, RepeatsInStepNeverEarlyNeverTwiceAtATimeUntilItCancelsItself) {
    for (auto const& queue : {serialQueue(), concurrentQueue(), dispatch_get_global_queue(0, 0)}) {
        auto const source = timer(queue);
        Event over;
        std::atomic<int> running = 0;
        std::uintptr_t rounds = 0;
        auto const start = std::chrono::steady_clock::now();
        dispatch_source_set_timer(source, dispatch_time(DISPATCH_TIME_NOW, 2 * millisecond), 2 * millisecond, millisecond / 2);
        dispatch_source_set_event_handler(source, [&] {
            EXPECT_EQ(++running, 1);
            rounds += dispatch_source_get_data(source);
            EXPECT_GE(since(start), static_cast<std::int64_t>(rounds) * 2 * millisecond);
            for (auto const begun = std::chrono::steady_clock::now(); since(begun) < 3 * millisecond;) {} // longer than a round
            if (rounds >= 10) dispatch_source_cancel(source);
            --running;
        });
        dispatch_source_set_cancel_handler(source, [&] {
            EXPECT_EQ(running, 0);
            over.happen();
        });
        dispatch_activate(source);
        EXPECT_TRUE(over.wait());
        EXPECT_NE(dispatch_source_testcancel(source), 0);
        auto const counted = rounds;
        dispatch_source_cancel(source);
        dispatch_resume((dispatch_suspend(source), source));
        dispatch_barrier_sync(queue, [] {});
        EXPECT_EQ(rounds, counted);
        EXPECT_FALSE(over.hasHappened());
    }
}

TEST(TimerSource, WhatIsMissedIsCountedAndWhatIsSetAnewForgotten) {
    auto const queue = serialQueue();
    auto const source = timer(queue);
    Event fired;
    std::uintptr_t rounds = 0;
    dispatch_source_set_event_handler(source, [&] {
        rounds = dispatch_source_get_data(source);
        dispatch_source_set_timer(source, DISPATCH_TIME_FOREVER, 0, 0); // from inside
        fired.happen();
    });
    auto const past = dispatch_time(DISPATCH_TIME_NOW, -1'000 * millisecond);
    dispatch_source_set_timer(source, past, millisecond, 0);
    auto const set = std::chrono::steady_clock::now();
    EXPECT_TRUE(eventually([&] { return since(set) > 5 * millisecond; }));
    dispatch_activate(source);
    EXPECT_TRUE(fired.wait());
    EXPECT_GE(rounds, 5u) << "while it was suspended";
    EXPECT_LT(rounds, 1'000u) << "before it was set";

    dispatch_suspend(source);
    dispatch_source_set_timer(source, DISPATCH_TIME_NOW, 0, 0);
    dispatch_sync(queue, [] {});
    EXPECT_FALSE(fired.hasHappened());
    dispatch_source_set_timer(source, DISPATCH_TIME_FOREVER, 0, 0);
    dispatch_resume(source);
    dispatch_sync(queue, [] {});
    EXPECT_FALSE(fired.hasHappened());
    timespec const longAgo{1, 0};
    dispatch_source_set_timer(source, dispatch_walltime(&longAgo, 0), 0, 0);
    EXPECT_TRUE(fired.wait());
    EXPECT_EQ(rounds, 1u);
    EXPECT_DEATH(dispatch_resume(source), "dispatch_resume: the source is not suspended");
}

TEST(TimerSource, ADroppedOneEndsAndManyCancelledOnesLeaveNothing) {
    auto const queue = serialQueue();
    Event over;
    auto const held = std::make_shared<int>();
    {
        auto const source = timer(queue);
        dispatch_source_set_timer(source, dispatch_time(DISPATCH_TIME_NOW, 3'600'000 * millisecond), 0, 0);
        dispatch_source_set_event_handler(source, [held] {});
        dispatch_source_set_cancel_handler(source, [&, held] { over.happen(); });
        dispatch_activate(source);
    }
    EXPECT_TRUE(over.wait());
    // What each moment keeps is a reference to its queue: the queue's context goes with the last one.
    Event gone;
    auto owner = serialQueue();
    dispatch_set_context(owner, &gone);
    dispatch_set_finalizer_f(owner, [](void* event) { static_cast<Event*>(event)->happen(); });
    std::vector<dispatch_source_t> many;
    for (int at = 0; at < 1'000; ++at) {
        many.push_back(timer(owner));
        dispatch_source_set_timer(many.back(), dispatch_time(DISPATCH_TIME_NOW, 3'600'000 * millisecond), 0, 0);
        dispatch_source_set_event_handler(many.back(), [held] {});
        dispatch_activate(many.back());
    }
    owner = nullptr;
    many.clear();
    for (int at = 0; at < 200; ++at) timer(queue); // never set: costs nothing
    EXPECT_TRUE(eventually([&] { return held.use_count() == 1; }));
    for (auto const& each : {timer(queue), timer(queue)}) {
        for (int at = 0; at < 100; ++at)
            dispatch_source_set_timer(each, dispatch_time(DISPATCH_TIME_NOW, 3'600'000 * millisecond), 0, 0),
                dispatch_activate(each);
    }
    EXPECT_TRUE(gone.wait()) << "an hour is not waited for";
}

} // namespace
} // namespace Tessarin
