#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/dispatch/Awaiting.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/Ref.h"
#include <coroutine>
#include <exception>
#include <optional>
#include <type_traits>
#include <utility>

namespace Tessarin {

class ManagedObjectStore;
class NSManagedObjectContext;

namespace detail {
/// As `importBlock`; `ended` is called on the worker's queue when it has saved, or failed to.
TESSARIN_API void runInBackground(ManagedObjectStore& store, Closure<void(Ref<NSManagedObjectContext> const&)> block,
                                  Closure<void()> ended);
TESSARIN_API void dropChanges(NSManagedObjectContext& context);
} // namespace detail

/// What `store->background(work)` gives, for `co_await` in a Task: runs `work` on the queue of a new worker context, saves that
/// as `importBlock` does, and goes on where the task was with what `work` returned. It begins when it is awaited; once only.
///
/// What `work` throws is thrown by the `co_await`, and nothing is saved then. A save that fails prints one line; who wants its
/// error saves in `work` and returns it. Objects of the worker belong to its queue: return values, or identities. A task that is
/// cancelled while it waits for its turn lets `work` be; one that runs already ends first.
///
///     auto const count = co_await store->background([](auto const& context) { return importNotes(context); });
///
/// With a lambda that captures what has a destructor, g++ before 13 wants two lines:
///
///     auto work = store->background([url](auto const& context) { return importNotes(context, url); });
///     auto const count = co_await work;
template <class F, bool MayBeTemporary> class [[nodiscard]] BackgroundWork {
    using Result = std::invoke_result_t<F&, Ref<NSManagedObjectContext> const&>;
    using Kept = std::conditional_t<std::is_void_v<Result>, bool, Result>;
    class Awaiter;

public:
    BackgroundWork(Ref<ManagedObjectStore> store, F work) : store_(std::move(store)), work_(std::move(work)) {}

    Awaiter operator co_await() & { return Awaiter(*this); }
    Awaiter operator co_await() && {
        static_assert(MayBeTemporary,
                      "this compiler destroys the lambda twice: write auto work = …background(…); co_await work;");
        return Awaiter(*this);
    }

private:
    void run(Ref<NSManagedObjectContext> const& context) {
        if constexpr (std::is_void_v<Result>)
            work_(context);
        else
            result_.emplace(work_(context));
    }
    void runCaught(Ref<NSManagedObjectContext> const& context) {
#ifdef __cpp_exceptions
        try {
            run(context);
        } catch (...) {
            exception_ = std::current_exception();
            detail::dropChanges(*context);
        }
#else
        run(context);
#endif
    }

    Ref<ManagedObjectStore> store_;
    F work_;
    std::optional<Kept> result_;
    std::exception_ptr exception_;
};

template <class F, bool MayBeTemporary> class BackgroundWork<F, MayBeTemporary>::Awaiter {
public:
    explicit Awaiter(BackgroundWork& work) noexcept : work_(work) {}

    static constexpr bool await_ready() noexcept { return false; }
    template <class Promise> void await_suspend(std::coroutine_handle<Promise> handle) {
        auto& coroutine = Coroutine::of(handle);
        auto const store = work_.store_; // what is awaited may be gone before the call returns
        if (!coroutine.wait(nullptr)) return coroutine.goOn();
        auto const run = [&work = work_, &coroutine](Ref<NSManagedObjectContext> const& context) {
            if (!coroutine.isCancelled()) work.runCaught(context);
        };
        detail::runInBackground(*store, run, [&coroutine] { coroutine.goOn(); });
    }
    Result await_resume() {
        if (work_.exception_) std::rethrow_exception(std::exchange(work_.exception_, nullptr));
        if constexpr (!std::is_void_v<Result>) return std::move(*work_.result_);
    }

private:
    BackgroundWork& work_;
};

} // namespace Tessarin
