#include "Tessarin/platform/queues/QueueChecks.h"

#include <cstdlib>
#include <string_view>

namespace Tessarin {
namespace {

bool isAskedFor() noexcept {
    auto const* const text = ::secure_getenv("TESSARIN_CHECK_QUEUES");
    return text && *text && std::string_view(text) != "0";
}

} // namespace

std::atomic<bool> detail::queueChecks = isAskedFor();

void setChecksQueues(bool checks) noexcept { detail::queueChecks.store(checks, std::memory_order_relaxed); }

} // namespace Tessarin
