#pragma once
#include "Tessarin/platform/queues/Queue.h"

namespace Tessarin {

/// Whether what is submitted to the queue now starts only after this thread has gone on, so that it must not wait for that. So it
/// is on the main thread for the main queue and queues that target it, and wherever the thread holds the queue, or one along its
/// targets, alone: an item of a serial queue or a barrier does, one of several that run side by side does not.
TESSARIN_API bool queueWaitsForThisThread(dispatch_queue_t const& queue);

} // namespace Tessarin
