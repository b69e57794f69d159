#pragma once
#include "benchmarks/support/Report.h"
#include "benchmarks/support/Threads.h"

#include <cstddef>

namespace Tessarin::benchmarks {

void benchSync(Report& report);
void benchAsync(Report& report);
void benchHops(Report& report);
void benchCoroutines(Report& report);
void benchTimers(Report& report);
void benchCosts(Report& report);

/// Allocations by operator new so far, of the whole process.
std::size_t allocations();

constexpr int runs = 5;

} // namespace Tessarin::benchmarks
