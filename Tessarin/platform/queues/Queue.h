#pragma once
#include "Tessarin/platform/queues/Retained.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <cstddef>
#include <cstdint>

/// Dispatch queues. Everything here may be called from any thread, and an exception that leaves a work item ends the process.
/// Without a queue every operation is fatal, but for those that say what null stands for.
///
///     auto queue = dispatch_queue_create("images", DISPATCH_QUEUE_SERIAL);
///     dispatch_async(queue, [=] { decode(); });
///     dispatch_sync(queue, [&] { result = decoded; });
namespace Tessarin {

using qos_class_t = std::uint32_t;
inline constexpr qos_class_t QOS_CLASS_UNSPECIFIED = 0x00;
inline constexpr qos_class_t QOS_CLASS_BACKGROUND = 0x09;
inline constexpr qos_class_t QOS_CLASS_UTILITY = 0x11;
inline constexpr qos_class_t QOS_CLASS_DEFAULT = 0x15;
inline constexpr qos_class_t QOS_CLASS_USER_INITIATED = 0x19;
inline constexpr qos_class_t QOS_CLASS_USER_INTERACTIVE = 0x21;

inline constexpr std::intptr_t DISPATCH_QUEUE_PRIORITY_HIGH = 2;
inline constexpr std::intptr_t DISPATCH_QUEUE_PRIORITY_DEFAULT = 0;
inline constexpr std::intptr_t DISPATCH_QUEUE_PRIORITY_LOW = -2;
inline constexpr std::intptr_t DISPATCH_QUEUE_PRIORITY_BACKGROUND = -32768;

/// How a queue runs its items: one after the other, or side by side between barriers.
struct dispatch_queue_attr_t {
    bool concurrent = false;
    qos_class_t qualityOfService = QOS_CLASS_DEFAULT;
};
inline constexpr dispatch_queue_attr_t DISPATCH_QUEUE_SERIAL{};
inline constexpr dispatch_queue_attr_t DISPATCH_QUEUE_CONCURRENT{.concurrent = true};

/// The same kind of queue over the global queue of another class; an unknown class leaves `attribute` as it is. The relative
/// priority is accepted and ignored.
TESSARIN_API dispatch_queue_attr_t dispatch_queue_attr_make_with_qos_class(dispatch_queue_attr_t attribute,
                                                                           qos_class_t qualityOfService, int relativePriority);

/// A new private queue. The label is copied; null stands for "". Work that was submitted keeps the queue alive.
TESSARIN_API dispatch_queue_t dispatch_queue_create(char const* label, dispatch_queue_attr_t attribute);
/// The queue whose items the process's first thread runs; see MainQueue.h.
TESSARIN_API dispatch_queue_t const& dispatch_get_main_queue();
/// The one global queue of a class, or of one of the four priority numbers; null for any other number or for flags.
TESSARIN_API dispatch_queue_t dispatch_get_global_queue(std::intptr_t identifier, std::uintptr_t flags);
/// The label for as long as the queue lives; "" when it has none. A null queue stands for the current one.
TESSARIN_API char const* dispatch_queue_get_label(dispatch_queue_t const& queue);

/// Queues the work and returns. Items of one serial queue run in the order of submission, one at a time.
TESSARIN_API void dispatch_async(dispatch_queue_t const& queue, Closure<void()> work);
TESSARIN_API void dispatch_async_f(dispatch_queue_t const& queue, void* context, dispatch_function_t work);

/// Runs the work and returns when it is done: on the calling thread, but for the main queue and queues that target it, whose
/// work always runs on the main thread. Never overtakes what this thread submitted before. On a queue that this thread
/// already owns it blocks for ever.
TESSARIN_API void dispatch_sync(dispatch_queue_t const& queue, FunctionRef<void()> work);
TESSARIN_API void dispatch_sync_f(dispatch_queue_t const& queue, void* context, dispatch_function_t work);

/// A barrier on a private concurrent queue starts when everything before it has ended and runs alone. On any other queue it is
/// the plain operation.
TESSARIN_API void dispatch_barrier_async(dispatch_queue_t const& queue, Closure<void()> work);
TESSARIN_API void dispatch_barrier_async_f(dispatch_queue_t const& queue, void* context, dispatch_function_t work);
TESSARIN_API void dispatch_barrier_sync(dispatch_queue_t const& queue, FunctionRef<void()> work);
TESSARIN_API void dispatch_barrier_sync_f(dispatch_queue_t const& queue, void* context, dispatch_function_t work);

/// Calls the work for 0 … iterations - 1, side by side where the queue allows it, and returns when all calls have ended. A
/// null queue stands for the default global queue. On a queue that this thread holds the calls run here, one by one.
TESSARIN_API void dispatch_apply(std::size_t iterations, dispatch_queue_t const& queue, FunctionRef<void(std::size_t)> work);
TESSARIN_API void dispatch_apply_f(std::size_t iterations, dispatch_queue_t const& queue, void* context,
                                   void (*work)(void*, std::size_t));

/// Suspends before the next item; items that run already go on. Counted: as many resumes bring the queue back. Resuming a
/// queue that is not suspended is fatal, and so is releasing the last reference to one that is. Global queues ignore both.
TESSARIN_API void dispatch_suspend(dispatch_queue_t const& queue);
TESSARIN_API void dispatch_resume(dispatch_queue_t const& queue);

/// Makes the queue's items run on `target`, from the next item that starts; null stands for the default global queue. Fatal for
/// the main queue, for a global one, and when it would close a circle: until a busy queue has come to the change, its old target
/// and the new one both count. Costs at most a look at each queue above `target`.
TESSARIN_API void dispatch_set_target_queue(dispatch_queue_t const& queue, dispatch_queue_t const& target);

/// Keeps `value` under a key, which is compared by address; null removes it. The destructor, if any, gets a value that was
/// replaced, removed or left in a queue that died, on the default global queue.
TESSARIN_API void dispatch_queue_set_specific(dispatch_queue_t const& queue, void const* key, void* value,
                                              dispatch_function_t destructor);
/// The queue's own value, null without one.
TESSARIN_API void* dispatch_queue_get_specific(dispatch_queue_t const& queue, void const* key);
/// The value of the current queue, else of the nearest queue along its targets. A nested sync hides the caller's queue. On the
/// main thread outside any item the main queue is the current one; another thread outside any item has none.
TESSARIN_API void* dispatch_get_specific(void const* key);

/// The context belongs to the user. The finalizer gets it on the queue's target when the queue dies, unless it is null.
TESSARIN_API void dispatch_set_context(dispatch_queue_t const& queue, void* context);
TESSARIN_API void* dispatch_get_context(dispatch_queue_t const& queue);
TESSARIN_API void dispatch_set_finalizer_f(dispatch_queue_t const& queue, dispatch_function_t finalizer);

/// Whether the calling thread holds the queue: it runs an item of the queue, or of one that targets it, anywhere in its chain of
/// nested syncs. The main thread always holds the main queue, also inside a sync to another one. To wait for a queue that is
/// held is to wait for ever, so ask this before `dispatch_sync` where it may happen.
TESSARIN_API bool queueIsHeld(dispatch_queue_t const& queue);
/// Whether at this moment nothing is queued there, runs there or waits for it.
TESSARIN_API bool queueIsIdle(dispatch_queue_t const& queue);

} // namespace Tessarin
