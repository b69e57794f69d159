#include "tests/platform/queues/Support.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <random>
#include <thread>

namespace Tessarin {
namespace {

using namespace tests;

/// Counts who is inside; whoever breaks a rule is counted too.
struct Room {
    std::atomic<int> readers = 0;
    std::atomic<int> writers = 0;
    std::atomic<int> wrong = 0;
    std::atomic<int> visits = 0;

    void read() {
        ++readers;
        wrong += writers.load() != 0;
        ++visits;
        --readers;
    }
    void write() {
        wrong += ++writers != 1 || readers.load() != 0;
        ++visits;
        --writers;
    }
};

TEST(ConcurrentQueue, BarriersRunAloneWhateverTheTarget) {
    auto const serial = serialQueue();
    auto const concurrent = concurrentQueue();
    dispatch_queue_t const targets[] = {dispatch_get_global_queue(0, 0), serial, concurrent, queueOn(concurrent)};
    for (auto const& target : targets) {
        auto const queue = queueOn(target, DISPATCH_QUEUE_CONCURRENT);
        Room room;
        std::vector<std::thread> threads;
        for (unsigned seed = 0; seed < 4; ++seed)
            threads.emplace_back([&, seed] {
                std::mt19937 random(seed);
                for (int i = 0; i < 1000; ++i) switch (random() % 8) {
                    case 0: dispatch_barrier_async(queue, [&] { room.write(); }); break;
                    case 1: dispatch_barrier_sync(queue, [&] { room.write(); }); break;
                    case 2: dispatch_sync(queue, [&] { room.read(); }); break;
                    default: dispatch_async(queue, [&] { room.read(); });
                    }
            });
        for (auto& thread : threads) thread.join();
        dispatch_barrier_sync(queue, [&] { EXPECT_EQ(room.visits, 4000); });
        EXPECT_EQ(room.wrong, 0);
    }
}

TEST(ConcurrentQueue, ABarrierWaitsForAReaderThatIsUnderWay) {
    auto const queue = concurrentQueue();
    Event inside, gate;
    std::atomic<bool> reads = true;
    bool alone = false;
    dispatch_async(queue, [&, inside, gate] {
        inside.happen();
        gate.wait();
        reads = false;
    });
    EXPECT_TRUE(inside.wait());
    Event done;
    dispatch_barrier_async(queue, [&, done] { alone = !reads, done.happen(); });
    auto const other = serialQueue(); // served behind the barrier, if that does not wait
    for (int i = 0; i < 20; ++i) {
        Event served;
        dispatch_async(other, [served] { served.happen(); });
        EXPECT_TRUE(served.wait());
    }
    gate.happen();
    EXPECT_TRUE(done.wait());
    EXPECT_TRUE(alone);
}

TEST(ConcurrentQueue, ApplyCallsEveryIndexOnceAlsoInsideTheQueue) {
    auto const concurrent = concurrentQueue();
    dispatch_queue_t const queues[] = {nullptr, dispatch_get_global_queue(QOS_CLASS_UTILITY, 0), concurrent, serialQueue(),
                                       queueOn(serialQueue())};
    for (auto const& queue : queues) {
        std::vector<std::atomic<int>> calls(2000);
        auto const call = [&](std::size_t index) { ++calls[index]; };
        dispatch_apply(calls.size(), queue, call);
        dispatch_apply(0, queue, call);
        EXPECT_TRUE(std::ranges::all_of(calls, [](auto const& count) { return count == 1; }));
    }
    std::atomic<int> nested = 0;
    Event done;
    dispatch_async(concurrent, [&] {
        dispatch_barrier_async(concurrent, [done] { done.happen(); }); // would keep a second reader out
        dispatch_apply(10, concurrent, [&](std::size_t) { ++nested; });
    });
    EXPECT_TRUE(done.wait());
    EXPECT_EQ(nested, 10);
}

TEST(Suspension, NothingStartsUntilAsManyResumesAndThenInOrder) {
    for (auto const& attribute : {DISPATCH_QUEUE_SERIAL, DISPATCH_QUEUE_CONCURRENT}) {
        auto const queue = dispatch_queue_create("test", attribute);
        std::string order;
        Event selfSuspended;
        dispatch_barrier_async(queue, [&, queue] {
            dispatch_suspend(queue);
            dispatch_suspend(queue);
            order += "a";
            selfSuspended.happen();
        });
        for (char const c : {'b', 'c'}) dispatch_barrier_async(queue, [&, c] { order += c; });
        EXPECT_TRUE(selfSuspended.wait());
        std::thread waiting([&] { dispatch_barrier_sync(queue, [&] { order += "s"; }); });
        dispatch_resume(queue);
        auto const other = serialQueue();
        dispatch_async(other, [] {});
        dispatch_sync(other, [] {});
        EXPECT_EQ(order, "a");
        dispatch_resume(queue);
        waiting.join();
        dispatch_barrier_sync(queue, [] {});
        std::erase(order, 's');
        EXPECT_EQ(order, "abc");
    }
}

TEST(Targets, SiblingsOnASerialTargetExcludeEachOtherAndTargetsMayChange) {
    auto const target = serialQueue();
    auto const elsewhere = serialQueue();
    auto const left = queueOn(target);
    auto const right = queueOn(queueOn(target), DISPATCH_QUEUE_CONCURRENT);
    std::atomic<int> inside = 0;
    std::atomic<int> wrong = 0;
    std::atomic<int> visits = 0;
    auto const visit = [&] {
        wrong += ++inside != 1;
        ++visits;
        --inside;
    };
    std::vector<std::thread> threads;
    for (auto const& queue : {left, right, target})
        threads.emplace_back([&, queue] {
            for (int i = 0; i < 2000; ++i) i % 3 == 0 ? dispatch_sync(queue, visit) : dispatch_async(queue, visit);
        });
    for (auto& thread : threads) thread.join();
    for (auto const& queue : {left, right, target}) dispatch_barrier_sync(queue, [] {});
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(visits, 6000);

    bool held[3]{};
    dispatch_async(left, [&] { held[0] = queueIsHeld(target) && !queueIsHeld(elsewhere); });
    dispatch_set_target_queue(left, elsewhere); // also when the queue is busy: from the next item on
    dispatch_async(left, [&] { held[1] = queueIsHeld(elsewhere) && !queueIsHeld(target); });
    dispatch_sync(left, [&] { held[2] = queueIsHeld(left) && queueIsHeld(elsewhere); });
    EXPECT_TRUE(held[0] && held[1] && held[2]);
}

/// Queues that each target the next: built, retargeted in the middle, passed by an item and a sync, and gone.
std::chrono::steady_clock::duration timeOfAChain(int length, dispatch_queue_attr_t attribute, bool fromAbove) {
    auto const start = std::chrono::steady_clock::now();
    std::vector<dispatch_queue_t> chain;
    for (int i = 0; i < length; ++i) {
        auto queue = dispatch_queue_create(nullptr, attribute);
        if (i > 0) fromAbove ? dispatch_set_target_queue(queue, chain.back()) : dispatch_set_target_queue(chain.back(), queue);
        chain.push_back(std::move(queue));
    }
    if (!fromAbove) std::ranges::reverse(chain);
    auto const lowest = chain.back();
    dispatch_set_target_queue(chain[1], chain[0]);
    chain.clear();
    Event ran;
    dispatch_async(lowest, [&ran] { ran.happen(); });
    EXPECT_TRUE(ran.wait());
    dispatch_barrier_sync(lowest, [] {});
    return std::chrono::steady_clock::now() - start;
}

TEST(Targets, AChainOfAnyLengthNeedsNoStackAndTimeOnlyForEachQueueOnce) {
    for (auto const attribute : {DISPATCH_QUEUE_SERIAL, DISPATCH_QUEUE_CONCURRENT})
        for (bool const fromAbove : {true, false}) {
            auto const timeOf = [&](int length) {
                return std::min(timeOfAChain(length, attribute, fromAbove), timeOfAChain(length, attribute, fromAbove));
            };
            EXPECT_LT(timeOf(100'000), 60 * timeOf(6'250)) << "quadratic would be 256";
        }
}

TEST(GlobalQueues, AreOnePerClassAndUnderstandPriorities) {
    struct {
        std::intptr_t priority;
        qos_class_t qualityOfService;
    } const rows[] = {{2, 25}, {0, 21}, {-2, 17}, {-32768, 9}};
    for (auto const& row : rows) {
        auto const queue = dispatch_get_global_queue(row.priority, 0);
        EXPECT_TRUE(queue);
        EXPECT_EQ(queue, dispatch_get_global_queue(row.qualityOfService, 0));
        auto const attribute = dispatch_queue_attr_make_with_qos_class(DISPATCH_QUEUE_SERIAL, row.qualityOfService, 0);
        bool held = false;
        dispatch_sync(dispatch_queue_create("", attribute), [&] { held = queueIsHeld(queue); });
        EXPECT_TRUE(held);
    }
    EXPECT_TRUE(dispatch_get_global_queue(QOS_CLASS_USER_INTERACTIVE, 0));
    for (std::intptr_t const unknown : {1, 5, -1, 34}) EXPECT_FALSE(dispatch_get_global_queue(unknown, 0)) << unknown;
    EXPECT_FALSE(dispatch_get_global_queue(0, 1));
}

} // namespace
} // namespace Tessarin
