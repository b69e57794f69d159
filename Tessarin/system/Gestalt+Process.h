#pragma once
#include "Tessarin/Export.h"
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Tessarin {
class NSDate;
}// namespace Tessarin

/// This process, as it is at the call. What the system does not tell (no /proc in a sandbox) is absent. Any thread.
namespace Tessarin::Gestalt {

/// The name of the program's file.
TESSARIN_API std::string processName();
TESSARIN_API int processIdentifier();
/// Of the main bundle's Info.plist: `CFBundleShortVersionString`, else `CFBundleVersion`.
TESSARIN_API std::optional<std::string> applicationVersion();
/// As the process was started, its own name first; empty when the system does not tell.
TESSARIN_API std::vector<std::string> arguments();
TESSARIN_API std::optional<NSDate> processStartTime();
/// Bytes of memory that it occupies now, and at most so far.
TESSARIN_API std::optional<std::uint64_t> memoryInUse();
TESSARIN_API std::optional<std::uint64_t> peakMemoryInUse();
/// Whether a debugger, or another tracer, is attached.
TESSARIN_API bool isBeingDebugged();

} // namespace Tessarin::Gestalt
