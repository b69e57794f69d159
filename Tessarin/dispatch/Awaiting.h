#pragma once
#include "Tessarin/dispatch/Dispatcher.h"
#include "Tessarin/platform/queues/Coroutine.h"
#include <coroutine>
#include <cstdint>
#include <type_traits>
#include <utility>

/// What coroutines of Task.h wait for, beside one another: a queue's turn, and time.
namespace Tessarin {

/// What `delay` gives: `co_await delay(0.5)` goes on half a second later, on the queue on which the coroutine is.
class [[nodiscard]] Delay {
public:
    explicit Delay(std::int64_t nanoseconds) noexcept : nanoseconds_(nanoseconds) {}
    std::int64_t nanoseconds() const noexcept { return nanoseconds_; }

private:
    std::int64_t nanoseconds_;
};
/// For `co_await` in a task: seconds, never early; no thread waits. Zero and less let others have their turn. A task that is
/// cancelled ends at once. Fatal as `DispatchMain::wait` is.
TESSARIN_API Delay delay(double seconds);

namespace detail {

/// Goes on on a queue, always by an item of it: on the queue where it is already, that gives others their turn.
struct Hop {
    dispatch_queue_t const& queue;
    static constexpr bool await_ready() noexcept { return false; }
    template <class Promise> void await_suspend(std::coroutine_handle<Promise> handle) { Coroutine::of(handle).goOnOn(queue); }
    static constexpr void await_resume() noexcept {}
};

/// The same for the queue on which it is.
struct NextTurn {
    static constexpr bool await_ready() noexcept { return false; }
    template <class Promise> void await_suspend(std::coroutine_handle<Promise> handle) {
        auto& coroutine = Coroutine::of(handle);
        coroutine.wait(nullptr);
        coroutine.goOn();
    }
    static constexpr void await_resume() noexcept {}
};

struct Pause {
    std::int64_t nanoseconds;
    static constexpr bool await_ready() noexcept { return false; }
    template <class Promise> void await_suspend(std::coroutine_handle<Promise> handle) {
        Coroutine::of(handle).waitFor(nanoseconds);
    }
    static constexpr void await_resume() noexcept {}
};

/// Stands around whatever a task awaits: one that is cancelled does not begin to wait, but ends.
template <class Awaiter> class CancelPoint {
public:
    CancelPoint(Coroutine& coroutine, Awaiter&& awaiter)
        : coroutine_(coroutine), awaiter_(std::forward<Awaiter>(awaiter)) {}

    bool await_ready() {
        ends_ = coroutine_.isCancelled();
        return !ends_ && awaiter_.await_ready();
    }
    template <class Promise> auto await_suspend(std::coroutine_handle<Promise> handle) {
        using Answer = decltype(awaiter_.await_suspend(handle));
        if constexpr (std::is_void_v<Answer>) {
            if (ends_) return coroutine_.endSoon();
            awaiter_.await_suspend(handle);
        } else if constexpr (std::is_same_v<Answer, bool>) {
            if (!ends_) return awaiter_.await_suspend(handle);
            coroutine_.endSoon();
            return true;
        } else {
            if (!ends_) return std::coroutine_handle<>(awaiter_.await_suspend(handle));
            coroutine_.endSoon();
            return std::coroutine_handle<>(std::noop_coroutine());
        }
    }
    decltype(auto) await_resume() { return awaiter_.await_resume(); }

private:
    Coroutine& coroutine_;
    Awaiter awaiter_; // a reference to one that is awaited as it stands
    bool ends_ = false;
};

/// Whether an F that is handed to a call may stand in the `co_await` expression of that call. g++ before 13 destroys temporaries
/// that are initialised member by member twice there: lambdas that capture something with a destructor, and braced structs.
#if defined(__GNUC__) && !defined(__clang__) && __GNUC__ < 13
template <class F>
inline constexpr bool isSafeInAwait =
    std::is_lvalue_reference_v<F> || std::is_trivially_destructible_v<std::remove_reference_t<F>>;
#else
template <class F> inline constexpr bool isSafeInAwait = true;
#endif

template <class T>
concept HasMemberAwait = requires(T&& awaited) { std::forward<T>(awaited).operator co_await(); };
template <class T>
concept HasFreeAwait = requires(T&& awaited) { operator co_await(std::forward<T>(awaited)); };

} // namespace detail
} // namespace Tessarin
