#pragma once
#include "Tessarin/platform/queues/Dispatch.h"
#include <sys/types.h>

/// The queues under the names, types and global namespace that programs written for the plain C interface expect: pointers that
/// are retained and released by hand, and work as a function with its context. For tests and tools only; it is not installed.
/// Constants are constants, not macros.

using dispatch_queue_t = Tessarin::DispatchQueue*;
using dispatch_group_t = Tessarin::DispatchGroup*;
using dispatch_semaphore_t = Tessarin::DispatchSemaphore*;
using Tessarin::dispatch_function_t;
using Tessarin::dispatch_once_t;
using Tessarin::dispatch_time_t;
using Tessarin::qos_class_t;

using Tessarin::DISPATCH_TIME_FOREVER;
using Tessarin::DISPATCH_TIME_NOW;
using Tessarin::NSEC_PER_MSEC;
using Tessarin::NSEC_PER_SEC;
using Tessarin::NSEC_PER_USEC;
using Tessarin::USEC_PER_SEC;

using Tessarin::QOS_CLASS_BACKGROUND;
using Tessarin::QOS_CLASS_DEFAULT;
using Tessarin::QOS_CLASS_UNSPECIFIED;
using Tessarin::QOS_CLASS_USER_INITIATED;
using Tessarin::QOS_CLASS_USER_INTERACTIVE;
using Tessarin::QOS_CLASS_UTILITY;

using Tessarin::DISPATCH_QUEUE_PRIORITY_BACKGROUND;
using Tessarin::DISPATCH_QUEUE_PRIORITY_DEFAULT;
using Tessarin::DISPATCH_QUEUE_PRIORITY_HIGH;
using Tessarin::DISPATCH_QUEUE_PRIORITY_LOW;

/// Attributes live for ever; null is a serial queue.
using dispatch_queue_attr_t = Tessarin::dispatch_queue_attr_t const*;
inline constexpr dispatch_queue_attr_t DISPATCH_QUEUE_SERIAL = nullptr;
inline constexpr dispatch_queue_attr_t DISPATCH_QUEUE_CONCURRENT = &Tessarin::DISPATCH_QUEUE_CONCURRENT;
inline constexpr dispatch_queue_t DISPATCH_APPLY_AUTO = nullptr;
inline constexpr dispatch_queue_t DISPATCH_TARGET_QUEUE_DEFAULT = nullptr;
inline constexpr dispatch_queue_t DISPATCH_CURRENT_QUEUE_LABEL = nullptr;

/// How the bodies below reach the library: a pointer as a reference for the length of a call, and a new object as a pointer whose
/// reference is the caller's.
namespace compat {
template <class T> Tessarin::Retained<T> borrowed(T* object) { return Tessarin::Retained<T>(object); }
template <class T> T* given(Tessarin::Retained<T> const& object) {
    if (object) retainObject(*object);
    return object.get();
}
/// The main queue and the global ones, for which retain and release do nothing.
inline bool isEternal(dispatch_queue_t queue) {
    if (queue == Tessarin::dispatch_get_main_queue().get()) return true;
    for (auto const qos : {QOS_CLASS_BACKGROUND, QOS_CLASS_UTILITY, QOS_CLASS_DEFAULT, QOS_CLASS_USER_INITIATED, QOS_CLASS_USER_INTERACTIVE})
        if (queue == Tessarin::dispatch_get_global_queue(qos, 0).get()) return true;
    return false;
}
template <class T> bool isEternal(T*) { return false; }
} // namespace compat

template <class T> void dispatch_retain(T* object) { compat::isEternal(object) ? void() : retainObject(*object); }
template <class T> void dispatch_release(T* object) { compat::isEternal(object) ? void() : releaseObject(*object); }

