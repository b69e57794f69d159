#include "benchmarks/queues/Groups.h"

#include "Tessarin/platform/queues/Dispatch.h"
#include <cmath>
#include <malloc.h>

namespace Tessarin::benchmarks {
namespace {

char const present = 0;
char const absent = 0;

thread_local int* threadLocal = nullptr;

double threadLocalRead() {
    return nanoseconds(5'000'000, [] {
        auto* const found = threadLocal;
        asm volatile("" : : "r"(found) : "memory");
    });
}

void specific(Report& report, char const* row, void const* key) {
    if (!report.wants("costs", row)) return;
    constexpr int count = 5'000'000;
    auto const queue = dispatch_queue_create("bench", DISPATCH_QUEUE_SERIAL);
    int value = 0;
    dispatch_queue_set_specific(queue, &present, &value, nullptr);
    Medians result{};
    dispatch_sync(queue, [&] {
        result = medians(
            runs,
            [&] {
                return nanoseconds(count, [&] { // the key and the answer are opaque, or the compiler would ask only once
                    auto const* asked = key;
                    asm volatile("" : "+r"(asked));
                    auto* const found = dispatch_get_specific(asked);
                    asm volatile("" : : "r"(found));
                });
            },
            threadLocalRead);
    });
    report.add({.group = "costs", .row = row, .unit = "ns", .ours = result.ours, .peer = "thread-local", .theirs = result.theirs, .target = 2, .bound = Bound::Ours});
}

/// Whole bytes from the heap for each of many.
template <class Make> void bytes(Report& report, char const* row, double target, Make const& make) {
    if (!report.wants("costs", row)) return;
    constexpr int count = 100'000;
    auto const before = mallinfo2();
    for (int i = 0; i < count; ++i) make();
    auto const after = mallinfo2();
    auto const used = static_cast<double>(after.uordblks + after.hblkhd) - static_cast<double>(before.uordblks + before.hblkhd);
    report.add({.group = "costs", .row = row, .unit = "bytes", .ours = std::round(used / count), .target = target});
}

} // namespace

void benchCosts(Report& report) {
    specific(report, "specific of the current queue", &present);
    specific(report, "specific that nobody has", &absent);
    std::vector<dispatch_queue_t> queues;
    queues.reserve(100'000);
    bytes(report, "idle queue", 96, [&] { queues.push_back(dispatch_queue_create(nullptr, DISPATCH_QUEUE_SERIAL)); });
    // Timers first: they stay, so that the items cannot come from their memory.
    auto const queue = dispatch_queue_create("bench", DISPATCH_QUEUE_SERIAL);
    bytes(report, "timer", 96, [&] { dispatch_after(dispatch_time(DISPATCH_TIME_NOW, 3'600'000'000'000), queue, [] {}); });
    dispatch_suspend(queue);
    bytes(report, "queued item", 64, [&] { dispatch_async(queue, [] {}); });
    dispatch_resume(queue);
    dispatch_sync(queue, [] {});
}

} // namespace Tessarin::benchmarks
