#include "tests/platform/queues/Support.h"

#include <atomic>
#include <thread>

namespace Tessarin {
namespace {

using namespace tests;

constexpr std::int64_t millisecond = 1'000'000;
dispatch_time_t in(std::int64_t nanoseconds) { return dispatch_time(DISPATCH_TIME_NOW, nanoseconds); }

TEST(Group, NotifiesOncePerEmptyingAndAtOnceWhenEmpty) {
    auto const group = dispatch_group_create();
    auto const queue = serialQueue();
    Event notified;
    EXPECT_EQ(dispatch_group_wait(group, DISPATCH_TIME_NOW), 0);
    dispatch_group_notify(group, queue, [=] { notified.happen(); });
    EXPECT_TRUE(notified.wait());

    for (int round = 0; round < 3; ++round) {
        dispatch_group_enter(group);
        dispatch_group_enter(group);
        dispatch_group_notify(group, queue, [=] { notified.happen(); });
        dispatch_group_leave(group);
        EXPECT_NE(dispatch_group_wait(group, in(millisecond)), 0);
        dispatch_sync(queue, [] {});
        EXPECT_FALSE(notified.hasHappened());
        dispatch_group_leave(group);
        EXPECT_TRUE(notified.wait());
        dispatch_sync(queue, [] {});
        EXPECT_FALSE(notified.hasHappened());
    }
}

TEST(Group, WaitSeesTheEffectsOfAllWorkAndOutlivesItsLastReference) {
    for (int round = 0; round < 200; ++round) {
        int done[8]{};
        Event notified;
        auto group = dispatch_group_create();
        for (int& each : done) dispatch_group_async(group, dispatch_get_global_queue(0, 0), [&each] { each = 1; });
        if (round % 2) {
            EXPECT_EQ(dispatch_group_wait(group, limit()), 0);
        }
        dispatch_group_notify(group, dispatch_get_global_queue(0, 0), [=] { notified.happen(); });
        group = nullptr;
        EXPECT_TRUE(notified.wait());
        for (int const each : done) EXPECT_EQ(each, 1);
    }
}

TEST(Group, EveryWaiterWakesAndANextRoundsNoticeWaitsForItsOwnEnd) {
    auto const group = dispatch_group_create();
    auto const queue = serialQueue();
    for (int round = 0; round < 20 && !testing::Test::HasFailure(); ++round) {
        dispatch_group_enter(group);
        std::atomic<int> waiting = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i) threads.emplace_back([&] { EXPECT_EQ((++waiting, dispatch_group_wait(group, limit())), 0); });
        EXPECT_TRUE(eventually([&] { return waiting == 3; })); // and a millisecond later, when it looks again, they sleep
        dispatch_group_leave(group);
        for (auto& thread : threads) thread.join();
    }

