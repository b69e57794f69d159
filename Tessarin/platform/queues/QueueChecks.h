#pragma once
#include "Tessarin/Export.h"
#include <atomic>

namespace Tessarin {

namespace detail {
extern TESSARIN_API std::atomic<bool> queueChecks;
} // namespace detail

/// Whether wrong threads are looked for. Then every use of a context or of a managed object off its queue is fatal, with both
/// queues and what to call instead; and a sync that can never return, because a queue waits for itself or several wait for one
/// another, is told on standard error after two seconds. On from the start with TESSARIN_CHECK_QUEUES=1 in the environment.
/// Meant for development and tests; switched off it costs one branch.
inline bool queuesAreChecked() noexcept { return detail::queueChecks.load(std::memory_order_relaxed); }
/// Switches it on or off, for what happens from now on. Any thread; best at the beginning of `main`.
TESSARIN_API void setChecksQueues(bool checks) noexcept;

} // namespace Tessarin
