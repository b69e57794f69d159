#pragma once
#include "Tessarin/Export.h"
#include <string_view>

namespace Tessarin {

/// Ends the process: one line on standard error, then abort. For misuse and for what no caller could handle.
[[noreturn]] TESSARIN_API void fatal(std::string_view message);

/// Writes `text` and a line end to standard output in one write, so that a report of several lines is never mixed with
/// the output of another thread. Callable from any thread.
TESSARIN_API void print(std::string_view text);

} // namespace Tessarin
