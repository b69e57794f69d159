#include "Tessarin/platform/queues/Queue.h"

#include "Tessarin/platform/queues/DispatchTime.h"
#include "Tessarin/platform/queues/engine/Pool.h"
#include "Tessarin/platform/queues/engine/Required.h"
#include "Tessarin/platform/queues/engine/Thread.h"
#include "Tessarin/platform/queues/engine/Timekeeper.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include <string>

namespace Tessarin {

using namespace engine;

void engine::refuseNull(char const* operation) { fatal(std::string{operation} + ": called without an object"); }

void retainObject(DispatchQueue& queue) noexcept { queue.retain(); }
void releaseObject(DispatchQueue& queue) noexcept { queue.release(); }

dispatch_queue_attr_t dispatch_queue_attr_make_with_qos_class(dispatch_queue_attr_t attribute, qos_class_t qualityOfService,
                                                              int) {
    if (qualityOfService == QOS_CLASS_UNSPECIFIED || globalQueue(qualityOfService)) attribute.qualityOfService = qualityOfService;
    return attribute;
}

dispatch_queue_t dispatch_get_global_queue(std::intptr_t identifier, std::uintptr_t flags) {
    return flags == 0 ? dispatch_queue_t{globalQueue(identifier)} : nullptr;
}

char const* dispatch_queue_get_label(dispatch_queue_t const& queue) {
    auto const* const asked = queue ? queue.get() : currentQueue();
    return asked ? asked->label() : "";
}

void dispatch_async(dispatch_queue_t const& queue, Closure<void()> work) {
    required(queue, __func__).submit(newItem(std::move(work)));
}
void dispatch_async_f(dispatch_queue_t const& queue, void* context, dispatch_function_t work) {
    required(queue, __func__).submit(newItem([=] { work(context); }));
}

void dispatch_sync(dispatch_queue_t const& queue, FunctionRef<void()> work) {
    auto& wanted = required(queue, __func__);
    syncOn(wanted, plainAccess(wanted), work);
}
void dispatch_sync_f(dispatch_queue_t const& queue, void* context, dispatch_function_t work) {
    dispatch_sync(queue, [&] { work(context); });
}

void dispatch_barrier_async(dispatch_queue_t const& queue, Closure<void()> work) {
    required(queue, __func__).submit(newItem(std::move(work), ItemKind::Barrier));
}
void dispatch_barrier_async_f(dispatch_queue_t const& queue, void* context, dispatch_function_t work) {
    dispatch_barrier_async(queue, [=] { work(context); });
}

void dispatch_barrier_sync(dispatch_queue_t const& queue, FunctionRef<void()> work) {
    syncOn(required(queue, __func__), Access::Exclusive, work);
}
void dispatch_barrier_sync_f(dispatch_queue_t const& queue, void* context, dispatch_function_t work) {
    dispatch_barrier_sync(queue, [&] { work(context); });
}

void dispatch_after(dispatch_time_t when, dispatch_queue_t const& queue, Closure<void()> work) {
    auto& wanted = required(queue, __func__);
    auto const deadline = deadlineOf(when);
    if (deadline == never) return;
    if (deadline <= monotonicNow()) return wanted.submit(newItem(std::move(work)));
    wanted.retain();
    submitAt(deadline, wanted, newItem(std::move(work)));
}
void dispatch_after_f(dispatch_time_t when, dispatch_queue_t const& queue, void* context, dispatch_function_t work) {
    dispatch_after(when, queue, [=] { work(context); });
}

bool queueIsIdle(dispatch_queue_t const& queue) { return required(queue, __func__).isIdle(); }

void dispatch_suspend(dispatch_queue_t const& queue) { required(queue, __func__).suspend(); }
void dispatch_resume(dispatch_queue_t const& queue) { required(queue, __func__).resume(); }
void dispatch_set_target_queue(dispatch_queue_t const& queue, dispatch_queue_t const& target) {
    required(queue, __func__).setTarget(target ? *target : defaultGlobalQueue());
}

void dispatch_queue_set_specific(dispatch_queue_t const& queue, void const* key, void* value, dispatch_function_t destructor) {
    required(queue, __func__).setSpecific(key, value, destructor);
}
void* dispatch_queue_get_specific(dispatch_queue_t const& queue, void const* key) {
    return required(queue, __func__).specific(key);
}

void dispatch_set_context(dispatch_queue_t const& queue, void* context) { required(queue, __func__).setContext(context); }
void* dispatch_get_context(dispatch_queue_t const& queue) { return required(queue, __func__).context(); }
void dispatch_set_finalizer_f(dispatch_queue_t const& queue, dispatch_function_t finalizer) {
    required(queue, __func__).setFinalizer(finalizer);
}

} // namespace Tessarin
