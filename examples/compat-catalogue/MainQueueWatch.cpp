#include "MainQueueWatch.h"

#include "Tessarin/platform/queues/DispatchMain.h"
#include <algorithm>
#include <chrono>
#include <poll.h>

namespace Catalogue {

void MainQueueWatch::serveUntil(bool const& isDone) {
    using Clock = std::chrono::steady_clock;
    while (!isDone) {
        pollfd waiting{.fd = Tessarin::mainQueueDescriptor(), .events = POLLIN, .revents = 0};
        poll(&waiting, 1, -1);
        auto const start = Clock::now();
        Tessarin::drainMainQueue();
        longest_ = std::max(longest_, std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    }
}

} // namespace Catalogue
