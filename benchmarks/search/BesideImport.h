#pragma once
#include "benchmarks/support/Report.h"

namespace Tessarin::benchmarks {

/// `ours`, `theirs`: places for new files.
void benchBesideImport(Report& report, std::string const& ours, std::string const& theirs);

} // namespace Tessarin::benchmarks
