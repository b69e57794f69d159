#include "Tessarin/platform/foundation/operations/NSOperationQueue.h"

#include "tests/platform/queues/Support.h"
#include "tests/support/MainThread.h"
#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>

namespace Tessarin {
namespace {

using tests::Event;

TEST(NSOperationQueue, RunsAsManyAtATimeAsAllowedInOrder) {
    for (std::int64_t const limit : {1, 2, 3}) {
        auto const queue = make<NSOperationQueue>();
        queue->setMaxConcurrentOperationCount(limit);
        std::atomic<int> running{0}, most{0};
        std::vector<int> order;
        std::mutex mutex;
        for (int i = 0; i < 200; ++i)
            queue->addOperationWithBlock([&, i] {
                int const now = ++running;
                for (int seen = most; now > seen && !most.compare_exchange_weak(seen, now);) {}
                {
                    std::lock_guard const hold(mutex);
                    order.push_back(i);
                }
                --running;
            });
        queue->waitUntilAllOperationsAreFinished();
        ASSERT_EQ(order.size(), 200u);
        EXPECT_LE(most, limit);
        if (limit == 1) { EXPECT_TRUE(std::ranges::is_sorted(order)); }
    }
}

TEST(NSOperationQueue, AChangeOfTheCountAppliesToWhatHasNotBegun) {
    auto const queue = make<NSOperationQueue>(Serial::Yes);
    Event const gate;
    std::vector<int> order;
    queue->addOperationWithBlock([&] {
        gate.wait();
        order.push_back(1);
    });
    queue->setMaxConcurrentOperationCount(0);
    queue->addOperationWithBlock([&] { order.push_back(2); });
    gate.happen();
    queue->setMaxConcurrentOperationCount(1);
    queue->runAndWait([&] { order.push_back(3); });
    EXPECT_EQ(order, (std::vector{1, 2, 3}));
    EXPECT_EQ(queue->maxConcurrentOperationCount(), 1);
    queue->setMaxConcurrentOperationCount(-7);
    EXPECT_EQ(queue->maxConcurrentOperationCount(), NSOperationQueueDefaultMaxConcurrentOperationCount);
}

TEST(NSOperationQueue, WaitingAddsReturnAfterTheirOperations) {
    for (auto const serial : {Serial::Yes, Serial::No}) {
        auto const queue = make<NSOperationQueue>(serial);
        std::atomic<int> count{0};
        std::vector<Ref<NSOperation>> operations;
        for (int i = 0; i < 20; ++i) operations.push_back(NSBlockOperation::blockOperationWithBlock([&] { ++count; }));
        operations[5]->cancel();
        bool completed = false;
        operations[5]->setCompletionBlock([&] { completed = true; });
        queue->addOperations(operations, WaitUntilFinished::Yes);
        EXPECT_EQ(count, 19);
        for (auto const& operation : operations) EXPECT_TRUE(operation->isFinished());
        queue->addOperations({NSBlockOperation::blockOperationWithBlock([&] { ++count; })}, WaitUntilFinished::Yes);
        EXPECT_EQ(count, 20);
        queue->waitUntilAllOperationsAreFinished();
        EXPECT_TRUE(completed);
    }
    auto const operation = NSBlockOperation::blockOperationWithBlock([] {});
    operation->start();
    EXPECT_DEATH(operation->start(), "started twice");
}

TEST(NSOperationQueue, PendingOperationsKeepTheirQueueAlive) {
    for (auto const serial : {Serial::Yes, Serial::No}) {
        Event const gate, done;
        auto queue = make<NSOperationQueue>(serial);
        for (int i = 0; i < 2; ++i) queue->addOperationWithBlock([=] { gate.wait(), done.happen(); });
        queue.reset();
        for (int i = 0; i < 2; ++i) gate.happen();
        for (int i = 0; i < 2; ++i) EXPECT_TRUE(done.wait());
    }
}

TEST(NSOperationQueue, ALimitLoweredWhileOperationsRunHoldsForThoseThatHaveNotBegun) {
    for (std::int64_t const limit : {std::int64_t{2}, NSOperationQueueDefaultMaxConcurrentOperationCount}) {
        auto const queue = make<NSOperationQueue>();
        queue->setMaxConcurrentOperationCount(limit);
        Event const started, gate;
        std::atomic<int> inside = 0, most = 0;
        for (int i = 0; i < 2; ++i)
            queue->addOperationWithBlock([=] { started.happen(), gate.wait(); });
        for (int i = 0; i < 2; ++i) EXPECT_TRUE(started.wait()); // both at the same time
        for (int i = 0; i < 200 && limit == 2; ++i) // none of them has begun
            queue->addOperationWithBlock([&] {
                if (++inside > 1) most = 2;
                std::this_thread::yield();
                --inside;
            });
        queue->setMaxConcurrentOperationCount(1);
        for (int i = 0; i < 2; ++i) gate.happen();
        queue->waitUntilAllOperationsAreFinished();
        EXPECT_EQ(most, 0);
    }
}

TEST(NSOperationQueue, TheMainQueueRunsOnTheMainThread) {
    std::thread::id main, ran;
    tests::onMainThread([&] { main = std::this_thread::get_id(); });
    auto const& queue = NSOperationQueue::mainQueue();
    queue->setMaxConcurrentOperationCount(4);
    EXPECT_EQ(queue->maxConcurrentOperationCount(), 1);
    queue->runAndWait([&] { ran = std::this_thread::get_id(); });
    EXPECT_EQ(ran, main);
}

} // namespace
} // namespace Tessarin
