#pragma once
#include "benchmarks/store/Contender.h"
#include "benchmarks/support/Report.h"

namespace Tessarin::benchmarks {

inline Reading readingOf(Cost const& cost, std::uint64_t checksum, int times = 1) {
    return {cost.processor * 1000 / times, checksum, cost.wall * 1000 / times};
}

/// Of work that returns its own checksum.
Reading timedInMs(auto&& work) {
    std::uint64_t checksum = 0;
    auto const cost = costOf([&] { checksum = work(); });
    return readingOf(cost, checksum);
}
/// The same, repeated; the checksum is of the last time.
Reading meanInMs(auto&& work) {
    std::uint64_t checksum = 0;
    auto const cost = costOf([&] {
        for (int i = 0; i < repeats; ++i) checksum = work();
    });
    return readingOf(cost, checksum, repeats);
}

/// Of this process, that are in memory now.
double residentMiB();
inline double residentBytes() { return residentMiB() * (1 << 20); }

} // namespace Tessarin::benchmarks
