#include "Tessarin/system/MainQueueTimer.h"
#include "Tessarin/platform/queues/Dispatch.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include "tests/support/Eventually.h"
#include <atomic>
#include <gtest/gtest.h>
#include <thread>

namespace Tessarin::tests {
namespace {

void onMain(FunctionRef<void()> work) { dispatch_sync(dispatch_get_main_queue(), work); }
double secondsAhead(MainQueueTimer const& timer) {
    std::optional<NSDate> date;
    onMain([&] { date = timer.fireDate(); });
    return date ? date->timeIntervalSinceNow() : -1;
}

TEST(MainQueueTimer, FiresOnTheMainQueueNeverEarlyOnceOrAgainAndAgain) {
    std::atomic<int> once = 0, past = 0, often = 0, elsewhere = 0;
    auto const note = [&](std::atomic<int>& count) {
        elsewhere += !queueIsHeld(dispatch_get_main_queue());
        ++count;
    };
    auto const due = std::chrono::steady_clock::now() + std::chrono::milliseconds(20);
    auto const after = MainQueueTimer::after(0.02, [&] {
        if (std::chrono::steady_clock::now() >= due) note(once);
    });
    auto const at = MainQueueTimer::at(NSDate::distantPast(), [&] { note(past); });
    Ref<MainQueueTimer> every;
    onMain([&] { // so that it has its name before it falls
        every = MainQueueTimer::every(0.002, [&] {
            note(often);
            if (often == 3) every->invalidate();
        });
    });
    EXPECT_TRUE(eventually([&] { return !after->isValid() && !at->isValid() && !every->isValid(); }));
    onMain([] {});
    EXPECT_TRUE(once == 1 && past == 1 && often == 3 && elsewhere == 0) << once << past << often << elsewhere;
    EXPECT_DEATH(MainQueueTimer::every(0, [] {}), "MainQueueTimer.every: the interval is not more than 0");
    EXPECT_DEATH(MainQueueTimer::after(1e10, [] {}), "do not fit 64-bit nanoseconds");
}

TEST(MainQueueTimer, AfterInvalidateOnAnyThreadTheBlockIsNotRunningEither) {
    for (int round = 0; round < 300; ++round) {
        std::atomic<bool> isOver = false;
        std::atomic<int> calls = 0, lateCalls = 0;
        auto const timer = MainQueueTimer::every(1e-6, [&] {
            ++calls;
            for (int i = 0; i < 200; ++i) lateCalls += isOver.load();
        });
        while (calls == 0) std::this_thread::yield();
        timer->invalidate();
        isOver = true;
        onMain([] {});
        ASSERT_EQ(lateCalls, 0) << round;
    }
    std::atomic<int> calls = 0;
    onMain([&] { // it has fallen due, and waits behind this
        auto const timer = MainQueueTimer::after(0, [&] { ++calls; });
        std::thread([&] { timer->invalidate(); }).join();
    });
    onMain([] {});
    EXPECT_EQ(calls, 0);
}

TEST(MainQueueTimer, CanBeFiredPausedAndMoved) {
    std::atomic<int> calls = 0;
    auto const count = [&calls] { ++calls; };
    auto const far = MainQueueTimer::every(1000, count);
    onMain([&] {
        far->fire();
        EXPECT_EQ(calls, 1) << "here and now";
    });
    far->fire();
    far->pause();
    far->pause();
    EXPECT_EQ(secondsAhead(*far), -1);
    far->resume();
    EXPECT_NEAR(secondsAhead(*far), 1000, 60);
    far->pause();
    far->move(2000);
    far->resume();
    EXPECT_NEAR(secondsAhead(*far), 2000, 60);
    EXPECT_EQ(calls, 2);
    far->move(-1);
    EXPECT_TRUE(eventually([&] { return calls == 3; }));
    EXPECT_NEAR(secondsAhead(*far), 1000, 60) << "an interval from there";
    far->invalidate();
    far->fire();
    far->resume();
    EXPECT_EQ(secondsAhead(*far), -1);
    EXPECT_EQ(calls, 3);

    auto const once = MainQueueTimer::at(NSDate::distantFuture(), count);
    once->moveTo(NSDate::dateWithTimeIntervalSinceNow(500));
    EXPECT_NEAR(secondsAhead(*once), 500, 60);
    once->pause();
    once->moveTo(NSDate::distantPast());
    onMain([] {});
    EXPECT_EQ(calls, 3);
    once->resume();
    EXPECT_TRUE(eventually([&] { return calls == 4 && !once->isValid(); })) << "it has had its call";
}

TEST(MainQueueTimer, EndsWithTheObjectThatItIsTiedTo) {
    std::atomic<int> calls = 0;
    auto const kept = std::make_shared<int>();
    auto object = make<NSObject>();
    auto thing = std::make_shared<int>();
    auto const byObject = MainQueueTimer::every(1000, [&calls, kept] { ++calls; }, {.tiedTo = object});
    auto const byThing = MainQueueTimer::every(1000, [&calls, kept] { ++calls; }, {.tiedTo = thing});
    byObject->fire(), byThing->fire();
    onMain([] {});
    EXPECT_EQ(calls, 2);
    object = nullptr;
    thing = nullptr;
    EXPECT_FALSE(byObject->isValid()) << "at once";
    byThing->fire();
    EXPECT_TRUE(eventually([&] { return !byThing->isValid() && kept.use_count() == 1; })) << "what the blocks hold goes";
    EXPECT_EQ(calls, 2);
}

} // namespace
} // namespace Tessarin::tests
