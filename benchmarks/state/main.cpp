// Observable values beside those of other libraries, and how soon a watcher on another thread sees a change.
#include "Tessarin/platform/foundation/bundles/NSBundle.h"
#include "Tessarin/platform/foundation/operations/NSOperationQueue.h"
#include "Tessarin/state/GlobalState.h"
#include "Tessarin/state/Situation.h"
#include "benchmarks/state/Peers.h"
#include "benchmarks/support/DequeWorkers.h"
#include "benchmarks/support/Threads.h"

#include <atomic>
#include <thread>

namespace Tessarin::benchmarks {
namespace {

constexpr int runs = 9;

void unwatched(Report& report) {
    if (!report.wants("state", "set without watchers")) return;
    constexpr int count = 1'000'000;
    auto const state = make<GlobalState<int>>(-1, "benchmark");
    auto const qt = makeQtObservable(), glib = makeGLibObservable();
    auto const of = [&](auto const& observable) -> std::optional<double> {
        if (!observable) return {};
        return median(runs, [&] { return secondsOf([&] { observable->set(count); }) / count * 1e9; });
    };
    int value = 0;
    auto const ours = median(runs, [&] { return nanoseconds(count, [&] { state->setCurrent(++value); }); });
    report.add({.group = "state",
                .row = "set without watchers",
                .unit = "ns",
                .ours = ours,
                .peer = "QProperty",
                .theirs = of(qt).value_or(0),
                .target = 2.7, // 10 ns where the peer takes 3.7
                .others = {of(glib), {}}});
}

/// From the change to the watcher's call; the second processor waits for it.
void latency(Report& report) {
    if (!report.wants("state", "set to watcher")) return;
    constexpr int count = 20'000;
    std::atomic<int> seen{0};
    auto const await = [&](int value) {
        while (seen.load(std::memory_order_acquire) != value) {}
    };
    auto const state = make<GlobalState<int>>(0, "latency");
    state->watchValue([&](int value) { seen.store(value, std::memory_order_release); });
    int value = 0;
    auto const ours = [&] {
        return nanoseconds(count,
                           [&] {
                               state->setCurrent(++value);
                               await(value);
                           }) /
               1e3;
    };
    DequeWorkers worker;
    auto const theirs = [&] {
        return nanoseconds(count,
                           [&] {
                               worker.post([&seen, now = ++value] { seen.store(now, std::memory_order_release); });
                               await(value);
                           }) /
               1e3;
    };
    auto const result = medians(runs, ours, theirs);
    std::optional<double> strand;
#ifdef TESSARIN_BENCHMARKS_ASIO
    boost::asio::thread_pool pool(1);
    auto const own = boost::asio::make_strand(pool);
    strand = median(runs, [&] {
        return nanoseconds(count,
                           [&] {
                               boost::asio::post(own, [&seen, now = ++value] { seen.store(now, std::memory_order_release); });
                               await(value);
                           }) /
               1e3;
    });
    pool.join();
#endif
    report.add({.group = "state",
                .row = "set to watcher",
                .unit = "us",
                .ours = result.ours,
                .peer = "mutex + condvar",
                .theirs = result.theirs,
                .target = 1.15, // 2.5 us where the peer takes 2.2
                .others = {{}, strand}});
    state->setWatchers({});
}

void conditions(Report& report) {
    if (!report.wants("state", "condition")) return;
    constexpr int count = 20'000;
    auto const done = dispatch_semaphore_create(0);
    auto const ours = [&] {
        auto const situation = make<Situation>();
        return nanoseconds(1,
                           [&] {
                               situation->addCondition([&] {
                                   for (int i = 0; i < count; ++i) situation->addCondition([] {});
                                   situation->setCompletion([=] { dispatch_semaphore_signal(done); });
                               });
                               dispatch_semaphore_wait(done, DISPATCH_TIME_FOREVER);
                           }) /
               count;
    };
    report.add({.group = "state", .row = "condition, added to fulfilled", .unit = "ns", .ours = median(runs, ours)});
}

} // namespace
} // namespace Tessarin::benchmarks

int main(int argc, char** argv) {
    using namespace Tessarin;
    using namespace Tessarin::benchmarks;
    NSBundle::mainBundle()->setBundleIdentifier("org.example.benchmark");
    std::thread([] {}).join(); // glibc is quicker while a process has but one thread
    Report report(argc, argv, {"GObject", "Asio"});
    unwatched(report);
    latency(report);
    conditions(report);
    return report.finish();
}
