#include "Tessarin/platform/queues/Dispatch.h"
#include "tests/integration/Loop.h"

#include <array>
#include <future>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace Tessarin {
namespace {

using namespace tests;

bool isFirstThread() { return gettid() == getpid(); }
void post(Closure<void()> work) { dispatch_async(dispatch_get_main_queue(), std::move(work)); }
void postAfter(int milliseconds, Closure<void()> work) {
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, milliseconds * std::int64_t{1'000'000}), dispatch_get_main_queue(),
                   std::move(work));
}

/// These tests run on the main thread, each in a loop of its own.
class MainLoop : public testing::Test {
protected:
    std::unique_ptr<Loop> loop = makeLoop();
    std::string order;
};

TEST_F(MainLoop, PostsFromThreeThreadsArriveInTheirOrderOnTheMainThread) {
    constexpr int threads = 3, posts = 5000;
    std::array<int, threads> arrived{};
    int outOfOrder = 0, elsewhere = 0, ended = 0;
    std::vector<std::thread> posting;
    for (std::size_t at = 0; at < threads; ++at)
        posting.emplace_back([&, at] {
            for (int number = 0; number < posts; ++number) {
                post([&, at, number] {
                    outOfOrder += arrived[at]++ != number;
                    elsewhere += !isFirstThread();
                });
                if (number % 500 == 0) dispatch_sync(dispatch_get_main_queue(), [&] { outOfOrder += arrived[at] != number + 1; });
            }
            post([&] {
                if (++ended == threads) loop->quit();
            });
        });
    loop->run();
    for (auto& thread : posting) thread.join();
    EXPECT_EQ(arrived, (std::array<int, threads>{posts, posts, posts}));
    EXPECT_EQ(outOfOrder, 0);
    EXPECT_EQ(elsewhere, 0);
}

TEST_F(MainLoop, TimersFireInTheirOrderWhileTheLoopWaits) {
    postAfter(20, [&] { order += 'd', loop->quit(); });
    postAfter(10, [&] { order += 'b'; });
    postAfter(10, [&] { order += 'c'; });
    postAfter(-1, [&] { order += 'a'; });
    loop->run();
    EXPECT_EQ(order, "abcd");
    EXPECT_LT(loop->waits(), 20);
}

TEST_F(MainLoop, AFloodOfPostsLeavesTheToolkitItsTurn) {
    struct Again {
        bool& enough;
        void operator()() const {
            if (!enough) post(*this);
        }
    };
    bool enough = false;
    post(Again{enough});
    loop->callWhenIdle([&] { loop->callAfter(1, [&] { enough = true, loop->quit(); }); });
    loop->run();
    EXPECT_TRUE(enough);
    post([&] { loop->quit(); });
    loop->run(); // the last Again is gone before `enough` is
}

// As a dialogue that a block opens: the toolkit goes on, the main queue's next block waits for the end of this one.
TEST_F(MainLoop, ALoopInsideABlockNeitherSpinsNorReorders) {
    std::thread poster;
    post([&] {
        order += '<';
        poster = std::thread([&] {
            post([&] { order += 'b'; });
            post([&] { order += 'c', loop->quit(); });
        });
        poster.join();
        stopMainLoop(); // makes the descriptor readable, as a late signal does
        loop->callAfter(50, [&] { order += 't', loop->quit(); });
        auto const before = loop->waits();
        loop->run();
        EXPECT_LT(loop->waits() - before, 10);
        order += '>';
    });
    post([&] { order += 'a'; });
    loop->run();
    EXPECT_EQ(order, "<t>abc");
    EXPECT_LT(loop->waits(), 20);
}

TEST_F(MainLoop, ALoopInsideAnEventOfTheToolkitRunsTheBlocks) {
    loop->callAfter(0, [&] {
        order += '<';
        post([&] { order += 'a', loop->quit(); });
        loop->run();
        order += '>';
        post([&] { order += 'b', loop->quit(); });
    });
    loop->run();
    EXPECT_EQ(order, "<a>b");
}

TEST_F(MainLoop, WhatIsPostedWithoutALoopWaitsForTheNext) {
    loop.reset();
    std::thread([&] { post([&] { order += 'a'; }); }).join();
    loop = makeLoop();
    post([&] { order += 'b', loop->quit(); });
    loop->run();
    EXPECT_EQ(order, "ab");
}

} // namespace
} // namespace Tessarin

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