    // The end of one round and the start of the next at the same time, on two threads.
    std::atomic<int> early = 0;
    for (int round = 0; round < 2000; ++round) {
        std::atomic<bool> isOver = false;
        dispatch_group_enter(group);
        dispatch_group_notify(group, queue, [] {});
        std::thread leaving([&] { dispatch_group_leave(group); });
        dispatch_group_wait(group, DISPATCH_TIME_FOREVER);
        dispatch_group_enter(group);
        Event done;
        dispatch_group_notify(group, queue, [&, done] { early += !isOver, done.happen(); });
        leaving.join();
        dispatch_sync(queue, [] {});
        isOver = true;
        dispatch_group_leave(group);
        EXPECT_TRUE(done.wait());
    }
    EXPECT_EQ(early, 0);
}

TEST(Semaphore, CountsAndTellsWhetherItWokeSomebody) {
    EXPECT_FALSE(dispatch_semaphore_create(-1));
    auto const semaphore = dispatch_semaphore_create(1);
    EXPECT_EQ(dispatch_semaphore_wait(semaphore, DISPATCH_TIME_NOW), 0);
    EXPECT_NE(dispatch_semaphore_wait(semaphore, DISPATCH_TIME_NOW), 0);
    EXPECT_NE(dispatch_semaphore_wait(semaphore, in(millisecond)), 0);
    EXPECT_EQ(dispatch_semaphore_signal(semaphore), 0);
    EXPECT_EQ(dispatch_semaphore_wait(semaphore, DISPATCH_TIME_FOREVER), 0);

    std::thread waiting([&] { EXPECT_EQ(dispatch_semaphore_wait(semaphore, limit()), 0); });
    bool wokeSomebody = false;
    EXPECT_TRUE(eventually([&] { // a unit that is there can be taken back: so until the other one waits
        wokeSomebody = dispatch_semaphore_signal(semaphore) != 0;
        return wokeSomebody || dispatch_semaphore_wait(semaphore, DISPATCH_TIME_NOW) != 0;
    }));
    waiting.join();
    dispatch_semaphore_signal(semaphore);
}

TEST(Semaphore, TimeoutsAndSignalsNeverLoseAUnit) {
    auto const semaphore = dispatch_semaphore_create(0);
    std::atomic<int> taken = 0;
    constexpr int units = 2000;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread)
        threads.emplace_back([&, thread] {
            while (taken < units) taken += dispatch_semaphore_wait(semaphore, in(thread * 20'000)) == 0;
        });
    for (int i = 0; i < units; ++i) dispatch_semaphore_signal(semaphore);
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(taken, units);
    EXPECT_NE(dispatch_semaphore_wait(semaphore, DISPATCH_TIME_NOW), 0);
}

TEST(Once, RunsOnceAndEverybodyWaitsForIt) {
    for (int round = 0; round < 50; ++round) {
        dispatch_once_t token = 0;
        int made = 0;
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 4; ++thread)
            threads.emplace_back([&] {
                dispatch_once(&token, [&] { ++made; });
                EXPECT_EQ(made, 1);
            });
        for (auto& thread : threads) thread.join();
    }
}

TEST(Time, SumsSaturate) {
    auto const now = dispatch_time(DISPATCH_TIME_NOW, 0);
    struct {
        dispatch_time_t when;
        std::int64_t delta;
        dispatch_time_t expected;
    // clang-format off
    } const rows[] = {
        {DISPATCH_TIME_FOREVER, -5, DISPATCH_TIME_FOREVER}, {now, INT64_MAX, DISPATCH_TIME_FOREVER}, {now, INT64_MIN, 1},
        {1000, -10, 990}, {1000, 10, 1010}, {dispatch_walltime(nullptr, 0), INT64_MAX, DISPATCH_TIME_FOREVER}};
    // clang-format on
    for (auto const& row : rows) EXPECT_EQ(dispatch_time(row.when, row.delta), row.expected) << row.when << " + " << row.delta;
    timespec const moment{1'700'000'000, 5};
    EXPECT_EQ(dispatch_time(dispatch_walltime(&moment, 7), -7), dispatch_walltime(&moment, 0));
}

TEST(After, PastRunsAtOnceEqualMomentsKeepTheirOrderAndNothingIsEarly) {
    auto const queue = serialQueue();
    std::string order;
    Event done;
    for (std::int64_t const past : {std::int64_t{0}, std::int64_t{-1}, INT64_MIN}) {
        dispatch_after(in(past), queue, [&] { order += "p"; });
        dispatch_sync(queue, [&] { EXPECT_EQ(order, "p"); });
        order.clear();
    }
    auto const early = in(10 * millisecond);
    auto const late = in(20 * millisecond);
    dispatch_after(late, queue, [&] { order += "z", done.happen(); });
    for (char c = 'a'; c <= 'e'; ++c) dispatch_after(early, queue, [&, c] { order += c; });
    dispatch_after(dispatch_walltime(nullptr, millisecond), queue, [&] { order += "w"; });
    EXPECT_TRUE(done.wait());
    EXPECT_EQ(order, "wabcdez");
    EXPECT_GE(dispatch_time(DISPATCH_TIME_NOW, 0), late);
}

TEST(After, AnEarlierTimerWakesTheThreadThatSleepsForALaterOneAndIsNotEarly) {
    auto const queue = serialQueue();
    dispatch_after(in(60'000 * millisecond), queue, [] {});
    for (int i = 0; i < 5; ++i) {
        Event fired;
        auto const when = in(3 * millisecond);
        dispatch_time_t ran = 0;
        dispatch_after(when, queue, [&, fired] { ran = dispatch_time(DISPATCH_TIME_NOW, 0), fired.happen(); });
        ASSERT_TRUE(fired.wait());
        EXPECT_GE(ran, when);
    }
}

TEST(After, AnItemThatBlocksDelaysNoOtherTimerHoweverDenseTheyAre) {
    constexpr int count = 3000; // ten microseconds apart, so that the timers' own thread runs some of them
    auto const busy = serialQueue();
    auto const other = serialQueue();
    int ran = 0;
    int wrong = 0;
    Event reached, done;
    for (int i = 0; i < count; ++i) {
        auto const when = in(5 * millisecond + i * 10'000);
        bool const blocks = i % 1000 == 500;
        dispatch_after(when, busy, [&, i, when, blocks] {
            wrong += i != ran++ || dispatch_time(DISPATCH_TIME_NOW, 0) < when || !queueIsHeld(dispatch_get_global_queue(0, 0));
            if (blocks) wrong += !reached.wait();
            if (ran == count) done.happen();
        });
        if (blocks) dispatch_after(dispatch_time(when, 20 * millisecond), other, [=] { reached.happen(); });
    }
    EXPECT_TRUE(done.wait());
    dispatch_sync(busy, [&] { EXPECT_EQ(wrong, 0); });
}

TEST(WaitingDeathTest, MisuseEndsWithOneLineThatNamesTheOperation) {
    EXPECT_DEATH(dispatch_group_leave(dispatch_group_create()), "^dispatch_group_leave: without dispatch_group_enter\n$");
    EXPECT_DEATH(dispatch_semaphore_wait(dispatch_semaphore_create(1), DISPATCH_TIME_NOW),
                 "^dispatch_semaphore_create: .* released while in use\n$");
    EXPECT_DEATH(dispatch_semaphore_wait(dispatch_semaphore_create(-1), in(millisecond)),
                 "^dispatch_semaphore_wait: called without an object\n$");
    EXPECT_DEATH(dispatch_semaphore_signal(nullptr), "^dispatch_semaphore_signal: called without an object\n$");
    EXPECT_DEATH(dispatch_group_async(dispatch_group_create(), nullptr, [] {}),
                 "^dispatch_group_async: called without an object\n$");
    static dispatch_once_t token = 0;
    EXPECT_DEATH(dispatch_once(&token, [] { dispatch_once(&token, [] {}); }), "^dispatch_once: called inside its own work\n$");
}

} // namespace
} // namespace Tessarin
