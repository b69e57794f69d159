#pragma once
#include "Tessarin/platform/queues/Retained.h"

namespace Tessarin::engine {

/// Says which operation was called without an object, and ends the process.
[[noreturn]] void refuseNull(char const* operation);

/// The object that an operation is called with; fatal when there is none.
template <class T> T& required(Retained<T> const& object, char const* operation) {
    if (!object) [[unlikely]]
        refuseNull(operation);
    return *object;
}

} // namespace Tessarin::engine
