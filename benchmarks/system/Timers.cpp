#include "Tessarin/platform/queues/Dispatch.h"
#include "Tessarin/system/MainQueueTimer.h"
#include "benchmarks/system/Groups.h"

#include <algorithm>

namespace Tessarin::benchmarks {
namespace {

constexpr int count = 10'000;
using Late = std::vector<double>; // milliseconds

/// Nanoseconds until the timer of that number falls due: as many a second as in the benchmark of the queues.
std::int64_t moment(int number) { return 50'000'000 + std::int64_t{number} * 7919 % count * (100'000'000 / count); }

/// Notes how late a timer is, and ends the loop with the last.
auto noting(Late& late, std::int64_t due) {
    return [&late, due] {
        late.push_back((static_cast<double>(dispatch_time(DISPATCH_TIME_NOW, 0)) - static_cast<double>(due)) / 1e6);
        if (late.size() == count) stopMainLoop();
    };
}

struct Result {
    double seconds, late;
};
template <class SetTimer> Result run(SetTimer const& setTimer) {
    Late late;
    late.reserve(count);
    auto const before = processorSeconds();
    for (int number = 0; number < count; ++number) setTimer(late, moment(number));
    runMainLoop();
    auto const seconds = processorSeconds() - before;
    std::ranges::sort(late);
    return {seconds, late[count * 99 / 100]};
}

Result ours() {
    return run([](Late& late, std::int64_t delay) {
        auto const due = static_cast<std::int64_t>(dispatch_time(DISPATCH_TIME_NOW, delay));
        MainQueueTimer::after(static_cast<double>(delay) / 1e9, noting(late, due));
    });
}
Result plain() {
    return run([](Late& late, std::int64_t delay) {
        auto const when = dispatch_time(DISPATCH_TIME_NOW, delay);
        dispatch_after(when, dispatch_get_main_queue(), noting(late, static_cast<std::int64_t>(when)));
    });
}

} // namespace

/// The bars are a tenth of what the queues' benchmark allows 100,000 of its timers, and what it allows each.
void benchTimers(Report& report) {
    if (!report.wants("timers", "10,000 in 100 ms")) return;
    std::vector<double> seconds[2], late[2];
    for (int at = 0; at < 3; ++at) {
        auto const mine = ours(), theirs = plain();
        seconds[0].push_back(mine.seconds), seconds[1].push_back(theirs.seconds);
        late[0].push_back(mine.late), late[1].push_back(theirs.late);
    }
    auto const add = [&](char const* row, char const* unit, auto& values, double target) {
        for (auto& each : values) std::ranges::sort(each);
        report.add({.group = "timers",
                    .row = row,
                    .unit = unit,
                    .ours = values[0][1],
                    .peer = "dispatch_after",
                    .theirs = values[1][1],
                    .target = target,
                    .bound = Bound::Ours});
    };
    add("10,000 in 100 ms, processor time", "s", seconds, 0.05);
    add("10,000 in 100 ms, 99% are late by", "ms", late, 0.1);
}

} // namespace Tessarin::benchmarks
