#include "benchmarks/queues/Groups.h"

#include "Tessarin/platform/queues/Dispatch.h"
#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

namespace Tessarin::benchmarks {
namespace {

using Clock = std::chrono::steady_clock;

void uncontended(Report& report) {
    if (!report.wants("sync", "uncontended")) return;
    constexpr int count = 3'000'000;
    auto const queue = dispatch_queue_create("bench", DISPATCH_QUEUE_SERIAL);
    dispatch_async(queue, [] {}); // glibc's mutex is not atomic while a process has but one thread
    std::mutex mutex;
    long value = 0;
    auto const result = medians(
        runs,
        [&] {
            return secondsOf([&] {
                       for (int i = 0; i < count; ++i) dispatch_sync(queue, [&] { touch(value); });
                   }) / count * 1e9;
        },
        [&] {
            return secondsOf([&] {
                       for (int i = 0; i < count; ++i) {
                           std::lock_guard const hold(mutex);
                           touch(value);
                       }
                   }) / count * 1e9;
        });
    report.add({.group = "sync",
                .row = "uncontended",
                .unit = "ns",
                .ours = result.ours,
                .peer = "std::mutex",
                .theirs = result.theirs,
                .target = 1.5});
}

void contended(Report& report, int threads) {
    auto const row = "contended, " + std::to_string(threads) + " threads";
    if (!report.wants("sync", row)) return;
    constexpr int count = 400'000;
    auto const queue = dispatch_queue_create("bench", DISPATCH_QUEUE_SERIAL);
    std::mutex mutex;
    long value = 0;
    auto const rate = [&](auto const& step) {
        return threads * count / 1e6 / secondsOnThreads(threads, [&](int) {
                   for (int i = 0; i < count; ++i) step();
               });
    };
    auto const result = medians(
        runs, [&] { return rate([&] { dispatch_sync(queue, [&] { ++value; }); }); },
        [&] {
            return rate([&] {
                std::lock_guard const hold(mutex);
                ++value;
            });
        });
    report.add({.group = "sync",
                .row = row,
                .unit = "M/s",
                .ours = result.ours,
                .peer = "std::mutex",
                .theirs = result.theirs,
                .target = 0.45,
                .better = Better::Larger});
}

void burn(std::chrono::nanoseconds time) {
    for (auto const end = Clock::now() + time; Clock::now() < end;) {
    }
}

struct Thinking {
    double thousandsPerSecond;
    double p99; // microseconds
};

/// A microsecond inside, a microsecond outside, two threads.
template <class Step> Thinking think(Step const& step) {
    constexpr int count = 60'000;
    std::vector<double> waits[2];
    double const seconds = secondsOnThreads(2, [&](int thread) {
        auto& mine = waits[thread];
        mine.reserve(count);
        for (int i = 0; i < count; ++i) {
            auto const start = Clock::now();
            step([] { burn(std::chrono::microseconds{1}); });
            mine.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count() - 1);
            burn(std::chrono::microseconds{1});
        }
    });
    auto& all = waits[0];
    all.insert(all.end(), waits[1].begin(), waits[1].end());
    auto const at = all.begin() + static_cast<std::ptrdiff_t>(all.size() * 99 / 100);
    std::nth_element(all.begin(), at, all.end());
    return {2 * count / seconds / 1e3, *at};
}

void thinking(Report& report) {
    if (!report.wants("sync", "1 us work, 1 us think, 2 threads")) return;
    auto const queue = dispatch_queue_create("bench", DISPATCH_QUEUE_SERIAL);
    std::mutex mutex;
    double ourWait = 0;
    double theirWait = 0;
    auto const result = medians(
        runs,
        [&] {
            auto const one = think([&](auto const& work) { dispatch_sync(queue, work); });
            ourWait = one.p99;
            return one.thousandsPerSecond;
        },
        [&] {
            auto const one = think([&](auto const& work) {
                std::lock_guard const hold(mutex);
                work();
            });
            theirWait = one.p99;
            return one.thousandsPerSecond;
        });
    report.add({.group = "sync",
                .row = "1 us work, 1 us think, 2 threads",
                .unit = "k/s",
                .ours = result.ours,
                .peer = "std::mutex",
                .theirs = result.theirs,
                .target = 0.86,
                .better = Better::Larger});
    report.add({.group = "sync",
                .row = "1 us work, 1 us think, 99% wait",
                .unit = "us",
                .ours = ourWait,
                .peer = "std::mutex",
                .theirs = theirWait});
}

constexpr std::chrono::microseconds held{20};

struct Beside {
    std::vector<double> waits; // in held times
    double thousandsPerSecond;
};

/// A thread that comes now and then beside four that never stop: each holds what `step` guards for 20 microseconds.
template <class Step> Beside besideFour(Step const& step) {
    Beside result;
    std::atomic<bool> enough = false;
    std::atomic<long> sections = 0;
    double const seconds = secondsOnThreads(5, [&](int thread) {
        long own = 0;
        for (; thread > 0 && !enough; ++own) step([] { burn(held); });
        sections += own;
        for (int i = 0; thread == 0 && i < 500; ++i) {
            std::this_thread::sleep_for(10 * held);
            auto const start = Clock::now();
            step([&] {
                result.waits.push_back(std::chrono::duration<double>(Clock::now() - start) / held);
                burn(held);
            });
        }
        if (thread == 0) enough = true;
    });
    std::ranges::sort(result.waits);
    result.thousandsPerSecond = static_cast<double>(sections) / seconds / 1e3;
    return result;
}

void latency(Report& report) {
    if (!report.wants("sync", "wait beside 4 threads of 20 us")) return;
    auto const queue = dispatch_queue_create("bench", DISPATCH_QUEUE_SERIAL);
    std::mutex mutex;
    std::vector<double> halves, longest;
    auto const result = medians(
        runs,
        [&] {
            auto const one = besideFour([&](auto const& work) { dispatch_sync(queue, work); });
            halves.push_back(one.waits[one.waits.size() / 2]);
            longest.push_back(one.waits[one.waits.size() * 99 / 100]);
            return one.thousandsPerSecond;
        },
        [&] {
            return besideFour([&](auto const& work) {
                       std::lock_guard const hold(mutex);
                       work();
                   }).thousandsPerSecond;
        });
    for (auto* const each : {&halves, &longest}) std::ranges::sort(*each);
    auto const middle = halves.size() / 2;
    report.add({.group = "sync",
                .row = "wait beside 4 threads of 20 us, half",
                .unit = "held times",
                .ours = halves[middle],
                .target = 8,
                .bound = Bound::Ours});
    report.add({.group = "sync",
                .row = "wait beside 4 threads of 20 us, 99%",
                .unit = "held times",
                .ours = longest[middle],
                .target = 15,
                .bound = Bound::Ours});
    report.add({.group = "sync",
                .row = "what the four do meanwhile",
                .unit = "k/s",
                .ours = result.ours,
                .peer = "std::mutex",
                .theirs = result.theirs,
                .target = 0.8,
                .better = Better::Larger});
}

} // namespace

void benchSync(Report& report) {
    uncontended(report);
    for (int const threads : {2, 4, 8}) contended(report, threads);
    thinking(report);
    latency(report);
}

} // namespace Tessarin::benchmarks
