#include "tests/platform/queues/Support.h"
#include "tests/support/MainThread.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Tessarin {
namespace {

using namespace tests;

bool isFirstThread() { return syscall(SYS_gettid) == getpid(); }
bool isReadable() {
    pollfd file{mainQueueDescriptor(), POLLIN, 0};
    return poll(&file, 1, 0) == 1;
}

TEST(MainQueue, WorkOfQueuesThatTargetItRunsOnTheFirstThread) {
    auto const& main = dispatch_get_main_queue();
    auto const serial = queueOn(main);
    auto const concurrent = queueOn(serial, DISPATCH_QUEUE_CONCURRENT);
    for (auto const& queue : {main, serial, concurrent}) {
        int onMain = 0;
        Event done;
        auto const count = [&] { onMain += isFirstThread() && queueIsHeld(queue); };
        dispatch_sync(queue, count);
        dispatch_barrier_async(queue, [&] { count(), done.happen(); });
        dispatch_barrier_sync(queue, count);
        EXPECT_TRUE(done.wait());
        EXPECT_EQ(onMain, 3);
    }
    bool onPlain = true;
    dispatch_sync(serialQueue(), [&] { onPlain = isFirstThread(); });
    EXPECT_FALSE(onPlain);
}

TEST(MainQueue, DescriptorIsReadableOnlyWhileThereIsWork) {
    onMainThread([] {
        drainMainQueue();
        EXPECT_FALSE(isReadable());
        int ran = 0;
        auto const& main = dispatch_get_main_queue();
        dispatch_async(main, [&] { ++ran; });
        dispatch_async(queueOn(main), [&] {
            dispatch_async(main, [&] { ran += 10; });
            stopMainLoop(); // a signal while an item runs
            EXPECT_TRUE(isReadable());
            drainMainQueue(); // runs nothing: this is an item
            EXPECT_FALSE(isReadable()) << "a loop inside an item would spin";
            ++ran;
        });
        EXPECT_TRUE(isReadable());
        drainMainQueue();
        EXPECT_EQ(ran, 2);
        EXPECT_TRUE(isReadable()); // more has come
        drainMainQueue();
        EXPECT_EQ(ran, 12);
        EXPECT_FALSE(isReadable());
    });
}

TEST(MainQueue, StopReturnsAfterTheCurrentItemAndKeepsTheRest) {
    onMainThread([] {
        std::string order;
        auto const& main = dispatch_get_main_queue();
        dispatch_async(main, [&] { order += "a", stopMainLoop(); });
        dispatch_async(main, [&] { order += "b", stopMainLoop(); });
        runMainLoop();
        EXPECT_EQ(order, "a");
        runMainLoop();
        EXPECT_EQ(order, "ab");
        stopMainLoop(); // early, and still not lost
        runMainLoop();
        dispatch_after(dispatch_time(DISPATCH_TIME_NOW, 2'000'000), main, [&] { order += "c", stopMainLoop(); });
        runMainLoop();
        EXPECT_EQ(order, "abc");
    });
}

TEST(MainQueueDeathTest, DrainingElsewhereIsFatal) {
    EXPECT_DEATH(drainMainQueue(), "^drainMainQueue: not on the main thread\n$");
    EXPECT_DEATH(runMainLoop(), "^runMainLoop: not on the main thread\n$");
    EXPECT_DEATH(dispatch_sync(dispatch_get_main_queue(), [] { runMainLoop(); }), "^runMainLoop: inside a work item\n$");
}

} // namespace
} // namespace Tessarin
