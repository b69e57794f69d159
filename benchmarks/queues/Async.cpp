#include "benchmarks/queues/Groups.h"

#include "Tessarin/platform/queues/Dispatch.h"
#include "benchmarks/queues/Peers.h"
#include <atomic>

namespace Tessarin::benchmarks {
namespace {

constexpr int items = 1'000'000;

/// Millions of items a second, from the first submission until the last item has run.
template <class Submit, class Finish> double rate(int producers, Submit const& submit, Finish const& finish) {
    return items / 1e6 / secondsOf([&] {
               secondsOnThreads(producers, [&](int) {
                   for (int i = 0; i < items / producers; ++i) submit();
               });
               finish();
           });
}

std::string row(char const* what, int producers) {
    return std::string{what} + ", " + std::to_string(producers) + (producers == 1 ? " producer" : " producers");
}

double oursToSerial(int producers) {
    auto const queue = dispatch_queue_create("bench", DISPATCH_QUEUE_SERIAL);
    long value = 0;
    return rate(
        producers, [&] { dispatch_async(queue, [&value] { ++value; }); }, [&] { dispatch_sync(queue, [] {}); });
}

void toSerial(Report& report, int producers) {
    auto const name = row("to a serial queue", producers);
    if (!report.wants("async", name)) return;
    compare(
        report, {.group = "async", .row = name, .unit = "M/s", .target = 1, .better = Better::Larger},
        [&] { return oursToSerial(producers); }, &Peer::serial,
        [&](QueueMaker make) {
            auto const queue = make();
            long value = 0;
            return rate(
                producers, [&] { queue->post([](void* counter) { ++*static_cast<long*>(counter); }, &value); },
                [&] { finish(*queue); });
        });
}

double oursToGlobal(int producers) {
    auto const queue = dispatch_get_global_queue(0, 0);
    auto const done = dispatch_semaphore_create(0);
    std::atomic<int> left = items;
    auto const submit = [&] {
        dispatch_async(queue, [&] {
            if (left.fetch_sub(1, std::memory_order_relaxed) == 1) dispatch_semaphore_signal(done);
        });
    };
    return rate(producers, submit, [&] { dispatch_semaphore_wait(done, DISPATCH_TIME_FOREVER); });
}

struct Countdown {
    std::atomic<int> left = items;
    std::binary_semaphore done{0};

    static void step(void* self) {
        auto& countdown = *static_cast<Countdown*>(self);
        if (countdown.left.fetch_sub(1, std::memory_order_relaxed) == 1) countdown.done.release();
    }
};

void toGlobal(Report& report, int producers) {
    auto const name = row("to a global queue", producers);
    if (!report.wants("async", name)) return;
    compare(
        report, {.group = "async", .row = name, .unit = "M/s", .target = 0.8, .better = Better::Larger}, // 5 M/s of 6
        [&] { return oursToGlobal(producers); }, &Peer::pool,
        [&](QueueMaker make) {
            auto const pool = make();
            Countdown countdown;
            return rate(
                producers, [&] { pool->post(Countdown::step, &countdown); }, [&] { countdown.done.acquire(); });
        });
}

/// Once the caches are warm, a closure that fits costs none.
void allocationsPerItem(Report& report) {
    if (!report.wants("async", "allocations an item")) return;
    auto const queue = dispatch_queue_create("bench", DISPATCH_QUEUE_SERIAL);
    long values[6]{};
    auto const submit = [&](int count) {
        for (int i = 0; i < count; ++i) {
            dispatch_async(queue, [a = &values[0], b = &values[1], c = &values[2], d = &values[3], e = &values[4],
                                   f = &values[5]] { ++*a, ++*b, ++*c, ++*d, ++*e, ++*f; });
            if (i % 1000 == 0) dispatch_sync(queue, [] {});
        }
        dispatch_sync(queue, [] {});
    };
    submit(100'000);
    auto const before = allocations();
    submit(100'000);
    report.add({.group = "async",
                .row = "allocations an item, closure of 48 bytes",
                .unit = "",
                .ours = static_cast<double>(allocations() - before) / 100'000,
                .target = 0.001});
}

} // namespace

void benchAsync(Report& report) {
    for (int const producers : {1, 4}) toSerial(report, producers);
    for (int const producers : {1, 4}) toGlobal(report, producers);
    allocationsPerItem(report);
}

} // namespace Tessarin::benchmarks
