#include "Tessarin/collections/Synchronised.h"

#include "Tessarin/platform/runtime/Fatal.h"

#include <exception>

namespace Tessarin::detail {

void synchronised(dispatch_queue_t const& queue, char const* type, char const* operation, FunctionRef<void()> work) {
    if (!queue) fatal(std::string{type} + "." + operation + ": there is no queue");
    std::exception_ptr thrown;
    dispatch_sync(queue, [&] {
        try {
            work();
        } catch (...) {
            thrown = std::current_exception();
        }
    });
    if (thrown) std::rethrow_exception(std::move(thrown));
}

} // namespace Tessarin::detail