// Queues
inline dispatch_queue_attr_t dispatch_queue_attr_make_with_qos_class(dispatch_queue_attr_t attribute, qos_class_t qos, int relative) {
    auto const made = Tessarin::dispatch_queue_attr_make_with_qos_class(attribute ? *attribute : Tessarin::DISPATCH_QUEUE_SERIAL, qos, relative);
    static Tessarin::dispatch_queue_attr_t table[2][QOS_CLASS_USER_INTERACTIVE + 1];
    auto& entry = table[made.concurrent][made.qualityOfService];
    static dispatch_once_t once[2][QOS_CLASS_USER_INTERACTIVE + 1];
    Tessarin::dispatch_once(&once[made.concurrent][made.qualityOfService], [&] { entry = made; });
    return &entry;
}
inline dispatch_queue_t dispatch_queue_create(char const* label, dispatch_queue_attr_t attribute) {
    return compat::given(Tessarin::dispatch_queue_create(label, attribute ? *attribute : Tessarin::DISPATCH_QUEUE_SERIAL));
}
inline dispatch_queue_t dispatch_get_main_queue() { return Tessarin::dispatch_get_main_queue().get(); }
inline dispatch_queue_t dispatch_get_global_queue(intptr_t identifier, uintptr_t flags) {
    return Tessarin::dispatch_get_global_queue(identifier, flags).get();
}
inline char const* dispatch_queue_get_label(dispatch_queue_t queue) { return Tessarin::dispatch_queue_get_label(compat::borrowed(queue)); }
inline void dispatch_async_f(dispatch_queue_t queue, void* context, dispatch_function_t work) {
    Tessarin::dispatch_async_f(compat::borrowed(queue), context, work);
}
inline void dispatch_sync_f(dispatch_queue_t queue, void* context, dispatch_function_t work) {
    Tessarin::dispatch_sync_f(compat::borrowed(queue), context, work);
}
inline void dispatch_barrier_async_f(dispatch_queue_t queue, void* context, dispatch_function_t work) {
    Tessarin::dispatch_barrier_async_f(compat::borrowed(queue), context, work);
}
inline void dispatch_barrier_sync_f(dispatch_queue_t queue, void* context, dispatch_function_t work) {
    Tessarin::dispatch_barrier_sync_f(compat::borrowed(queue), context, work);
}
inline void dispatch_after_f(dispatch_time_t when, dispatch_queue_t queue, void* context, dispatch_function_t work) {
    Tessarin::dispatch_after_f(when, compat::borrowed(queue), context, work);
}
inline void dispatch_apply_f(size_t iterations, dispatch_queue_t queue, void* context, void (*work)(void*, size_t)) {
    Tessarin::dispatch_apply_f(iterations, compat::borrowed(queue), context, work);
}
inline void dispatch_suspend(dispatch_queue_t queue) { Tessarin::dispatch_suspend(compat::borrowed(queue)); }
inline void dispatch_resume(dispatch_queue_t queue) { Tessarin::dispatch_resume(compat::borrowed(queue)); }
inline void dispatch_set_target_queue(dispatch_queue_t queue, dispatch_queue_t target) {
    Tessarin::dispatch_set_target_queue(compat::borrowed(queue), compat::borrowed(target));
}
inline void dispatch_queue_set_specific(dispatch_queue_t queue, void const* key, void* value, dispatch_function_t destructor) {
    Tessarin::dispatch_queue_set_specific(compat::borrowed(queue), key, value, destructor);
}
inline void* dispatch_queue_get_specific(dispatch_queue_t queue, void const* key) {
    return Tessarin::dispatch_queue_get_specific(compat::borrowed(queue), key);
}
using Tessarin::dispatch_get_specific;
inline void dispatch_set_context(dispatch_queue_t queue, void* context) { Tessarin::dispatch_set_context(compat::borrowed(queue), context); }
inline void* dispatch_get_context(dispatch_queue_t queue) { return Tessarin::dispatch_get_context(compat::borrowed(queue)); }
inline void dispatch_set_finalizer_f(dispatch_queue_t queue, dispatch_function_t finalizer) {
    Tessarin::dispatch_set_finalizer_f(compat::borrowed(queue), finalizer);
}
/// Runs the main queue; the program ends by `exit`.
[[noreturn]] inline void dispatch_main() {
    for (;;) Tessarin::runMainLoop();
}

// Groups, semaphores, time and once
inline dispatch_group_t dispatch_group_create() { return compat::given(Tessarin::dispatch_group_create()); }
inline void dispatch_group_enter(dispatch_group_t group) { Tessarin::dispatch_group_enter(compat::borrowed(group)); }
inline void dispatch_group_leave(dispatch_group_t group) { Tessarin::dispatch_group_leave(compat::borrowed(group)); }
inline void dispatch_group_async_f(dispatch_group_t group, dispatch_queue_t queue, void* context, dispatch_function_t work) {
    Tessarin::dispatch_group_async_f(compat::borrowed(group), compat::borrowed(queue), context, work);
}
inline void dispatch_group_notify_f(dispatch_group_t group, dispatch_queue_t queue, void* context, dispatch_function_t work) {
    Tessarin::dispatch_group_notify_f(compat::borrowed(group), compat::borrowed(queue), context, work);
}
inline intptr_t dispatch_group_wait(dispatch_group_t group, dispatch_time_t timeout) {
    return Tessarin::dispatch_group_wait(compat::borrowed(group), timeout);
}
inline dispatch_semaphore_t dispatch_semaphore_create(intptr_t value) { return compat::given(Tessarin::dispatch_semaphore_create(value)); }
inline intptr_t dispatch_semaphore_wait(dispatch_semaphore_t semaphore, dispatch_time_t timeout) {
    return Tessarin::dispatch_semaphore_wait(compat::borrowed(semaphore), timeout);
}
inline intptr_t dispatch_semaphore_signal(dispatch_semaphore_t semaphore) { return Tessarin::dispatch_semaphore_signal(compat::borrowed(semaphore)); }
using Tessarin::dispatch_once_f;
using Tessarin::dispatch_time;
using Tessarin::dispatch_walltime;
