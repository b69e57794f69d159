#pragma once
#include "benchmarks/support/Report.h"

namespace Tessarin::benchmarks {

void benchAsynchronousFetch(Report& report);
void benchUndoing(Report& report);
void benchLiveLists(Report& report);
void benchTypedAccess(Report& report);

} // namespace Tessarin::benchmarks
