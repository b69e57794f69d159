#pragma once
#include "benchmarks/support/Report.h"

#include <cstddef>
#include <functional>
#include <thread>
#include <vector>

namespace Tessarin::benchmarks {

void benchSync(Report& report);
void benchAsync(Report& report);
void benchHops(Report& report);
void benchTimers(Report& report);
void benchCosts(Report& report);

/// Allocations by operator new so far, of the whole process.
std::size_t allocations();

constexpr int runs = 5;

/// Runs `work(index)` on so many threads, and gives the seconds from the first start to the last end.
inline double secondsOnThreads(int count, std::function<void(int)> const& work) {
    std::vector<std::thread> threads;
    return secondsOf([&] {
        for (int index = 0; index < count; ++index) threads.emplace_back(work, index);
        for (auto& thread : threads) thread.join();
    });
}

/// Keeps the compiler from knowing what a variable holds.
template <class T> void touch(T& value) { asm volatile("" : "+m"(value)); }

} // namespace Tessarin::benchmarks
