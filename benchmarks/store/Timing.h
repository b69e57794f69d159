#pragma once
#include "benchmarks/store/Contender.h"
#include "benchmarks/support/Report.h"

namespace Tessarin::benchmarks {

/// Of work that returns its own checksum.
Reading timedInMs(auto&& work) {
    Reading reading;
    reading.value = secondsOf([&] { reading.checksum = work(); }) * 1000;
    return reading;
}
/// The same, repeated; the checksum is of the last time.
Reading meanInMs(auto&& work) {
    Reading reading;
    reading.value = secondsOf([&] {
                        for (int i = 0; i < repeats; ++i) reading.checksum = work();
                    }) *
                    1000 / repeats;
    return reading;
}

/// MiB of this process that are in memory now.
double residentMiB();

} // namespace Tessarin::benchmarks
