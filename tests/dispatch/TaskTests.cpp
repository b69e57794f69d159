#include "Tessarin/dispatch/Task.h"

#include "tests/support/Eventually.h"
#include "tests/support/Tasks.h"
#include <algorithm>
#include <array>
#include <atomic>
#include <coroutine>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace Tessarin {
namespace {

using tests::endOf;

std::string here() { return dispatch_queue_get_label(nullptr); }

Task<std::string> onQueue(dispatch_queue_t queue) {
    co_await queue;
    co_return here();
}
Task<std::string> atOnce() { co_return here(); }
Task<> nothing() { co_return; }
Task<int> plusOneElsewhere(int number, dispatch_queue_t elsewhere) {
    co_await elsewhere;
    co_return number + 1;
}

// Where a task goes on after each kind of await: where it was, but for the await that names a queue.
TEST(Task, GoesOnWhereItWasOrWhereItSays) {
    auto const own = make<Dispatcher>(QueueOptions{.identifier = "own"});
    auto const other = dispatch_queue_create("other", DISPATCH_QUEUE_CONCURRENT);
    std::vector<std::string> places;
    auto const walk = [](Ref<Dispatcher> home, dispatch_queue_t away, std::vector<std::string>& seen) -> Task<int> {
        seen.push_back(here());
        co_await home;
        seen.push_back(here());
        seen.push_back(co_await onQueue(away));
        seen.push_back(here());
        seen.push_back(co_await atOnce());
        co_await delay(0.001);
        seen.push_back(here());
        co_await delay(-1);
        seen.push_back(here());
        co_await Dispatcher::main();
        seen.push_back(here());
        co_await *Dispatcher::utility();
        auto late = onQueue(away);
        co_await home;
        late.start();
        co_await nothing();
        seen.push_back(co_await late);
        seen.push_back(here());
        co_return 7;
    };
    auto outcome = endOf(walk(own, other, places));
    ASSERT_TRUE(outcome);
    EXPECT_EQ(*outcome, 7);
    EXPECT_EQ(places, (std::vector<std::string>{"", "own", "other", "own", "own", "own", "own", "main", "other", "own"}));
}

TEST(Task, BeginsWhenStartedAndTellsItsEndOnTheQueueOfTheStart) {
    auto const queue = dispatch_queue_create("start", DISPATCH_QUEUE_SERIAL);
    bool begun = false;
    auto const step = [](bool& flag) -> Task<std::unique_ptr<int>> {
        flag = true;
        co_return std::make_unique<int>(4);
    };
    auto task = step(begun);
    EXPECT_FALSE(begun);
    std::promise<std::pair<std::string, int>> told;
    bool hasReturned = false;
    dispatch_sync(queue, [&] {
        task.start([&](auto outcome) { told.set_value({here(), hasReturned ? **outcome : -1}); });
        EXPECT_TRUE(begun);
        EXPECT_TRUE(task.isDone());
        hasReturned = true;
    });
    EXPECT_EQ(told.get_future().get(), (std::pair<std::string, int>{"start", 4}));
    { // one that is never started goes, with its arguments
        auto const argument = std::make_shared<int>(1);
        auto const keep = [](std::shared_ptr<int>) -> Task<> { co_return; };
        { auto const dropped = keep(argument); }
        EXPECT_EQ(argument.use_count(), 1);
    }
    EXPECT_DEATH(Task<int>().start(), "Task: there is none");
}

std::atomic<std::size_t> allocations = 0;

std::ptrdiff_t distance(void const* a, void const* b) {
    return std::abs(static_cast<char const*>(a) - static_cast<char const*>(b));
}

// A loop of awaits keeps the stack and the heap as they are, whatever ends the wait.
TEST(Task, AMillionHopsNeitherGrowTheStackNorAllocate) {
    auto const queue = dispatch_queue_create("loop", DISPATCH_QUEUE_SERIAL);
    auto const loop = [](dispatch_queue_t on, std::size_t& allocated) -> Task<std::ptrdiff_t> {
        auto const add = [](int number) -> Task<int> { co_return number + 1; };
        co_await on;
        volatile char first = 0;
        void const* const start = __builtin_frame_address(0);
        std::ptrdiff_t furthest = 0;
        int sum = 0;
        auto const before = allocations.load();
        for (int i = 0; i < 1'000'000; ++i) {
            co_await on;
            furthest = std::max(furthest, distance(start, __builtin_frame_address(0)));
        }
        allocated = allocations - before;
        for (int i = 0; i < 100'000; ++i) sum = co_await add(sum);
        for (int i = 0; i < 100'000; ++i) {
            sum = co_await plusOneElsewhere(sum, on);
            furthest = std::max(furthest, distance(start, __builtin_frame_address(0)));
        }
        static_cast<void>(first);
        co_return sum == 200'000 ? furthest : -1;
    };
    std::size_t allocated = 1'000;
    auto outcome = endOf(loop(queue, allocated));
    ASSERT_TRUE(outcome);
    EXPECT_GE(*outcome, 0);
    EXPECT_LT(*outcome, 64 * 1024) << "one thread's stack, or another's: then far away";
    EXPECT_LT(allocated, 100u);
}

TEST(Task, PassesOnWhatItThrows) {
    auto const thrower = [](bool waits) -> Task<int> {
        if (waits) co_await Dispatcher::utility();
        throw std::runtime_error("no number");
    };
    auto const catcher = [&](bool waits) -> Task<std::string> {
        try {
            co_return std::to_string(co_await thrower(waits));
        } catch (std::runtime_error const& error) { co_return error.what(); }
    };
    for (bool const waits : {false, true}) {
        EXPECT_EQ(*endOf(catcher(waits)), "no number");
        auto outcome = endOf(thrower(waits));
        EXPECT_FALSE(outcome);
        EXPECT_FALSE(outcome.isCancelled());
        EXPECT_THROW(outcome.take(), std::runtime_error);
    }
    EXPECT_DEATH(
        {
            thrower(true).start();
            tests::eventually([] { return false; });
        },
        "no number");
    auto const parent = [&]() -> Task<> {
        auto child = thrower(false);
        child.start();
        co_await delay(1e9);
    };
    auto task = parent();
    task.start();
    task.cancel();
    EXPECT_TRUE(endOf(task).isCancelled());
}

TEST(Task, GivesItsResultOnce) {
    auto const twice = []() -> Task<int> {
        auto task = plusOneElsewhere(1, dispatch_get_global_queue(QOS_CLASS_UTILITY, 0));
        auto const first = co_await task;
        co_return first + co_await task;
    };
    EXPECT_DEATH(endOf(twice()), "its result was taken already");
}

/// Somebody else's way to wait: resumes from a thread that knows no queues.
struct FromAThread {
    int number;
    std::thread* thread;
    bool await_ready() const { return number == 0; }
    void await_suspend(std::coroutine_handle<> handle) {
        auto* const place = thread; // this goes with what is resumed
        *place = std::thread([handle] { handle.resume(); });
    }
    int await_resume() const { return number; }
};
struct Convertible {
    FromAThread inner;
    FromAThread operator co_await() const { return inner; }
};

TEST(Task, AwaitsWhatOthersMade) {
    std::array<std::thread, 3> threads;
    auto const sum = [](std::array<std::thread, 3>& run) -> Task<int> {
        int result = co_await FromAThread{0, &run[0]};
        result += co_await FromAThread{1, &run[1]};
        FromAThread kept{2, &run[2]};
        result += co_await kept;
        result += co_await Convertible{{0, nullptr}};
        co_return result;
    };
    EXPECT_EQ(*endOf(sum(threads)), 3);
    for (auto& thread : threads)
        if (thread.joinable()) thread.join();
}

TEST(Task, SpawnKeepsALambdaAndItsArguments) {
    auto const object = std::make_shared<int>(41);
    std::promise<int> result;
    spawn(
        [object, &result](std::shared_ptr<int> argument) -> Task<> {
            co_await delay(0.001);
            co_await Dispatcher::main();
            result.set_value(*object + static_cast<int>(*argument == 41));
        },
        object);
    EXPECT_EQ(result.get_future().get(), 42);
    EXPECT_TRUE(tests::eventually([&] { return object.use_count() == 1; }));
}

} // namespace
} // namespace Tessarin

void* operator new(std::size_t size) {
    ++Tessarin::allocations;
    if (void* const memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
