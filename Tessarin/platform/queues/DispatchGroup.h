#pragma once
#include "Tessarin/platform/queues/DispatchTime.h"

namespace Tessarin {

/// Counts work under way; may be used again when it has become empty. A group that is not empty stays alive.
TESSARIN_API dispatch_group_t dispatch_group_create();
TESSARIN_API void dispatch_group_enter(dispatch_group_t const& group);
/// Fatal without an enter before it.
TESSARIN_API void dispatch_group_leave(dispatch_group_t const& group);
/// Enter, `dispatch_async`, and leave when the work has run.
TESSARIN_API void dispatch_group_async(dispatch_group_t const& group, dispatch_queue_t const& queue, Closure<void()> work);
TESSARIN_API void dispatch_group_async_f(dispatch_group_t const& group, dispatch_queue_t const& queue, void* context,
                                         dispatch_function_t work);
/// Submits the work once, the next time the group is empty: at once when it is now.
TESSARIN_API void dispatch_group_notify(dispatch_group_t const& group, dispatch_queue_t const& queue, Closure<void()> work);
TESSARIN_API void dispatch_group_notify_f(dispatch_group_t const& group, dispatch_queue_t const& queue, void* context,
                                          dispatch_function_t work);
/// Waits until the group has been empty. 0, or another number when it was not in time.
TESSARIN_API std::intptr_t dispatch_group_wait(dispatch_group_t const& group, dispatch_time_t timeout);

} // namespace Tessarin
