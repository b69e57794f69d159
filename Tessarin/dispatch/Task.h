#pragma once
#include "Tessarin/dispatch/TaskPromise.h"
#include "Tessarin/platform/runtime/Closure.h"
#include <type_traits>

namespace Tessarin {

/// A coroutine that ends with a T, or with nothing. It begins when it is started or awaited, there and then, and runs up to its
/// first wait as a call would. After a wait it goes on, by an item, on the queue on which it was when it began to wait (the
/// default global queue where it was on none), or on the one that it named: no thread waits, and no number of awaits grows the
/// stack.
///
///     Task<Image> thumbnail(std::string path) {      // arguments by value: the caller's may be gone when it goes on
///         co_await Dispatcher::utility();            // goes on there
///         co_return scaled(path);
///     }
///     Task<> show(Ref<View> view) {
///         view->setImage(co_await thumbnail(view->path())); // back where it was
///         co_await delay(0.5);
///         view->fadeIn();
///     }
///     auto task = show(view);
///     task.start();  …  task.cancel();
///
/// `cancel` has it end at the await where it waits, or at its next one: it does not go on after it, its locals are destroyed, on
/// the queue on which it waits, and then it is done. What it awaits is cancelled, too, and ended first; an end that others must
/// hear belongs into a destructor. Whoever awaits a task that was cancelled is ended in the same way, unless it awaits
/// `outcome()`.
///
/// A task that is dropped goes on by itself; one that was never started goes, with its arguments. An exception passes to whoever
/// awaits. Where the task goes and nobody has heard of it, it ends the process, as one that leaves an item does; what a task that
/// is ended had started, and not awaited yet, may fail unheard.
///
/// Beware of lambdas: captures belong to the lambda, not to the coroutine, so `[this] () -> Task<> { … }()` reads what is gone at
/// the first wait: captures must outlive the coroutine. Hand over arguments by value, or have `spawn` keep the lambda. And g++
/// before 13 destroys what stands in braces in a `co_await` expression twice, option structs as well as lambdas with captures:
/// make the task first, `auto task = f({.a = b});`, then `co_await task`. What this library offers to be awaited takes plain
/// arguments, or does not compile where it would hurt.
///
/// One thread at a time, but for `cancel` and `isDone`, which any thread may call.
template <class T = void> class [[nodiscard]] Task {
public:
    using promise_type = detail::TaskPromise<T>;

    /// No task: everything but `cancel` is fatal.
    Task() = default;
    Task(Task&&) noexcept = default;
    Task& operator=(Task&&) noexcept = default;

    explicit operator bool() const noexcept { return bool(coroutine_); }
    /// Begins it here. Nothing when it has begun.
    void start() { coroutine().begin(); }
    /// The same, and tells how it ended: once, by an item of the queue on which this is called (the default global one on a plain
    /// thread), so never before this returns. Takes the result: nobody else may await it.
    void start(Closure<void(TaskOutcome<T>)> completion) {
        start();
        tell(Task(*this, Shared{}), std::move(completion)).start();
    }
    void cancel() noexcept {
        if (coroutine_) coroutine_->cancel();
    }
    /// Whether it has ended, in whatever way.
    bool isDone() const { return coroutine().isDone(); }
    /// `co_await task.outcome()` tells also when it was cancelled; `co_await task` gives the result, once.
    detail::OutcomeOf<T> outcome() const { return {coroutine()}; }

    Coroutine& coroutine() const {
        if (!coroutine_) fatal("Task: there is none");
        return *coroutine_;
    }

private:
    friend promise_type;
    struct Shared {};
    explicit Task(Coroutine& made) noexcept : coroutine_(Retained<Coroutine>::adopt(&made)) { made.isMade(); }
    Task(Task const& other, Shared) noexcept : coroutine_(other.coroutine_) {}

    static Task<void> tell(Task task, Closure<void(TaskOutcome<T>)> completion) {
        co_await detail::NextTurn();
        auto outcome = co_await task.outcome();
        task = Task(); // what it held is gone when that is told, unless somebody keeps it
        completion(std::move(outcome));
    }

    Retained<Coroutine> coroutine_;
};

/// A task that has begun, and may be dropped. `MayBeTemporary`: `co_await` may have it from the call that made it.
template <class T, bool MayBeTemporary> class RunningTask : public Task<T> {
public:
    explicit RunningTask(Task<T> task) : Task<T>(std::move(task)) { this->start(); }
};

namespace detail {
inline Task<void> TaskPromise<void>::get_return_object() noexcept { return Task<void>(self()); }

template <class F, class... Arguments> std::invoke_result_t<F&, Arguments...> kept(F function, Arguments... arguments) {
    co_return co_await function(std::move(arguments)...);
}
template <bool MayBeTemporary, class T> RunningTask<T, MayBeTemporary> running(Task<T> task) {
    return RunningTask<T, MayBeTemporary>(std::move(task));
}
} // namespace detail

/// Starts what a function gives, and keeps the function and its arguments until it ends: for lambdas that capture.
///
///     spawn([view]() -> Task<> { co_await delay(1); view->blink(); });
template <class F, class... Arguments> auto spawn(F&& function, Arguments... arguments) {
    using Kept = std::decay_t<F>;
    return detail::running<detail::isSafeInAwait<F>>(
        detail::kept<Kept, Arguments...>(Kept(std::forward<F>(function)), std::move(arguments)...));
}

} // namespace Tessarin
