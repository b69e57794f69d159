// A coroutine that hops from one queue to another, beside closures that submit the next one. Processor time.
#include "benchmarks/queues/Groups.h"

#include "Tessarin/dispatch/Task.h"

namespace Tessarin::benchmarks {
namespace {

constexpr int hops = 1'000'000;

struct Loop {
    dispatch_queue_t queues[2];
    dispatch_semaphore_t done = dispatch_semaphore_create(0);
    int left = hops;
};

void submitNext(Loop& loop) {
    if (--loop.left == 0) {
        dispatch_semaphore_signal(loop.done);
        return;
    }
    dispatch_async(loop.queues[loop.left % 2], [&loop] { submitNext(loop); });
}

Task<> hop(Loop& loop) {
    for (; loop.left > 0; --loop.left) co_await loop.queues[loop.left % 2];
    dispatch_semaphore_signal(loop.done);
}

Task<int> plusOne(int number) { co_return number + 1; }

/// A loop between two serial queues, or of one that is both.
void hopRow(Report& report, char const* row, bool isOneQueue) {
    if (!report.wants("coroutines", row)) return;
    auto const first = dispatch_queue_create("bench", DISPATCH_QUEUE_SERIAL);
    auto const second = isOneQueue ? first : dispatch_queue_create("bench", DISPATCH_QUEUE_SERIAL);
    auto const run = [&](FunctionRef<void(Loop&)> start) {
        return costOf([&] {
            Loop loop{{first, second}};
            start(loop);
            dispatch_semaphore_wait(loop.done, DISPATCH_TIME_FOREVER);
        });
    };
    auto const costs = medianCosts(
        runs, [&] { return run([](Loop& loop) { hop(loop).start(); }); },
        [&] { return run([](Loop& loop) { submitNext(loop); }); });
    report.add({.group = "coroutines",
                .row = row,
                .unit = "ns",
                .ours = costs.ours.processor / hops * 1e9,
                .peer = "async with a closure",
                .theirs = costs.theirs.processor / hops * 1e9,
                .target = 1.3});
}

/// What a task costs that ends without having waited: its frame, and no queue.
void callRow(Report& report) {
    char const* const row = "awaiting a task that does not wait";
    if (!report.wants("coroutines", row)) return;
    auto const loop = [](dispatch_semaphore_t done) -> Task<> {
        int sum = 0;
        while (sum < hops) sum = co_await plusOne(sum);
        dispatch_semaphore_signal(done);
    };
    auto const nanoseconds = median(runs, [&] {
        auto const done = dispatch_semaphore_create(0);
        auto const cost = costOf([&] {
            loop(done).start();
            dispatch_semaphore_wait(done, DISPATCH_TIME_FOREVER);
        });
        return cost.processor / hops * 1e9;
    });
    report.add({.group = "coroutines", .row = row, .unit = "ns", .ours = nanoseconds});
}

} // namespace

void benchCoroutines(Report& report) {
    hopRow(report, "a coroutine hop, one serial queue", true);
    hopRow(report, "a coroutine hop between two serial queues", false);
    callRow(report);
}

} // namespace Tessarin::benchmarks
