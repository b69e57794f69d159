// A lambda that captures something with a destructor, inside a `co_await`: refused where the compiler would destroy it twice.
#include "Tessarin/dispatch/Task.h"
#include <memory>

using namespace Tessarin;

Task<int> sum(std::shared_ptr<int> number) {
#ifdef REFUSED
    co_return co_await spawn([number]() -> Task<int> { co_return *number; });
#else
    auto task = spawn([number]() -> Task<int> { co_return *number; });
    co_return co_await task + co_await spawn([&number]() -> Task<int> { co_return *number; });
#endif
}
