#include "tests/platform/queues/Support.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>

namespace Tessarin {
namespace {

using namespace tests;

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

TEST(Pool, HundredsOfBlockedQueuesDoNotKeepTheNextOneFromBeingServed) {
    constexpr int queues = 600; // more than there will be threads
    constexpr int finishing = 150;
    Event gate, served;
    std::atomic<int> inside = 0;
    auto const group = dispatch_group_create();
    for (int i = 0; i < queues; ++i)
        dispatch_group_async(group, serialQueue(), [&, gate] {
            ++inside;
            gate.wait();
        });
    EXPECT_TRUE(eventually([&] { return inside >= 400; }));
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

} // namespace
} // namespace Tessarin
