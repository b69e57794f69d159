#pragma once
#include "Tessarin/dispatch/Awaiting.h"
#include "Tessarin/dispatch/TaskOutcome.h"
#include "Tessarin/platform/runtime/Ref.h"
#include <concepts>
#include <exception>
#include <optional>

namespace Tessarin {

template <class T> class Task;
template <class T, bool MayBeTemporary> class RunningTask;

namespace detail {

template <class T> class TaskPromise;
template <class T> TaskPromise<T>& promiseOf(Coroutine& coroutine) noexcept {
    return std::coroutine_handle<TaskPromise<T>>::from_address(coroutine.frame().address()).promise();
}

/// Waits for another task, which begins here when it has not begun. Where it ends without having waited, nothing waits.
template <class T> struct ResultOf {
    Coroutine& task;
    bool await_ready() {
        task.begin();
        return task.isDone() && !task.wasEnded();
    }
    template <class Promise> bool await_suspend(std::coroutine_handle<Promise> handle) {
        return Coroutine::of(handle).waitForEndOf(task, Coroutine::OfEnded::EndsToo);
    }
    T await_resume() { return promiseOf<T>(task).takeOutcome().take(); }
};
/// The same, but told also when the task was cancelled.
template <class T> struct OutcomeOf {
    Coroutine& task;
    bool await_ready() {
        task.begin();
        return task.isDone();
    }
    template <class Promise> bool await_suspend(std::coroutine_handle<Promise> handle) {
        return Coroutine::of(handle).waitForEndOf(task, Coroutine::OfEnded::TellsResult);
    }
    TaskOutcome<T> await_resume() {
        return task.wasEnded() ? TaskOutcome<T>() : promiseOf<T>(task).takeOutcome();
    }
};

/// What the coroutines of all tasks have in common.
class TaskPromiseBase {
public:
    static void* operator new(std::size_t size) { return Coroutine::makeFrame(size); }
    static void operator delete(void* frame) noexcept { Coroutine::freeFrame(frame); }

    struct End {
        static constexpr bool await_ready() noexcept { return false; }
        template <class Promise> void await_suspend(std::coroutine_handle<Promise> handle) noexcept {
            Coroutine::of(handle).finish();
        }
        static constexpr void await_resume() noexcept {}
    };
    static constexpr std::suspend_always initial_suspend() noexcept { return {}; }
    static constexpr End final_suspend() noexcept { return {}; }
    void unhandled_exception() noexcept { exception_ = std::current_exception(); }

protected:
    TaskPromiseBase() = default;
    TaskPromiseBase(TaskPromiseBase const&) = delete;
    TaskPromiseBase& operator=(TaskPromiseBase const&) = delete;
    ~TaskPromiseBase() {
        if (exception_ && !Coroutine::isEndingOne()) std::rethrow_exception(exception_); // unheard: ends the process
    }

    template <class Awaiter> static CancelPoint<Awaiter> point(Coroutine& self, Awaiter&& awaiter) {
        return {self, std::forward<Awaiter>(awaiter)};
    }

    std::exception_ptr exception_;
};

/// What `co_await` may be given in a task.
template <class Derived> class TaskAwaits : public TaskPromiseBase {
public:
    template <class U> auto await_transform(Task<U>& task) { return point(self(), ResultOf<U>{task.coroutine()}); }
    template <class U> auto await_transform(Task<U>&& task) { return point(self(), ResultOf<U>{task.coroutine()}); }
    template <class U, bool MayBeTemporary> auto await_transform(RunningTask<U, MayBeTemporary>&& task) {
        static_assert(MayBeTemporary, "this compiler destroys the lambda twice: write auto task = spawn(…); co_await task;");
        return point(self(), ResultOf<U>{task.coroutine()});
    }
    auto await_transform(dispatch_queue_t const& queue) { return point(self(), Hop{queue}); }
    auto await_transform(Dispatcher const& dispatcher) { return point(self(), Hop{dispatcher.queue()}); }
    template <std::derived_from<Dispatcher> D> auto await_transform(Ref<D> const& dispatcher) {
        return point(self(), Hop{dispatcher->queue()});
    }
    auto await_transform(Delay delay) { return point(self(), Pause{delay.nanoseconds()}); }
    /// Awaitables of other makers, and those of this library's other rooms.
    template <class T>
        requires requires(T&& awaiter) { awaiter.await_ready(); }
    auto await_transform(T&& awaiter) {
        return point<T&>(self(), awaiter);
    }
    template <HasMemberAwait T> auto await_transform(T&& awaited) {
        return point(self(), std::forward<T>(awaited).operator co_await());
    }
    template <HasFreeAwait T> auto await_transform(T&& awaited) {
        return point(self(), operator co_await(std::forward<T>(awaited)));
    }

protected:
    Coroutine& self() noexcept {
        return Coroutine::of(std::coroutine_handle<Derived>::from_promise(static_cast<Derived&>(*this)));
    }
};

template <class T> class TaskPromise : public TaskAwaits<TaskPromise<T>> {
public:
    Task<T> get_return_object() noexcept { return Task<T>(this->self()); }
    template <std::convertible_to<T> U> void return_value(U&& result) { result_.emplace(std::forward<U>(result)); }
    TaskOutcome<T> takeOutcome() {
        if (this->exception_) return TaskOutcome<T>(std::exchange(this->exception_, nullptr));
        if (!result_) fatal("Task: its result was taken already");
        TaskOutcome<T> outcome(std::move(result_));
        result_.reset();
        return outcome;
    }

private:
    std::optional<T> result_;
};

template <> class TaskPromise<void> : public TaskAwaits<TaskPromise<void>> {
public:
    Task<void> get_return_object() noexcept;
    static constexpr void return_void() noexcept {}
    TaskOutcome<void> takeOutcome() {
        return exception_ ? TaskOutcome<void>(std::exchange(exception_, nullptr)) : TaskOutcome<void>(std::in_place);
    }
};

} // namespace detail
} // namespace Tessarin
