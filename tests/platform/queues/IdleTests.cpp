#include "tests/platform/queues/Support.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>
#include <malloc.h>
#include <unistd.h>

namespace Tessarin {
namespace {

using namespace tests;

#ifdef __SANITIZE_THREAD__
constexpr bool sanitizerHasThread = true; // which wakes up as it likes
#else
constexpr bool sanitizerHasThread = false;
#endif

/// Number of the engine's workers, and how often all threads but this one have gone to sleep so far.
struct Threads {
    int workers = 0;
    long sleeps = 0;
    bool operator==(Threads const&) const = default;
};
Threads threadsNow() {
    Threads result;
    for (auto const& task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (task.path().filename() == std::to_string(gettid())) continue;
        std::ifstream status(task.path() / "status");
        bool counts = !sanitizerHasThread || task.path().filename() == std::to_string(getpid());
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with("Name:\tdispatch-")) {
                counts = true;
                result.workers += !line.ends_with("-timer");
            }
            if (counts && line.starts_with("voluntary_ctxt_switches:")) result.sleeps += std::stol(line.substr(line.find('\t')));
        }
    }
    return result;
}
bool nobodyWakesFor(std::chrono::milliseconds time) {
    auto const before = threadsNow();
    std::this_thread::sleep_for(time);
    return threadsNow() == before;
}

void useAQueue(dispatch_queue_t const& queue) {
    auto const group = dispatch_group_create();
    auto const done = dispatch_semaphore_create(0);
    for (int i = 0; i < 20; ++i) dispatch_group_async(group, queue, [] {});
    dispatch_barrier_async(queue, [] {});
    dispatch_sync(queue, [] {});
    dispatch_suspend(queue);
    for (int i = 0; i < 3; ++i) {
        dispatch_group_enter(group);
        dispatch_after(dispatch_time(DISPATCH_TIME_NOW, i * 2'000'000), queue, [=] { dispatch_group_leave(group); });
    }
    dispatch_group_notify(group, queue, [=] { dispatch_semaphore_signal(done); });
    EXPECT_NE(dispatch_semaphore_wait(dispatch_semaphore_create(0), dispatch_time(DISPATCH_TIME_NOW, 1'000'000)), 0);
    dispatch_resume(queue);
    EXPECT_EQ(dispatch_semaphore_wait(done, limit()), 0);
    EXPECT_EQ(dispatch_group_wait(group, limit()), 0);
}

/// A long queue, and many short-lived ones.
void leaveMemoryBehind(std::size_t backlog) {
    auto const queue = serialQueue();
    dispatch_suspend(queue);
    for (std::size_t i = 0; i < backlog; ++i) dispatch_async(queue, [] {});
    dispatch_resume(queue);
    dispatch_sync(queue, [] {});
    for (int i = 0; i < 100; ++i) dispatch_sync(queueOn(serialQueue()), [] {}), dispatch_async(serialQueue(), [] {});
}

// One test, for the workers take their seconds to leave.
TEST(Idle, AProcessThatHasUsedEveryKindOfQueueMakesNoWakeUpsAndItsWorkersAndMemoryGo) {
    auto const bytes = [] {
        auto const heap = mallinfo2();
        return heap.uordblks + heap.hblkhd;
    };
    auto const before = bytes();
    constexpr std::size_t backlog = 200'000;
    leaveMemoryBehind(backlog);
    for (auto const quality :
         {QOS_CLASS_BACKGROUND, QOS_CLASS_UTILITY, QOS_CLASS_DEFAULT, QOS_CLASS_USER_INITIATED, QOS_CLASS_USER_INTERACTIVE}) {
        auto const global = dispatch_get_global_queue(quality, 0);
        dispatch_apply(20, global, [](std::size_t) {});
        for (auto const& queue : {global, queueOn(global), queueOn(global, DISPATCH_QUEUE_CONCURRENT), queueOn(queueOn(global))})
            useAQueue(queue);
    }
    auto const& main = dispatch_get_main_queue();
    for (auto const& queue : {main, queueOn(main), queueOn(main, DISPATCH_QUEUE_CONCURRENT)}) useAQueue(queue);
    EXPECT_GT(threadsNow().workers, 0);
    EXPECT_TRUE(eventually([] { return nobodyWakesFor(std::chrono::milliseconds{200}); })) << "while the workers wait for more";
    EXPECT_TRUE(eventually([] {
        std::this_thread::sleep_for(std::chrono::milliseconds{50});
        return threadsNow().workers == 0;
    }));
    EXPECT_LT(bytes(), before + backlog * 16);
    EXPECT_TRUE(nobodyWakesFor(std::chrono::seconds{1}));
}

} // namespace
} // namespace Tessarin
