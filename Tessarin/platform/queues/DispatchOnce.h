#pragma once
#include "Tessarin/platform/queues/Retained.h"
#include "Tessarin/platform/runtime/FunctionRef.h"

namespace Tessarin {

/// 0 before, and then the engine's. Must be static, and is never set back.
using dispatch_once_t = long;

TESSARIN_API void dispatch_once_slow(dispatch_once_t* token, FunctionRef<void()> work);

/// Runs the work once per token; every other caller returns when it has run. Fatal inside the work of the same token.
inline void dispatch_once(dispatch_once_t* token, FunctionRef<void()> work) {
    if (__atomic_load_n(token, __ATOMIC_ACQUIRE) != -1) dispatch_once_slow(token, work);
}
inline void dispatch_once_f(dispatch_once_t* token, void* context, dispatch_function_t work) {
    dispatch_once(token, [&] { work(context); });
}

} // namespace Tessarin
