#pragma once
#include "Tessarin/platform/queues/Retained.h"
#include "Tessarin/platform/runtime/Closure.h"
#include <cstdint>
#include <ctime>

namespace Tessarin {

/// A moment: now, never, or a count of nanoseconds on the monotonic or (upper half of the range) the wall clock.
using dispatch_time_t = std::uint64_t;
inline constexpr dispatch_time_t DISPATCH_TIME_NOW = 0;
inline constexpr dispatch_time_t DISPATCH_TIME_FOREVER = ~dispatch_time_t{0};

inline constexpr std::uint64_t NSEC_PER_SEC = 1'000'000'000;
inline constexpr std::uint64_t NSEC_PER_MSEC = 1'000'000;
inline constexpr std::uint64_t USEC_PER_SEC = 1'000'000;
inline constexpr std::uint64_t NSEC_PER_USEC = 1'000;

/// `delta` nanoseconds after `when`; what lies beyond the range is DISPATCH_TIME_FOREVER, what lies before it is past.
TESSARIN_API dispatch_time_t dispatch_time(dispatch_time_t when, std::int64_t delta);
/// The same on the wall clock, from `when` or, without it, from now. The clock is read when the moment is used: setting it
/// afterwards moves no timer.
TESSARIN_API dispatch_time_t dispatch_walltime(timespec const* when, std::int64_t delta);

/// Submits the work at `when`, never early; at once when that is past, never when it is DISPATCH_TIME_FOREVER. Equal moments keep
/// the order of submission. A pending timer keeps the queue alive.
TESSARIN_API void dispatch_after(dispatch_time_t when, dispatch_queue_t const& queue, Closure<void()> work);
TESSARIN_API void dispatch_after_f(dispatch_time_t when, dispatch_queue_t const& queue, void* context, dispatch_function_t work);

} // namespace Tessarin
