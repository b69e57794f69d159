#include "tests/platform/queues/Support.h"

#include <array>
#include <atomic>
#include <stdexcept>
#include <thread>

namespace Tessarin {
namespace {

using namespace tests;

TEST(SerialQueue, EveryProducersItemsRunOneAtATimeInItsOrder) {
    constexpr int producers = 4;
    constexpr int each = 5000;
    auto const queue = serialQueue();
    std::array<int, producers> next{};
    std::atomic<int> inside = 0;
    int wrong = 0;
    std::vector<std::thread> threads;
    for (int producer = 0; producer < producers; ++producer)
        threads.emplace_back([&, producer] {
            for (int i = 0; i < each; ++i) {
                auto const item = [&, producer, i] {
                    wrong += inside.fetch_add(1) != 0 || next[static_cast<std::size_t>(producer)]++ != i;
                    inside.fetch_sub(1);
                };
                i % 7 == 3 ? dispatch_sync(queue, item) : dispatch_async(queue, item); // a sync never overtakes its own asyncs
            }
        });
    for (auto& thread : threads) thread.join();
    dispatch_sync(queue, [] {});
    EXPECT_EQ(wrong, 0);
    for (int const count : next) EXPECT_EQ(count, each);
}

TEST(SerialQueue, ContendedSyncsExcludeEachOtherAndNobodyStarves) {
    auto const queue = serialQueue();
    auto const above = queueOn(queue);
    int count = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 8; ++thread)
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 3000; ++i) dispatch_sync(thread % 2 ? queue : above, [&] { ++count; });
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(count, 8 * 3000);

    // Somebody who never lets go for longer than a moment cannot keep others out.
    std::atomic<bool> served = false;
    std::thread greedy([&] {
        while (!served.load()) dispatch_sync(queue, [] {});
    });
    for (int i = 0; i < 20; ++i) dispatch_sync(above, [] {});
    served = true;
    greedy.join();
}

TEST(SerialQueue, SyncRunsHereEvenWithWorkAhead) {
    auto const queue = serialQueue();
    Event go;
    bool first = false;
    dispatch_async(queue, [&, go] { first = go.wait(); });
    std::thread release([&] { go.happen(); });
    auto thread = std::thread::id{};
    bool after = false;
    dispatch_sync(queue, [&] {
        thread = std::this_thread::get_id();
        after = first;
    });
    release.join();
    EXPECT_EQ(thread, std::this_thread::get_id());
    EXPECT_TRUE(after);
}

TEST(SerialQueue, PendingWorkKeepsTheQueueAliveAndTheFinalizerRunsOnItsTarget) {
    struct Context {
        Event finalized;
        dispatch_queue_t target = serialQueue();
        bool onTarget = false;
    } context;
    Event go;
    int ran = 0;
    {
        auto const queue = queueOn(context.target);
        dispatch_set_context(queue, &context);
        dispatch_set_finalizer_f(queue, [](void* argument) {
            auto& of = *static_cast<Context*>(argument);
            of.onTarget = queueIsHeld(of.target);
            of.finalized.happen();
        });
        dispatch_async(queue, [go] { go.wait(); });
        dispatch_async(queue, [&ran, queue = queue]() mutable {
            ++ran;
            queue = nullptr; // the last reference, given up inside the queue's own item
            ++ran;
        });
        dispatch_after(dispatch_time(DISPATCH_TIME_NOW, 5'000'000), queue, [&ran] { ++ran; });
    }
    EXPECT_FALSE(context.finalized.hasHappened());
    go.happen();
    EXPECT_TRUE(context.finalized.wait());
    EXPECT_EQ(ran, 3);
    EXPECT_TRUE(context.onTarget);
}

