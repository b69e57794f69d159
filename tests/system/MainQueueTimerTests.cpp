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
    auto const start = std::chrono::steady_clock::now();
    std::atomic<double> late = 0;
    auto const note = [&](std::atomic<int>& count) {
        elsewhere += !queueIsHeld(dispatch_get_main_queue());
        ++count;
    };
    auto const after = MainQueueTimer::after(0.02, [&] {
        late = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        note(once);
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
    EXPECT_EQ(once, 1);
    EXPECT_EQ(past, 1);
    EXPECT_EQ(often, 3);
    EXPECT_EQ(elsewhere, 0);
    EXPECT_GE(late, 0.02);
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
        std::thread([&] {
            timer->invalidate();
            isOver = true;
        }).join();
        timer->invalidate();
        onMain([] {});
        ASSERT_EQ(lateCalls, 0) << round;
    }
    std::atomic<int> calls = 0;
    Ref<MainQueueTimer> timer;
    onMain([&] { // it has fallen due, and waits behind this
        timer = MainQueueTimer::after(0, [&] { ++calls; });
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
    onMain([] {});
    EXPECT_EQ(calls, 2);
    EXPECT_NEAR(secondsAhead(*far), 1000, 60);
    far->pause();
    far->pause();
    EXPECT_EQ(secondsAhead(*far), -1);
    EXPECT_TRUE(far->isPaused());
    far->move(2000);
    far->resume();
    EXPECT_NEAR(secondsAhead(*far), 2000, 60);
    far->move(-1);
    EXPECT_TRUE(eventually([&] { return calls == 3; }));
    EXPECT_NEAR(secondsAhead(*far), 1000, 60) << "an interval from there";
    far->invalidate();
    EXPECT_EQ(secondsAhead(*far), -1);
    far->fire();
    far->resume();
    onMain([] {});
    EXPECT_EQ(calls, 3);

    auto const once = MainQueueTimer::at(NSDate::distantFuture(), count);
    once->moveTo(NSDate::dateWithTimeIntervalSinceNow(500));
    EXPECT_NEAR(secondsAhead(*once), 500, 60);
    once->fire();
    onMain([] {});
    EXPECT_FALSE(once->isValid()) << "it has had its call";
    auto const paused = MainQueueTimer::at(NSDate::dateWithTimeIntervalSinceNow(1000), count);
    paused->pause();
    paused->moveTo(NSDate::distantPast());
    onMain([] {});
    EXPECT_EQ(calls, 4);
    paused->resume();
    EXPECT_TRUE(eventually([&] { return calls == 5; }));
}

TEST(MainQueueTimer, EndsWithTheObjectThatItIsTiedTo) {
    std::atomic<int> calls = 0;
    auto const kept = std::make_shared<int>(), keptToo = std::make_shared<int>();
    auto object = make<NSObject>();
    auto thing = std::make_shared<int>();
    auto const byObject = MainQueueTimer::every(1000, [&calls, kept] { ++calls; }, {.tiedTo = object});
    auto const byThing = MainQueueTimer::every(1000, [&calls, keptToo] { ++calls; }, {.tiedTo = thing});
    auto const untied = MainQueueTimer::every(1000, [&calls] { ++calls; }, {.tiedTo = object});
    untied->invalidate();
    byObject->fire(), byThing->fire();
    onMain([] {});
    EXPECT_EQ(calls, 2);
    object = nullptr;
    thing = nullptr;
    EXPECT_FALSE(byObject->isValid()) << "at once";
    byThing->fire();
    EXPECT_TRUE(eventually([&] { return !byThing->isValid(); }));
    EXPECT_EQ(calls, 2);
    onMain([] {});
    EXPECT_EQ(kept.use_count(), 1) << "what the block holds goes, although the timer is kept";
    EXPECT_TRUE(eventually([&] { return keptToo.use_count() == 1; }));
}

} // namespace
} // namespace Tessarin::tests
