#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/dispatch/Awaiting.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/objectgraph/context/FetchedObjects.h"
#include <coroutine>
#include <utility>

namespace Tessarin {

class NSFetchRequest;
class NSManagedObjectContext;

/// What awaiting a fetch gives: the results, or an error and none.
struct FetchResult {
    FetchedObjects objects;
    Ref<NSError> error;
};

/// What `context->fetchAsync(request)` gives, for `co_await` in a Task on the context's queue, where that goes on. The fetch
/// begins when it is awaited; once only. A task that is cancelled gives the fetch up, also inside the store's statement.
///
///     auto const [books, error] = co_await context->fetchAsync(*request);
class TESSARIN_API FetchAwaitable {
public:
    FetchAwaitable(Ref<NSManagedObjectContext> context, Ref<NSFetchRequest const> request)
        : context_(std::move(context)), request_(std::move(request)) {}

    static constexpr bool await_ready() noexcept { return false; }
    template <class Promise> void await_suspend(std::coroutine_handle<Promise> handle) { begin(Coroutine::of(handle)); }
    FetchResult await_resume() { return std::move(result_); }
    template <class T> class Of;

private:
    void begin(Coroutine& coroutine);

    Ref<NSManagedObjectContext> context_;
    Ref<NSFetchRequest const> request_;
    FetchResult result_;
};

/// The same for a typed query's `fetchAsync()`.
template <class T> class FetchAwaitable::Of : public FetchAwaitable {
public:
    struct Result {
        FetchedList<T> list;
        Ref<NSError> error;
    };
    using FetchAwaitable::FetchAwaitable;
    Result await_resume() {
        auto [objects, error] = FetchAwaitable::await_resume();
        return {FetchedList<T>(std::move(objects)), std::move(error)};
    }
};

} // namespace Tessarin
