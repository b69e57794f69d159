#pragma once
#include "Tessarin/platform/queues/DispatchTime.h"

namespace Tessarin {

/// A counting semaphore; null when `value` is negative, and then the others are fatal. Fatal when it dies with fewer units than
/// it was made with.
TESSARIN_API dispatch_semaphore_t dispatch_semaphore_create(std::intptr_t value);
/// Takes a unit, waiting for one until `timeout`. 0, or another number when there was none in time.
TESSARIN_API std::intptr_t dispatch_semaphore_wait(dispatch_semaphore_t const& semaphore, dispatch_time_t timeout);
/// Gives a unit; tells by another number than 0 that a waiting thread got it.
TESSARIN_API std::intptr_t dispatch_semaphore_signal(dispatch_semaphore_t const& semaphore);

} // namespace Tessarin
