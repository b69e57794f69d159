#pragma once
#include "benchmarks/support/Report.h"
#include "benchmarks/support/Threads.h"
#include <cstddef>
#include <sys/resource.h>

namespace Tessarin::benchmarks {

constexpr int runs = 7;

/// Seconds that this process and the children it has reaped kept a processor busy so far.
inline double processorSeconds() {
    double seconds = 0;
    for (auto const who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage use{};
        getrusage(who, &use);
        for (auto const& time : {use.ru_utime, use.ru_stime})
            seconds += static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    }
    return seconds;
}

/// Runs a program so many times, one after the other, from the start until its end and its output are known.
using RunMany = void (*)(char const* program, int count);
RunMany qtPeer();   // QProcess; null where it is not installed
RunMany glibPeer(); // GSubprocess

void benchHexadecimal(Report& report);
void benchSubprocesses(Report& report);
void benchTimers(Report& report);

} // namespace Tessarin::benchmarks
