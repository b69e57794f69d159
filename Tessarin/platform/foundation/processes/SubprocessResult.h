#pragma once
#include "Tessarin/platform/foundation/processes/SubprocessStreams.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include <optional>
#include <string>
#include <string_view>

namespace Tessarin {

/// How a subprocess ended, and what it wrote where that was captured.
struct TESSARIN_API SubprocessResult {
    std::optional<int> exitStatus = {}; // 0 to 255, when it ended by itself
    std::optional<int> signal = {};     // the number of the signal that ended it
    bool isCancelled = false;
    bool isOutOfTime = false;
    NSData output = {};
    NSData errors = {};
    /// Why it never ran, or was given up: an errno of NSPOSIXErrorDomain with the system's words. ECHILD: it has ended, but
    /// another part of the application took its status. Null for a subprocess that just ended, whatever its status, and for a
    /// cancelled one that had begun.
    Ref<NSError> error = {};

    /// It ended by itself, in time, with status 0.
    bool isSuccess() const noexcept { return exitStatus == 0 && !error && !isCancelled && !isOutOfTime; }
    std::string_view outputText() const noexcept { return output.text(); }
    std::string_view errorsText() const noexcept { return errors.text(); }
    /// One sentence: "ended with status 2".
    std::string description() const;
};

} // namespace Tessarin
