#include "benchmarks/queues/Groups.h"

#include "Tessarin/platform/queues/Dispatch.h"
#include "benchmarks/queues/Peers.h"
#include <cmath>

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
    report.add({.group = "costs",
                .row = row,
                .unit = "ns",
                .ours = result.ours,
                .peer = "thread-local",
                .theirs = result.theirs,
                .target = 5}); // 2 ns where the peer takes 0.4
}

/// Heap bytes of each of many.
template <class Make> double bytesOf(int count, Make const& make) {
    auto const before = heapBytes();
    for (int i = 0; i < count; ++i) make();
    return std::round((heapBytes() - before) / count);
}

void bytes(Report& report) {
    if (!report.wants("costs", "bytes")) return;
    constexpr int count = 100'000;
    std::vector<dispatch_queue_t> queues;
    queues.reserve(count);
    double const idle = bytesOf(count, [&] { queues.push_back(dispatch_queue_create(nullptr, DISPATCH_QUEUE_SERIAL)); });
    // Timers first: they stay, so that the items cannot come from their memory.
    auto const queue = dispatch_queue_create("bench", DISPATCH_QUEUE_SERIAL);
    double const timer =
        bytesOf(count, [&] { dispatch_after(dispatch_time(DISPATCH_TIME_NOW, 3'600'000'000'000), queue, [] {}); });
    dispatch_suspend(queue);
    double const item = bytesOf(count, [&] { dispatch_async(queue, [] {}); });
    dispatch_resume(queue);
    dispatch_sync(queue, [] {});

    auto const asio = asioPeer();
    auto const theirs = asio.bytes ? asio.bytes(count) : std::array<double, 3>{};
    auto const add = [&](char const* row, double ours, double other, double target) {
        report.add({.group = "costs",
                    .row = row,
                    .unit = "bytes",
                    .ours = ours,
                    .peer = "Asio",
                    .theirs = std::round(other),
                    .target = target,
                    .bound = Bound::Ours});
    };
    add("bytes of an idle queue", idle, theirs[0], 96);
    add("bytes of a timer", timer, theirs[1], 96);
    add("bytes of a queued item", item, theirs[2], 64);
}

} // namespace

void benchCosts(Report& report) {
    bytes(report); // while no cache is warm
    specific(report, "specific of the current queue", &present);
    specific(report, "specific that nobody has", &absent);
}

} // namespace Tessarin::benchmarks
