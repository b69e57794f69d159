#include "benchmarks/queues/Groups.h"

#include "Tessarin/platform/queues/Dispatch.h"
#include <algorithm>
#include <ctime>

namespace Tessarin::benchmarks {
namespace {

double processorSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

} // namespace

/// 100,000 timers that come due within one second.
void benchTimers(Report& report) {
    if (!report.wants("timers", "100,000 in a second")) return;
    constexpr int count = 100'000;
    auto const queue = dispatch_queue_create("bench", DISPATCH_QUEUE_SERIAL);
    auto const done = dispatch_semaphore_create(0);
    std::vector<double> late;
    late.reserve(count);
    double const before = processorSeconds();
    for (std::uint64_t i = 0; i < count; ++i) {
        auto const nanoseconds = static_cast<std::int64_t>(100'000'000 + i * 7919 % count * 10'000);
        auto const when = dispatch_time(DISPATCH_TIME_NOW, nanoseconds);
        dispatch_after(when, queue, [&late, when] { late.push_back(static_cast<double>(dispatch_time(DISPATCH_TIME_NOW, 0) - when) / 1e6); });
    }
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, 1'200'000'000), queue, [&] { dispatch_semaphore_signal(done); });
    dispatch_semaphore_wait(done, DISPATCH_TIME_FOREVER);
    report.add({.group = "timers", .row = "100,000 in a second, processor time", .unit = "s", .ours = processorSeconds() - before, .target = 0.5});
    auto const at = late.begin() + static_cast<std::ptrdiff_t>(late.size() * 99 / 100);
    std::nth_element(late.begin(), at, late.end());
    report.add({.group = "timers", .row = "100,000 in a second, 99% are late by", .unit = "ms", .ours = *at, .target = 0.1});
}

} // namespace Tessarin::benchmarks
