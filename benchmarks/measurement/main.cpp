// What it costs to measure: a timing's own operations, beside reading the clock, which is the least that any of them does.
#include "Tessarin/measurement/Timing.h"
#include "benchmarks/support/Threads.h"

#include <chrono>

namespace Tessarin::benchmarks {
namespace {

constexpr int runs = 9;
constexpr int count = 20'000;

double readClock() {
    return nanoseconds(count, [] {
        auto now = std::chrono::system_clock::now();
        touch(now);
    });
}

/// `measured` times its calls; what they left to the timing queue is waited for between two runs.
void add(Report& report, char const* row, FunctionRef<double()> measured) {
    if (!report.wants("timing", row)) return;
    auto const ours = [&] {
        auto const result = measured();
        dispatch_sync(Timing::queue(), [] {});
        return result;
    };
    auto const result = medians(runs, ours, readClock);
    report.add(
        {.group = "timing", .row = row, .unit = "ns", .ours = result.ours, .peer = "reading the clock", .theirs = result.theirs});
}

} // namespace
} // namespace Tessarin::benchmarks

int main(int argc, char** argv) {
    using namespace Tessarin;
    using namespace Tessarin::benchmarks;
    Report report(argc, argv);
    add(report, "make and stop", [] { return nanoseconds(count, [] { make<Timing>("load", __FILE__)->stop(); }); });
    add(report, "start and stop, registered", [] { return nanoseconds(count, [] { Timing::start("load", __FILE__)->stop(); }); });
    add(report, "lap", [] {
        auto const timing = make<Timing>("laps", __FILE__);
        return nanoseconds(count, [&] { timing->lap(); });
    });
    add(report, "lap by key", [] {
        Timing::start("by key", __FILE__);
        dispatch_sync(Timing::queue(), [] {});
        return nanoseconds(count, [&] { Timing::type().lap("parsed", "by key"); });
    });
    return report.finish();
}
