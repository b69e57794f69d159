#pragma once
#include <string_view>

namespace Tessarin::campaigns {

/// Prints what a trial does, step by step, when that was asked for (`--trace`).
void trace(std::string_view line);
void traceFromNowOn();

} // namespace Tessarin::campaigns
