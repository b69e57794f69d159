// Posts from other threads to the main thread, under several main loops: the main queue through its one descriptor, beside the
// loop's own way.
#include "Tessarin/platform/queues/Dispatch.h"
#include "benchmarks/mainloop/Loops.h"
#include "benchmarks/support/Report.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace Tessarin::benchmarks {
namespace {

constexpr int runs = 7;

std::int64_t now() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

void postToMainQueue(Loop&, Call call, void* argument) { dispatch_async_f(dispatch_get_main_queue(), argument, call); }
void postToLoop(Loop& loop, Call call, void* argument) { loop.post(call, argument); }
using Post = void (*)(Loop&, Call, void*);

/// Runs `work` on threads beside the loop; the last one to end has the loop quit, its own way.
template <class Work> void beside(Loop& loop, int threads, Work const& work) {
    std::atomic<int> left = threads;
    std::vector<std::thread> all;
    for (int at = 0; at < threads; ++at)
        all.emplace_back([&] {
            work();
            if (--left == 0) loop.post([](void* data) { static_cast<Loop*>(data)->quit(); }, &loop);
        });
    loop.run();
    for (auto& thread : all) thread.join();
}

/// Microseconds from a post until it runs on a main thread that sleeps in its loop; the median.
double latency(Loop& loop, Post post) {
    constexpr int posts = 1000;
    constexpr std::int64_t pause = 60'000; // until the main thread sleeps
    struct Letter {
        std::atomic<std::int64_t> arrived = 0;
    };
    std::vector<double> took;
    beside(loop, 1, [&] {
        for (int i = 0; i < posts; ++i) {
            Letter letter;
            for (auto const end = now() + pause; now() < end;) {}
            auto const posted = now();
            post(
                loop, [](void* data) { static_cast<Letter*>(data)->arrived = now(); }, &letter);
            while (letter.arrived == 0) std::this_thread::yield();
            took.push_back(static_cast<double>(letter.arrived - posted) / 1e3);
        }
    });
    std::ranges::sort(took);
    return took[took.size() / 2];
}

/// Nanoseconds per post, from the first post until the last has run.
double throughput(Loop& loop, Post post, int threads) {
    constexpr int posts = 400'000;
    static std::atomic<int> left;
    left = posts;
    static Loop* running;
    running = &loop;
    std::vector<std::thread> all;
    double const seconds = secondsOf([&] {
        for (int at = 0; at < threads; ++at)
            all.emplace_back([&] {
                for (int i = 0; i < posts / threads; ++i)
                    post(
                        loop,
                        [](void*) {
                            if (left.fetch_sub(1, std::memory_order_relaxed) == 1) running->quit();
                        },
                        nullptr);
            });
        loop.run();
    });
    for (auto& thread : all) thread.join();
    return seconds / posts * 1e9;
}

/// `bar` bounds what a post takes: 180 ns where the peers take 120, 330 and 330.
void benchLoop(Report& report, char const* name, char const* peer, double bar, std::unique_ptr<Loop> const& loop) {
    if (!loop) return;
    if (report.wants(name, "post until it runs")) {
        auto const both = medians(
            runs, [&] { return latency(*loop, postToMainQueue); }, [&] { return latency(*loop, postToLoop); });
        report.add({.group = name,
                    .row = "post until it runs",
                    .unit = "us",
                    .ours = both.ours,
                    .peer = peer,
                    .theirs = both.theirs,
                    .target = 1.1});
    }
    for (int const threads : {1, 4}) {
        auto const row = "a post, " + std::to_string(threads) + (threads == 1 ? " thread" : " threads");
        if (!report.wants(name, row)) continue;
        auto const both = medians(
            runs, [&] { return throughput(*loop, postToMainQueue, threads); },
            [&] { return throughput(*loop, postToLoop, threads); });
        report.add(
            {.group = name, .row = row, .unit = "ns", .ours = both.ours, .peer = peer, .theirs = both.theirs, .target = bar});
    }
}

} // namespace
} // namespace Tessarin::benchmarks

int main(int argc, char** argv) {
    using namespace Tessarin::benchmarks;
    Report report(argc, argv);
    benchLoop(report, "epoll", "mutex and eventfd", 1.5, makeEpollLoop());
    benchLoop(report, "GLib", "g_idle_add", 0.55, makeGLibLoop());
    benchLoop(report, "Qt", "invokeMethod", 0.55, makeQtLoop());
    return report.finish();
}
