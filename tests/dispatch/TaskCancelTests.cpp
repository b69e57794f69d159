#include "Tessarin/dispatch/Task.h"

#include "tests/support/Eventually.h"
#include "tests/support/Tasks.h"
#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace Tessarin {
namespace {

using tests::endOf;
using tests::eventually;

std::atomic<int> living = 0;
/// A local of which there must be none left.
struct Local {
    explicit Local(std::string* place = nullptr) : goesAt(place) { ++living; }
    Local(Local const& other) : goesAt(other.goesAt) { ++living; }
    ~Local() {
        --living;
        if (goesAt) *goesAt = dispatch_queue_get_label(nullptr);
    }
    std::string* goesAt;
};

constexpr double forEver = 1e9; // seconds

Task<> sleepLong(std::string* place) {
    Local const local(place);
    co_await delay(forEver);
    ADD_FAILURE() << "went on after the await";
}
Task<> sleepLongBelow(std::string* place) {
    Local const local;
    co_await sleepLong(place);
    ADD_FAILURE() << "went on after a cancelled child";
}
Task<> waitForOutcome(std::string* place) {
    Local const local;
    auto const outcome = co_await sleepLong(place).outcome();
    EXPECT_TRUE(outcome.isCancelled());
    co_await delay(0); // it is cancelled itself: here at the latest
    ADD_FAILURE() << "went on after an await behind the cancel";
}
Task<> throughALambda(std::string* place) {
    auto task = spawn([local = Local(), place]() -> Task<> { co_await sleepLong(place); });
    co_await task;
}

TEST(TaskCancel, EndsItWhereItWaitsAndDestroysItsLocalsThere) {
    for (auto const make : {sleepLong, sleepLongBelow, waitForOutcome, throughALambda}) {
        auto const queue = dispatch_queue_create("own", DISPATCH_QUEUE_SERIAL);
        std::string place;
        std::promise<bool> end;
        Task<> task;
        dispatch_sync(queue, [&] {
            task = make(&place);
            task.start([&](auto outcome) { end.set_value(outcome.isCancelled()); });
        });
        EXPECT_FALSE(task.isDone());
        EXPECT_GT(living, 0);
        task.cancel();
        task.cancel();
        EXPECT_TRUE(end.get_future().get());
        EXPECT_EQ(place, "own");
        EXPECT_EQ(living, 0);
        EXPECT_TRUE(task.isDone());
        task.cancel();
    }
}

TEST(TaskCancel, IsSeenByTheNextAwaitOfOneThatRuns) {
    for (int kind = 0; kind < 5; ++kind) {
        int reached = 0;
        Task<int> task;
        auto const run = [](Task<int>& own, int await, int& step) -> Task<int> {
            Local const local;
            step = 1;
            own.cancel();
            step = 2;
            auto const unstarted = [](int& at) -> Task<> {
                at = 3;
                co_return;
            };
            if (await == 0) co_await Dispatcher::utility();
            if (await == 1) co_await delay(0);
            if (await == 2) co_await unstarted(step);
            if (await == 3) co_await std::suspend_never();
            if (await == 4) co_return 1; // no await any more: it has its result
            step = 4;
            co_return 2;
        };
        task = run(task, kind, reached);
        auto const outcome = endOf(task);
        EXPECT_EQ(outcome.isCancelled(), kind != 4);
        EXPECT_EQ(reached, 2);
        EXPECT_EQ(living, 0);
    }
    int reached = 0;
    auto never = [](int& step) -> Task<> {
        step = 1;
        co_return;
    }(reached);
    never.cancel(); // before it begins
    EXPECT_TRUE(endOf(never).isCancelled());
    EXPECT_EQ(reached, 0);
}

TEST(TaskCancel, EndsWhoAwaitsItUnlessThatAsksForTheOutcome) {
    auto const parent = [](Task<>& child, bool asks, bool waitsFirst, bool& wentOn) -> Task<> {
        Local const local;
        if (waitsFirst) co_await Dispatcher::utility(); // then the child has perhaps ended
        if (asks) {
            auto const outcome = co_await child.outcome();
            EXPECT_TRUE(outcome.isCancelled());
        } else {
            co_await child;
        }
        wentOn = true;
    };
    for (bool const asks : {false, true})
        for (bool const waits : {false, true}) {
            auto child = sleepLong(nullptr);
            bool wentOn = false;
            auto task = parent(child, asks, waits, wentOn);
            child.start();
            if (waits) child.cancel();
            task.start();
            child.cancel();
            EXPECT_TRUE(eventually([&] { return task.isDone(); }));
            EXPECT_EQ(wentOn, asks);
            EXPECT_EQ(living, 0);
        }
}

TEST(TaskCancel, ADroppedTaskGoesOn) {
    std::promise<void> end;
    { // the handle goes while the task waits
        auto const run = [](std::promise<void>& told) -> Task<> {
            co_await delay(0.001);
            told.set_value();
        };
        run(end).start();
    }
    end.get_future().get();
}

/// A tree of tasks that hop and wait as the numbers say.
Task<int> wander(unsigned seed, int depth, std::vector<dispatch_queue_t> const& queues) {
    Local const local;
    std::minstd_rand random(seed);
    int sum = 1;
    std::vector<Task<int>> started;
    for (int step = 0; step < 6; ++step)
        switch (random() % 6) {
        case 0: co_await queues[random() % queues.size()]; break;
        case 1: co_await delay(1e-5 * static_cast<double>(random() % 30)); break;
        case 2: co_await delay(0); break;
        case 3:
            if (depth > 0) sum += co_await wander(static_cast<unsigned>(random()), depth - 1, queues);
            break;
        case 4:
            if (depth == 0) break;
            started.push_back(wander(static_cast<unsigned>(random()), depth - 1, queues));
            started.back().start();
            break;
        default:
            if (started.empty()) break;
            if (random() % 2 == 0) started.back().cancel();
            auto outcome = co_await started.back().outcome();
            if (outcome) sum += *outcome;
            started.pop_back();
        }
    co_return sum;
}

// Cancelled at any moment by another thread: each end is told once, and nothing is left.
TEST(TaskCancel, AtAnyMomentTellsOneEndAndLeavesNothing) {
    std::vector<dispatch_queue_t> queues{dispatch_get_main_queue(), dispatch_get_global_queue(QOS_CLASS_UTILITY, 0),
                                         dispatch_queue_create("concurrent", DISPATCH_QUEUE_CONCURRENT)};
    for (int i = 0; i < 3; ++i) queues.push_back(dispatch_queue_create("serial", DISPATCH_QUEUE_SERIAL));
    std::minstd_rand random(7);
    for (int round = 0; round < 300; ++round) {
        std::atomic<int> cancelled = 0, whole = 0;
        std::vector<Task<int>> tasks;
        for (int i = 0; i < 8; ++i) {
            tasks.push_back(wander(static_cast<unsigned>(random()), 3, queues));
            tasks.back().start([&](TaskOutcome<int> outcome) { outcome ? ++whole : ++cancelled; });
        }
        for (auto const& task : tasks)
            if (random() % 2 == 0) const_cast<Task<int>&>(task).cancel();
        if (round % 2 == 0) tasks.clear(); // then nobody holds them
        ASSERT_TRUE(eventually([&] { return whole + cancelled == 8; }));
    }
    EXPECT_TRUE(eventually([] { return living == 0; }));
}

/// Counts how often it is destroyed beside being made.
struct Argument {
    explicit Argument(int& balance) : count(&balance) { ++*count; }
    Argument(Argument const& other) : count(other.count) { ++*count; }
    Argument(Argument&& other) noexcept : count(other.count) { ++*count; }
    ~Argument() { --*count; }
    int* count;
};
struct Options {
    Argument first;
    std::shared_ptr<int> second = {};
};
Task<int> takesPlain(Argument first, std::shared_ptr<int> second) {
    co_await delay(0);
    co_return *second + (first.count != nullptr);
}
Task<int> takesOptions(Options options) {
    co_await delay(0);
    co_return *options.second;
}

// Temporaries of an awaited call go once, in calls with plain arguments and where the task is made first. (Built without
// optimisation: see the note on option structs in Task.h.)
TEST(Task, ArgumentsOfAnAwaitedCallAreDestroyedOnce) {
    int balance = 0;
    auto const shared = std::make_shared<int>(5);
    auto const run = [](int& count, std::shared_ptr<int> number) -> Task<int> {
        int sum = co_await takesPlain(Argument(count), number);
        sum += co_await takesPlain(Argument(count), std::shared_ptr<int>(number));
        auto spawned = spawn([held = Argument(count)](std::shared_ptr<int> n) -> Task<int> { co_return *n; }, number);
        sum += co_await spawned;
        sum += co_await spawn([](std::shared_ptr<int> n) -> Task<int> { co_return *n - 5; }, number);
        auto made = takesOptions({.first = Argument(count), .second = number});
        sum += co_await made;
        sum += (co_await takesPlain(Argument(count), number).outcome()).take();
        sum += co_await [](Argument, std::shared_ptr<int> n) -> Task<int> { co_return *n; }(Argument(count), number);
        co_return sum;
    };
    EXPECT_EQ(*endOf(run(balance, shared)), 33);
    EXPECT_EQ(balance, 0);
    EXPECT_EQ(shared.use_count(), 1);
}

} // namespace
} // namespace Tessarin