TEST(SerialQueue, TheLastReferenceMayGoDuringASync) {
    for (auto const attribute : {DISPATCH_QUEUE_SERIAL, DISPATCH_QUEUE_CONCURRENT}) {
        auto const target = serialQueue();
        auto dropped = dispatch_queue_create("own work", attribute);
        dispatch_set_target_queue(dropped, target);
        std::atomic<int> ended = 0;
        auto const finalizer = +[](void* count) { ++*static_cast<std::atomic<int>*>(count); };
        auto const watch = [&](dispatch_queue_t const& queue) {
            dispatch_set_context(queue, &ended);
            dispatch_set_finalizer_f(queue, finalizer);
        };
        watch(dropped);
        dispatch_sync(dropped, [&] { dropped = nullptr; });

        auto elsewhere = dispatch_queue_create("another thread", attribute);
        watch(elsewhere);
        dispatch_sync(elsewhere, [&] { std::thread([&] { elsewhere = nullptr; }).join(); });

        auto behind =
            dispatch_queue_create("in line", attribute); // the sync waits behind an item, and takes the queue over from it
        watch(behind);
        Event gate;
        dispatch_async(behind, [gate] { gate.wait(); });
        std::thread opener([gate] { gate.happen(); });
        dispatch_barrier_sync(behind, [&] { behind = nullptr; });
        opener.join();

        auto later = dispatch_queue_create("more work", attribute); // what is queued by then still runs
        watch(later);
        Event ran;
        dispatch_sync(later, [&] {
            dispatch_async(later, [ran] { ran.happen(); });
            later = nullptr;
        });
        EXPECT_TRUE(ran.wait());
        EXPECT_TRUE(eventually([&] { return ended == 4; })) << "ended, each once: " << ended;
    }
}

TEST(SerialQueue, ClosuresAreDestroyedWhenTheyHaveRun) {
    auto const small = std::make_shared<int>(0);
    auto const large = std::make_shared<int>(0);
    auto const queue = serialQueue();
    for (int i = 0; i < 1000; ++i) {
        dispatch_async(queue, [small] { ++*small; });
        dispatch_async(queue, [large, filling = std::array<char, 200>{}] { *large += 1 + filling[7]; });
    }
    dispatch_after(DISPATCH_TIME_FOREVER, queue, [small] { ++*small; });
    dispatch_sync(queue, [] {});
    EXPECT_EQ(*small + *large, 2000);
    EXPECT_TRUE(eventually([&] { return small.use_count() == 1 && large.use_count() == 1; }));
}

TEST(SerialQueueDeathTest, MisuseEndsWithOneLineThatNamesTheOperation) {
    EXPECT_DEATH(dispatch_sync(serialQueue(), [] { throw std::runtime_error("out of ink"); }), "out of ink");
    EXPECT_DEATH(
        {
            dispatch_async(serialQueue(), [] { throw std::runtime_error("out of paper"); });
            Event().wait();
        },
        "out of paper");
    EXPECT_DEATH(dispatch_resume(serialQueue()), "^dispatch_resume: the queue is not suspended\n$");
    EXPECT_DEATH(dispatch_suspend(serialQueue()), "^dispatch_suspend: the queue was released while suspended\n$");
    EXPECT_DEATH(
        {
            auto const queue = serialQueue();
            dispatch_suspend(queue);
            dispatch_async(queue, [] {});
        },
        "^dispatch_suspend: the queue was released while suspended\n$");
    EXPECT_DEATH(dispatch_sync(dispatch_get_global_queue(5, 0), [] {}), "^dispatch_sync: called without an object\n$");
    EXPECT_DEATH(dispatch_after(DISPATCH_TIME_FOREVER, nullptr, [] {}), "^dispatch_after: called without an object\n$");
    EXPECT_DEATH(dispatch_set_target_queue(dispatch_get_main_queue(), serialQueue()),
                 "^dispatch_set_target_queue: .* have no target\n$");
    EXPECT_DEATH(
        {
            auto const lower = serialQueue();
            auto const upper = queueOn(lower);
            dispatch_set_target_queue(lower, upper);
        },
        "^dispatch_set_target_queue: the queue would target itself\n$");
    EXPECT_DEATH(
        {
            auto const left = serialQueue();
            auto const right = serialQueue();
            dispatch_sync(left, [&] {
                dispatch_sync(right, [&] { // neither change can take place yet
                    dispatch_set_target_queue(left, right);
                    dispatch_set_target_queue(right, left);
                });
            });
        },
        "^dispatch_set_target_queue: the queue would target itself\n$");
}

} // namespace
} // namespace Tessarin
