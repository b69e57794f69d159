#pragma once
#include "benchmarks/support/Report.h"

#include <functional>
#include <thread>
#include <vector>

namespace Tessarin::benchmarks {

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

/// Nanoseconds of one call, the mean of `count`.
template <class Work> double nanoseconds(int count, Work const& work) {
    return secondsOf([&] {
               for (int i = 0; i < count; ++i) work();
           }) /
           count * 1e9;
}

} // namespace Tessarin::benchmarks
