#include "Tessarin/platform/foundation/processes/SubprocessResult.h"

namespace Tessarin {

std::string SubprocessResult::description() const {
    std::string text = "has an unknown status";
    if (exitStatus) text = "ended with status " + std::to_string(*exitStatus);
    if (signal) text = "was ended by signal " + std::to_string(*signal);
    if (isCancelled) text += ", cancelled";
    if (isOutOfTime) text += ", out of time";
    if (error) text += ": " + error->localizedDescription();
    return text;
}

} // namespace Tessarin
