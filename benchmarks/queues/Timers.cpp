#include "benchmarks/queues/Groups.h"

#include "Tessarin/platform/queues/Dispatch.h"
#include "benchmarks/queues/Peers.h"
#include <algorithm>

namespace Tessarin::benchmarks {
namespace {

std::array<double, 2> ours(int count) {
    auto const queue = dispatch_queue_create("bench", DISPATCH_QUEUE_SERIAL);
    auto const done = dispatch_semaphore_create(0);
    std::vector<double> late;
    late.reserve(static_cast<std::size_t>(count));
    double const before = processorSeconds();
    for (int i = 0; i < count; ++i) {
        auto const when =
            dispatch_time(DISPATCH_TIME_NOW, 100'000'000 + std::int64_t{i} * 7919 % count * (1'000'000'000 / count));
        dispatch_after(when, queue,
                       [&late, when] { late.push_back(static_cast<double>(dispatch_time(DISPATCH_TIME_NOW, 0) - when) / 1e6); });
    }
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, 1'200'000'000), queue, [&] { dispatch_semaphore_signal(done); });
    dispatch_semaphore_wait(done, DISPATCH_TIME_FOREVER);
    return {processorSeconds() - before, percentile99(late)};
}

} // namespace

/// 100,000 timers that come due within one second.
void benchTimers(Report& report) {
    if (!report.wants("timers", "100,000 in a second")) return;
    constexpr int count = 100'000;
    auto const asio = asioPeer();
    std::vector<double> values[4];
    for (int run = 0; run < 3; ++run) {
        auto const mine = ours(count);
        auto const theirs = asio.timers ? asio.timers(count) : std::array<double, 2>{};
        values[0].push_back(mine[0]), values[1].push_back(mine[1]), values[2].push_back(theirs[0]),
            values[3].push_back(theirs[1]);
    }
    for (auto& each : values) std::ranges::sort(each);
    auto const add = [&](char const* row, char const* unit, int at, double target) {
        report.add({.group = "timers",
                    .row = row,
                    .unit = unit,
                    .ours = values[at][1],
                    .peer = "Asio",
                    .theirs = values[at + 2][1],
                    .target = target,
                    .bound = Bound::Ours});
    };
    add("100,000 in a second, processor time", "s", 0, 0.5);
    add("100,000 in a second, 99% are late by", "ms", 1, 0.1);
}

} // namespace Tessarin::benchmarks
