#include "tests/platform/queues/Support.h"

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <malloc.h>
#include <mutex>
#include <unistd.h>

namespace Tessarin {
namespace {

using namespace tests;

/// Number of the engine's workers, and how often they, the timer and the main thread have gone to sleep so far.
struct Threads {
    int workers = 0;
    long sleeps = 0;
};
Threads threadsNow() {
    Threads result;
    for (auto const& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream status(task.path() / "status");
        bool counts = task.path().filename() == std::to_string(getpid());
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

TEST(Pool, GrowsWhileWorkersBlockWhetherTheEngineKnowsItOrNot) {
    constexpr int blocked = 20;
    for (bool const announced : {true, false}) {
        std::mutex mutex;
        std::condition_variable changed;
        bool open = false;
        std::atomic<int> inside = 0;
        Event gate;
        auto const group = dispatch_group_create();
        for (int i = 0; i < blocked; ++i)
            dispatch_group_async(group, serialQueue(), [&, gate] {
                ++inside;
                if (announced) {
                    gate.wait();
                } else {
                    std::unique_lock hold(mutex);
                    changed.wait(hold, [&] { return open; });
                }
            });
        EXPECT_TRUE(eventually([&] { return inside == blocked; })); // nobody leaves before all are inside
        Event another;
        dispatch_async(dispatch_get_global_queue(0, 0), [=] { another.happen(); });
        EXPECT_TRUE(another.wait());
        {
            std::lock_guard const hold(mutex);
            open = true;
        }
        changed.notify_all();
        for (int i = 0; i < blocked; ++i) gate.happen();
        EXPECT_EQ(dispatch_group_wait(group, limit()), 0);
        while (announced && gate.hasHappened()) {
        }
    }
}

TEST(Pool, WorkMadeRunnableByABusyWorkerIsNotLeftWithIt) {
    auto const first = serialQueue();
    auto const second = serialQueue();
    bool met = false;
    Event done;
    dispatch_async(first, [&] {
        std::atomic<bool> reached = false;
        dispatch_async(second, [&] { reached = true; });
        met = eventually([&] { return reached.load(); }); // without leaving the item, and without a wait of the engine's
        done.happen();
    });
    EXPECT_TRUE(done.wait());
    EXPECT_TRUE(met);
}

TEST(Pool, LongQueuesDoNotKeepOthersOut) {
    std::atomic<bool> enough = false;
    std::vector<dispatch_queue_t> endless(8, nullptr);
    auto const group = dispatch_group_create();
    struct Again {
        dispatch_queue_t queue;
        std::atomic<bool>& enough;
        dispatch_group_t group;
        void operator()() const {
            enough ? dispatch_group_leave(group) : dispatch_async(queue, *this);
        }
    };
    for (auto& queue : endless) {
        queue = serialQueue();
        dispatch_group_enter(group);
        dispatch_async(queue, Again{queue, enough, group});
    }
    Event other;
    dispatch_async(serialQueue(), [=] { other.happen(); });
    EXPECT_TRUE(other.wait());
    enough = true;
    EXPECT_EQ(dispatch_group_wait(group, limit()), 0);
}

TEST(Pool, AnIdleProcessHasNoWakeUpsAndItsWorkersAndMemoryGo) {
    auto const bytes = [] {
        auto const heap = mallinfo2();
        return heap.uordblks + heap.hblkhd;
    };
    auto const before = bytes();
    constexpr std::size_t backlog = 200'000;
    auto const queue = serialQueue();
    dispatch_suspend(queue);
    for (std::size_t i = 0; i < backlog; ++i) dispatch_async(queue, [] {});
    dispatch_resume(queue);
    dispatch_sync(queue, [] {});
    for (int i = 0; i < 100; ++i) dispatch_sync(queueOn(serialQueue()), [] {}), dispatch_async(serialQueue(), [] {});
    EXPECT_GT(threadsNow().workers, 0);
    EXPECT_TRUE(eventually([] {
        auto const first = threadsNow();
        std::this_thread::sleep_for(std::chrono::milliseconds{200});
        auto const second = threadsNow();
        return first.sleeps == second.sleeps && first.workers == second.workers;
    }));
    EXPECT_TRUE(eventually([] { return threadsNow().workers == 0; }));
    EXPECT_LT(bytes(), before + backlog * 16);
}

} // namespace
} // namespace Tessarin
