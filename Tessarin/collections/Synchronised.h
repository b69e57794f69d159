#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/queues/Queue.h"
#include "Tessarin/platform/runtime/Text.h"
#include <exception>
#include <string>
#include <type_traits>
#include <utility>

namespace Tessarin::detail {

[[noreturn]] TESSARIN_API void noQueue(char const* type, char const* operation);

/// Runs `work` on the queue of a collection. What it throws reaches the caller, as it would without the queue. Fatal, with the
/// names of type and operation, when there is no queue.
template <class Work>
void synchronised(dispatch_queue_t const& queue, char const* type, char const* operation, Work const& work) {
    if (!queue) [[unlikely]]
        noQueue(type, operation);
#ifdef __cpp_exceptions
    std::exception_ptr thrown;
    dispatch_sync(queue, [&] {
        try {
            work();
        } catch (...) {
            thrown = std::current_exception();
        }
    });
    if (thrown) [[unlikely]]
        std::rethrow_exception(std::move(thrown));
#else
    dispatch_sync(queue, [&] { work(); });
#endif
}

/// Destroys an element that has left a collection inside an item of the collection's queue: elsewhere, for its destructor may ask
/// the collection something, and would wait for that very item.
template <class T> void destroyOffQueue(T gone) {
    if constexpr (!std::is_trivially_destructible_v<T> && !std::is_same_v<T, std::string> && !std::is_same_v<T, Text>)
        dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), [gone = std::move(gone)] {});
}

} // namespace Tessarin::detail
