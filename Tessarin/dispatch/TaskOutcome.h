#pragma once
#include "Tessarin/platform/runtime/Fatal.h"
#include <exception>
#include <optional>
#include <type_traits>
#include <utility>

namespace Tessarin {

/// How a task ended: with its result, with what it threw, or because it was cancelled. A value.
///
///     if (outcome) show(*outcome);
///     else if (!outcome.isCancelled()) …
template <class T> class TaskOutcome {
    static_assert(!std::is_reference_v<T>, "a task gives a value: have it give a pointer in place of a reference");
    struct Nothing {};
    using Kept = std::conditional_t<std::is_void_v<T>, Nothing, T>;

public:
    TaskOutcome() = default; // cancelled
    explicit TaskOutcome(std::exception_ptr exception) : exception_(std::move(exception)) {}
    explicit TaskOutcome(std::optional<Kept> result) : result_(std::move(result)) {}
    explicit TaskOutcome(std::in_place_t) : result_(std::in_place) {}

    /// Whether there is a result.
    explicit operator bool() const noexcept { return result_.has_value(); }
    bool isCancelled() const noexcept { return !result_ && !exception_; }
    /// What it threw; null when it threw nothing.
    std::exception_ptr const& exception() const noexcept { return exception_; }

    /// The result; fatal without one.
    template <class U = Kept> std::add_lvalue_reference_t<U> operator*() { return *required(); }
    template <class U = Kept> std::add_pointer_t<U> operator->() { return &*required(); }
    /// The result, moved out. Throws what the task threw; fatal when it was cancelled.
    T take() {
        if (exception_) std::rethrow_exception(exception_);
        if constexpr (std::is_void_v<T>)
            static_cast<void>(required());
        else
            return std::move(*required());
    }

private:
    std::optional<Kept>& required() {
        if (!result_) fatal("TaskOutcome: the task has no result");
        return result_;
    }

    std::optional<Kept> result_;
    std::exception_ptr exception_;
};

} // namespace Tessarin
