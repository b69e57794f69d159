#include "tests/platform/queues/Support.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <mutex>
#include <thread>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

static int pretendedProcessors = 0;
/// Also the library's: says what the test pretends, and else the truth.
extern "C" __attribute__((visibility("default"))) int sched_getaffinity(pid_t process, size_t size, cpu_set_t* set) noexcept {
    if (pretendedProcessors == 0) return syscall(SYS_sched_getaffinity, process, size, set) < 0 ? -1 : 0;
    for (int i = 0; i < pretendedProcessors; ++i) CPU_SET_S(static_cast<std::size_t>(i), size, set);
    return 0;
}

namespace Tessarin {
namespace {

using namespace tests;

TEST(Pool, HundredsOfBlockedQueuesDoNotKeepTheNextOneFromBeingServed) {
    constexpr int queues = 600; // more than there will be threads
    constexpr int finishing = 150;
    Event gate, served, another;
    std::atomic<int> inside = 0;
    auto const group = dispatch_group_create();
    for (int i = 0; i < queues; ++i)
        dispatch_group_async(group, serialQueue(), [&, gate] {
            ++inside;
            gate.wait();
        });
    EXPECT_TRUE(eventually([&] { return inside >= 400; })); // nobody leaves before
    dispatch_async(dispatch_get_global_queue(0, 0), [=] { another.happen(); });
    EXPECT_TRUE(another.wait());
    dispatch_async(serialQueue(), [=] { served.happen(); });
    for (int i = 0; i < finishing; ++i) gate.happen();
    EXPECT_TRUE(served.wait());
    for (int i = finishing; i < queues; ++i) gate.happen();
    EXPECT_EQ(dispatch_group_wait(group, limit()), 0);
    EXPECT_EQ(inside, queues);
}

TEST(Pool, ABlockedWorkerIsReplacedWithinFiftyMilliseconds) {
    auto const queue = dispatch_get_global_queue(QOS_CLASS_USER_INITIATED, 0);
    auto const workers = std::max(2u, std::thread::hardware_concurrency());
    auto fastest = std::chrono::steady_clock::duration::max(); // what else the machine does can only add to it
    for (int attempt = 0; attempt < 10 && fastest > std::chrono::milliseconds{50}; ++attempt) {
        std::mutex door; // a wait that the engine cannot see
        std::unique_lock closed(door);
        std::atomic<unsigned> inside = 0;
        auto const group = dispatch_group_create();
        for (unsigned i = 0; i < workers; ++i)
            dispatch_group_async(group, queue, [&] {
                ++inside;
                std::lock_guard const wait(door);
            });
        EXPECT_TRUE(eventually([&] { return inside == workers; }));
        Event served;
        auto const start = std::chrono::steady_clock::now();
        dispatch_async(queue, [=] { served.happen(); });
        EXPECT_TRUE(served.wait());
        fastest = std::min(fastest, std::chrono::steady_clock::now() - start);
        closed.unlock();
        EXPECT_EQ(dispatch_group_wait(group, limit()), 0);
    }
    EXPECT_LE(fastest, std::chrono::milliseconds{50});
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

TEST(Pool, QueuesThatComputeDoNotKeepOtherSerialQueuesWaiting) {
    std::atomic<bool> enough = false;
    std::atomic<int> computing = 0;
    auto const group = dispatch_group_create();
    constexpr int busy = 8; // more than there are processors: each is owed a thread
    for (int i = 0; i < busy; ++i)
        dispatch_group_async(group, serialQueue(), [&] {
            ++computing;
            while (!enough) {
            }
        });
    Event served, fired;
    dispatch_async(serialQueue(), [=] { served.happen(); });
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, 1'000'000), serialQueue(), [=] { fired.happen(); });
    EXPECT_TRUE(served.wait());
    EXPECT_TRUE(fired.wait());
    EXPECT_TRUE(eventually([&] { return computing == busy; }));
    enough = true;
    EXPECT_EQ(dispatch_group_wait(group, limit()), 0);
}

TEST(Pool, QueuesThatWaitDoNotBringConcurrentOnesOverTheCap) {
    auto const workers = std::max(2u, std::thread::hardware_concurrency());
    std::atomic<bool> enough = false;
    std::atomic<unsigned> inside = 0, most = 0;
    auto const group = dispatch_group_create();
    auto const compute = [&] {
        auto const now = ++inside;
        for (auto seen = most.load(); seen < now && !most.compare_exchange_weak(seen, now);) {
        }
        while (!enough) {
        }
        --inside;
    };
    for (unsigned i = 0; i < workers + 3; ++i) dispatch_group_async(group, concurrentQueue(), compute);
    for (int i = 0; i < 4; ++i) { // these come over the cap, one after the other, and make no room for the others
        Event served;
        dispatch_async(serialQueue(), [=] { served.happen(); });
        EXPECT_TRUE(served.wait());
    }
    EXPECT_LE(most, workers);
    enough = true;
    EXPECT_EQ(dispatch_group_wait(group, limit()), 0);
}

void allowNoMoreThreads() {
    rlimit const none{0, 0};
    setrlimit(RLIMIT_NPROC, &none);
    if (geteuid() == 0 && setuid(65534) != 0) _exit(2); // nobody: the limit is not for the superuser
}

TEST(PoolDeathTest, WhereNoMoreThreadsStartThoseThatAreThereDoTheWork) {
    EXPECT_EXIT(
        {
            Event const started;
            Event const gate;
            Event const ran;
            Event const fired;
            dispatch_async(serialQueue(), [=] { started.happen(), gate.wait(); });
            bool good = started.wait();
            allowNoMoreThreads();
            dispatch_async(serialQueue(), [=] { ran.happen(); }); // the only worker is blocked
            dispatch_after(dispatch_time(DISPATCH_TIME_NOW, 1'000'000), serialQueue(), [=] { fired.happen(); });
            gate.happen();
            good = ran.wait() && fired.wait() && good;
            _exit(good ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_DEATH((allowNoMoreThreads(), dispatch_async(serialQueue(), [] {})), "^dispatch: no thread can be started\n$");
}

TEST(PoolDeathTest, AsManyComputeAsTheProcessMayUseProcessors) {
    EXPECT_EXIT(
        {
            pretendedProcessors = 5;
            std::atomic<int> inside = 0;
            for (int i = 0; i < 5; ++i)
                dispatch_async(dispatch_get_global_queue(0, 0), [&] {
                    ++inside;
                    while (inside < 5) {
                    }
                });
            _exit(eventually([&] { return inside == 5; }) ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // which keep memory of their own for each byte
TEST(Pool, TheMemoryOfALongBacklogGoesBackWhenItIsQuiet) {
    auto const resident = [] {
        std::size_t all = 0, now = 0;
        std::ifstream("/proc/self/statm") >> all >> now;
        return now * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) >> 20; // megabytes
    };
    auto const queue = serialQueue();
    dispatch_suspend(queue);
    for (int i = 0; i < 1'000'000; ++i) dispatch_async(queue, [] {});
    auto const full = resident();
    dispatch_resume(queue);
    EXPECT_TRUE(eventually([&] { return resident() + 55 < full; }));
}
#endif

TEST(Pool, SignalsOfAnItemsOwnDoingReachIt) {
    sigset_t closed, inChild;
    Event done;
    int child[2];
    ASSERT_EQ(pipe(child), 0);
    dispatch_async(serialQueue(), [&] {
        pthread_sigmask(SIG_SETMASK, nullptr, &closed);
        if (fork() == 0) {
            sigset_t own;
            pthread_sigmask(SIG_SETMASK, nullptr, &own);
            _exit(write(child[1], &own, sizeof own) == sizeof own ? 0 : 1);
        }
        done.happen();
    });
    ASSERT_TRUE(done.wait());
    ASSERT_EQ(read(child[0], &inChild, sizeof inChild), static_cast<ssize_t>(sizeof inChild));
    for (int const signal : {SIGILL, SIGTRAP, SIGFPE, SIGBUS, SIGSEGV, SIGSYS, SIGPIPE, SIGPROF})
        EXPECT_FALSE(sigismember(&closed, signal));
    EXPECT_TRUE(sigismember(&closed, SIGTERM));
    EXPECT_FALSE(sigismember(&inChild, SIGTERM));
    close(child[0]);
    close(child[1]);
    wait(nullptr);
}

} // namespace
} // namespace Tessarin
