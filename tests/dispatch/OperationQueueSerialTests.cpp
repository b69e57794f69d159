#include "Tessarin/dispatch/NetworkActivityIndicator.h"
#include "Tessarin/platform/foundation/operations/NSOperationQueue.h"

#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace Tessarin {
namespace {

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

} // namespace
} // namespace Tessarin
