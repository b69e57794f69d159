#pragma once
#include "Tessarin/platform/queues/DispatchTime.h"

namespace Tessarin {

class DispatchSource;
TESSARIN_API void retainObject(DispatchSource& source) noexcept;
TESSARIN_API void releaseObject(DispatchSource& source) noexcept;
using dispatch_source_t = Retained<DispatchSource>;

/// What a source watches: the clock.
enum class dispatch_source_type_t { Timer };
inline constexpr auto DISPATCH_SOURCE_TYPE_TIMER = dispatch_source_type_t::Timer;

/// A timer that can be set anew, repeats and can be cancelled; its handlers run on `queue`, never two at a time whatever the
/// queue. It is made suspended: set it up, then dispatch_activate. `handle` and `mask` are 0 for timers. When its last reference
/// goes it is cancelled. All operations may be called from any thread, also inside the handlers.
TESSARIN_API dispatch_source_t dispatch_source_create(dispatch_source_type_t type, std::uintptr_t handle, std::uintptr_t mask,
                                                      dispatch_queue_t const& queue);
/// Fires at `start`, then every `interval` nanoseconds (0 or DISPATCH_TIME_FOREVER: once only), counted from `start`, so that
/// lateness does not add up. Never early; at most about `leeway` nanoseconds later than it might, so that timers share wake-ups.
/// Replaces what was set before, and forgets what is due by it. A start on the wall clock is read now: setting the clock
/// afterwards moves nothing.
TESSARIN_API void dispatch_source_set_timer(dispatch_source_t const& source, dispatch_time_t start, std::uint64_t interval,
                                            std::uint64_t leeway);
/// What happens each time. While it runs, or the source or its queue is suspended, rounds are missed rather than made up for.
TESSARIN_API void dispatch_source_set_event_handler(dispatch_source_t const& source, Closure<void()> handler);
/// Runs once after dispatch_source_cancel, when no event handler runs any more or will: the place to give back what the event
/// handler uses.
TESSARIN_API void dispatch_source_set_cancel_handler(dispatch_source_t const& source, Closure<void()> handler);
/// Inside the event handler: how many rounds it stands for, 1 and those that were missed before it.
TESSARIN_API std::uintptr_t dispatch_source_get_data(dispatch_source_t const& source);

/// No event handler starts after this, but one that runs ends. Then the handlers are destroyed on the queue. Once is enough.
TESSARIN_API void dispatch_source_cancel(dispatch_source_t const& source);
/// Other than 0 once it is cancelled.
TESSARIN_API std::intptr_t dispatch_source_testcancel(dispatch_source_t const& source);

/// Starts a new source; once only.
TESSARIN_API void dispatch_activate(dispatch_source_t const& source);
/// Counted, like those of queues. What falls due meanwhile fires at the last resume. Resuming a source that is not suspended is
/// fatal.
TESSARIN_API void dispatch_suspend(dispatch_source_t const& source);
TESSARIN_API void dispatch_resume(dispatch_source_t const& source);

} // namespace Tessarin
