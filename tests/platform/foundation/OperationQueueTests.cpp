#include "Tessarin/platform/foundation/operations/NSOperationQueue.h"
#include "Tessarin/platform/queues/Dispatch.h"

#include "tests/support/MainThread.h"
#include <algorithm>
#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>

namespace Tessarin {
namespace {

/// Closed until it is opened; keeps an operation running for as long as a test needs.
class Gate {
public:
    void open() { promise_.set_value(); }
    void wait() const { future_.wait(); }

private:
    std::promise<void> promise_;
    std::shared_future<void> future_ = promise_.get_future().share();
};

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

TEST(NSOperationQueue, AllowedConcurrencyIsUsed) {
    for (std::int64_t const limit : {std::int64_t{3}, NSOperationQueueDefaultMaxConcurrentOperationCount}) {
        auto const queue = make<NSOperationQueue>();
        queue->setMaxConcurrentOperationCount(limit);
        Gate gate;
        std::promise<void> together;
        std::atomic<int> arrived{0};
        for (int i = 0; i < 3; ++i)
            queue->addOperationWithBlock([&] {
                if (++arrived == 3) together.set_value();
                gate.wait();
            });
        EXPECT_EQ(together.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
        gate.open();
        queue->waitUntilAllOperationsAreFinished();
    }
}

TEST(NSOperationQueue, AChangeOfTheCountAppliesToWhatHasNotBegun) {
    auto const queue = make<NSOperationQueue>(Serial::Yes);
    Gate gate;
    std::vector<int> order;
    queue->addOperationWithBlock([&] {
        gate.wait();
        order.push_back(1);
    });
    queue->setMaxConcurrentOperationCount(0);
    queue->addOperationWithBlock([&] { order.push_back(2); });
    gate.open();
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
        // Shared with the operations, which may still be on their way out of them when the test ends.
        auto const gate = std::make_shared<Gate>();
        auto const done = std::make_shared<std::promise<void>>();
        auto const left = std::make_shared<std::atomic<int>>(2);
        auto queue = make<NSOperationQueue>(serial);
        for (int i = 0; i < 2; ++i)
            queue->addOperationWithBlock([gate, done, left] {
                gate->wait();
                if (--*left == 0) done->set_value();
            });
        queue.reset();
        gate->open();
        EXPECT_EQ(done->get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
    }
}

TEST(OperationQueue, ALimitLoweredWhileOperationsRunHoldsForThoseThatHaveNotBegun) {
    auto const queue = make<NSOperationQueue>();
    queue->setMaxConcurrentOperationCount(2);
    auto const started = dispatch_semaphore_create(0);
    auto const gate = dispatch_semaphore_create(0);
    std::atomic<int> inside = 0;
    std::atomic<int> most = 0;
    for (int i = 0; i < 2; ++i)
        queue->addOperationWithBlock([=] {
            dispatch_semaphore_signal(started);
            dispatch_semaphore_wait(gate, DISPATCH_TIME_FOREVER);
        });
    for (int i = 0; i < 2; ++i) dispatch_semaphore_wait(started, DISPATCH_TIME_FOREVER);
    for (int i = 0; i < 200; ++i)
        queue->addOperationWithBlock([&] {
            if (++inside > 1) most = 2;
            std::this_thread::yield();
            --inside;
        });
    queue->setMaxConcurrentOperationCount(1);
    for (int i = 0; i < 2; ++i) dispatch_semaphore_signal(gate);
    queue->waitUntilAllOperationsAreFinished();
    EXPECT_EQ(most, 0);
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
