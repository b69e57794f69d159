#include "Tessarin/dispatch/Dispatcher.h"
#include "Tessarin/dispatch/NetworkActivityIndicator.h"
#include "Tessarin/platform/foundation/operations/NSOperationQueue.h"

#include "tests/support/MainThread.h"
#include <chrono>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <thread>

namespace Tessarin {
namespace {

TEST(Dispatcher, ConstructionKeepsLabelTypeAndQueue) {
    auto const standard = make<Dispatcher>(), again = make<Dispatcher>(QueueOptions{});
    for (auto const& each : {standard, again}) EXPECT_STREQ(dispatch_queue_get_label(each->queue()), "customDISPATCHQueue");
    EXPECT_NE(standard->queue(), again->queue());
    EXPECT_EQ(standard->type(), Dispatcher::customQueueQOS);
    // clang-format off
    std::pair<Ref<Dispatcher>, qos_class_t> const rows[] = {
        {Dispatcher::userInteractive(), 33}, {Dispatcher::userInitiated(), 25}, {Dispatcher::utility(), 17},
        {Dispatcher::background(), 9}, {make<Dispatcher>(QualityOfService{QOS_CLASS_DEFAULT}), QOS_CLASS_DEFAULT}};
    // clang-format on
    for (auto const& [dispatcher, type] : rows) {
        EXPECT_EQ(dispatcher->type(), type);
        EXPECT_EQ(dispatcher->queue(), dispatch_get_global_queue(type, 0));
        EXPECT_FALSE(dispatcher->isMainQueue());
    }
    for (auto const& main : std::vector<Ref<Dispatcher>>{Dispatcher::main(), make<Dispatcher>(QualityOfService{0})}) {
        EXPECT_EQ(main->queue(), dispatch_get_main_queue());
        EXPECT_EQ(main->type(), 0u);
    }
    EXPECT_EQ(Dispatcher::main(), Dispatcher::main());
    EXPECT_TRUE(Dispatcher::main()->isMainQueue());
}

TEST(Dispatcher, MainByClassOwnsAPrivateQueueWhenMadeByIdentifier) {
    auto const odd = make<DispatchMain>(QueueOptions{.identifier = "x", .serial = true});
    EXPECT_TRUE(odd->isMainQueue());
    EXPECT_NE(odd->queue(), dispatch_get_main_queue());
    bool inMain = true;
    std::thread::id thread;
    odd->now([&] {
        inMain = Dispatcher::inMainQueue();
        thread = std::this_thread::get_id();
    });
    EXPECT_FALSE(inMain);
    EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST(Dispatcher, InMainQueueFollowsTheQueueAndNotTheThread) {
    auto const answerOn = [](auto const& dispatcher) {
        bool answer = false;
        dispatcher->sync([&] { answer = Dispatcher::inMainQueue(); });
        return answer;
    };
    auto const onMain = make<Dispatcher>();
    dispatch_set_target_queue(onMain->queue(), dispatch_get_main_queue());
    auto const elsewhere = make<Dispatcher>();
    EXPECT_FALSE(Dispatcher::inMainQueue());
    EXPECT_TRUE(answerOn(Dispatcher::main()));
    EXPECT_TRUE(answerOn(onMain));
    EXPECT_FALSE(answerOn(elsewhere));
    EXPECT_FALSE(answerOn(Dispatcher::background()));

    bool outside = false;
    bool inPrivateSync = true;
    tests::onMainThread([&] {
        outside = Dispatcher::inMainQueue();
        inPrivateSync = answerOn(elsewhere);
    });
    EXPECT_TRUE(outside);
    EXPECT_FALSE(inPrivateSync);

    Dispatcher::mainQueueKey() = "another text"; // the storage is the tag, not the text
    EXPECT_TRUE(answerOn(Dispatcher::main()));
    Dispatcher::mainQueueKey() = "key";
}

TEST(Dispatcher, NowRunsInlineInTheMainQueueAndElseThroughTheOverriddenSync) {
    class Counting : public DispatchMain {
    public:
        int syncs = 0;
        void sync(FunctionRef<void()> closure) override {
            ++syncs;
            DispatchMain::sync(closure);
        }
    };
    auto const counting = make<Counting>(QualityOfService{0});
    std::string order;
    counting->now([&] {
        order += "a";
        counting->now([&] { order += "b"; });
        dispatch_now_main([&] { order += "c"; });
        order += "d";
    });
    EXPECT_EQ(order, "abcd");
    EXPECT_EQ(counting->syncs, 1);
}

TEST(Dispatcher, AsyncToAConcurrentQueueOverlaps) {
    auto const concurrent = make<Dispatcher>(QueueOptions{.identifier = "a", .serial = false});
    auto const first = dispatch_semaphore_create(0);
    auto const second = dispatch_semaphore_create(0);
    concurrent->async([=] { dispatch_semaphore_wait(first, DISPATCH_TIME_FOREVER), dispatch_semaphore_signal(second); });
    concurrent->async([=] { dispatch_semaphore_signal(first); });
    EXPECT_EQ(dispatch_semaphore_wait(second, dispatch_time(DISPATCH_TIME_NOW, 10 * NSEC_PER_SEC)), 0);
}

TEST(Dispatcher, DelayWithoutSecondsRunsHereAndWithSecondsOnTheMainQueue) {
    std::thread::id here;
    delay(std::nullopt, [&] { here = std::this_thread::get_id(); });
    EXPECT_EQ(here, std::this_thread::get_id());

    auto const ran = dispatch_semaphore_create(0);
    bool inMain = false;
    auto const start = std::chrono::steady_clock::now();
    delay(0.02, [&] {
        inMain = Dispatcher::inMainQueue();
        dispatch_semaphore_signal(ran);
    });
    delay(-5.0, [&] { dispatch_semaphore_signal(ran); });
    dispatch_async_main([&] { dispatch_semaphore_signal(ran); });
    for (int i = 0; i < 3; ++i) EXPECT_EQ(dispatch_semaphore_wait(ran, dispatch_time(DISPATCH_TIME_NOW, 10 * NSEC_PER_SEC)), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds{20});
    EXPECT_TRUE(inMain);
}

TEST(SerialOperationQueue, WaitingClosuresRunInOrderBeforeTheirCallsReturn) {
    EXPECT_EQ(make<NSOperationQueue>(Serial::No)->maxConcurrentOperationCount(),
              make<NSOperationQueue>()->maxConcurrentOperationCount());
    auto const queue = make<NSOperationQueue>();
    queue->invoke("initWithSerial:"_sel, {true});
    EXPECT_EQ(queue->maxConcurrentOperationCount(), make<NSOperationQueue>(Serial::Yes)->maxConcurrentOperationCount());
    std::vector<int> order;
    queue->addOperationWithBlock([&] { order.push_back(0); });
    for (int i = 1; i <= 3; ++i) {
        queue->addOperationWithBlockAndWait([&] { order.push_back(i); });
        EXPECT_EQ(order.size(), static_cast<std::size_t>(i) + 1);
    }
    EXPECT_EQ(order, (std::vector{0, 1, 2, 3}));
}

TEST(SerialOperationQueue, AWaitingClosureIsOneOperationThatASubclassMaySee) {
    class Counting : public NSOperationQueue {
    public:
        std::size_t added = 0;
        void addOperations(std::vector<Ref<NSOperation>> const& operations, WaitUntilFinished wait) override {
            added += wait == WaitUntilFinished::Yes ? operations.size() : 100;
            NSOperationQueue::addOperations(operations, wait);
        }
    };
    auto const queue = make<Counting>(Serial::Yes);
    std::thread::id ranOn;
    queue->addOperationWithBlockAndWait([&] { ranOn = std::this_thread::get_id(); });
    EXPECT_EQ(queue->added, 1u);
    EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(NetworkActivityIndicator, NeverShowsAndAnswersMessages) {
    NetworkActivityIndicator::increment();
    EXPECT_FALSE(NetworkActivityIndicator::isVisible());
    NetworkActivityIndicator::decrement();
    auto const* const type = classNamed("Tessarin.NetworkActivityIndicator");
    ASSERT_NE(type, nullptr);
    type->invoke("increment"_sel);
    EXPECT_EQ(type->invoke("isVisible"_sel), Value(false));
    EXPECT_TRUE(type->respondsToSelector("decrement"_sel));
    EXPECT_TRUE(type->makeObject()->respondsToSelector("hideIndicator"_sel));
}

TEST(DispatcherDeathTest, MisuseIsFatal) {
    double const infinity = std::numeric_limits<double>::infinity();
    for (double const seconds : {infinity, -infinity, std::nan(""), 9.3e9, -9.3e9})
        EXPECT_DEATH(Dispatcher::main()->wait(seconds, [] {}), "does not fit 64-bit nanoseconds") << seconds;
    EXPECT_DEATH(delay(infinity, [] {}), "does not fit 64-bit nanoseconds");
    EXPECT_DEATH(make<Dispatcher>(QualityOfService{5}), "no queue of quality of service 5");
    Dispatcher::main()->wait(9.2e9, [] {}); // fits
}

} // namespace
} // namespace Tessarin
