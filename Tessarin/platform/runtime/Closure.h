#pragma once
#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

namespace Tessarin {

namespace detail {
/// A pointer to a member, of an object that stands there itself or is led to.
template <class Member, class Object, class... Arguments>
decltype(auto) invokeMember(Member member, Object&& object, Arguments&&... arguments) {
    if constexpr (requires { (std::forward<Object>(object).*member)(std::forward<Arguments>(arguments)...); })
        return (std::forward<Object>(object).*member)(std::forward<Arguments>(arguments)...);
    else if constexpr (requires { ((*std::forward<Object>(object)).*member)(std::forward<Arguments>(arguments)...); })
        return ((*std::forward<Object>(object)).*member)(std::forward<Arguments>(arguments)...);
    else if constexpr (requires { std::forward<Object>(object).*member; })
        return (std::forward<Object>(object).*member);
    else
        return ((*std::forward<Object>(object)).*member);
}
/// std::invoke_r, which C++20 lacks: a result is dropped where none is wanted. <functional> would cost every user dearly.
template <class Result, class F, class... Arguments> Result invokeAs(F& function, Arguments&&... arguments) {
    if constexpr (std::is_member_pointer_v<std::remove_cv_t<F>>) {
        if constexpr (std::is_void_v<Result>)
            static_cast<void>(invokeMember(function, std::forward<Arguments>(arguments)...));
        else
            return invokeMember(function, std::forward<Arguments>(arguments)...);
    } else if constexpr (std::is_void_v<Result>) {
        static_cast<void>(function(std::forward<Arguments>(arguments)...));
    } else {
        return function(std::forward<Arguments>(arguments)...);
    }
}
} // namespace detail

template <class Signature> class Closure;

/// A closure that is kept: move-only, empty by default, and without an allocation for anything up to 48 bytes.
/// Calling an empty one is undefined; test it first.
///
///     Closure<void(int)> onChange = [this](int value) { show(value); };
///     if (onChange) onChange(3);
template <class Result, class... Arguments> class Closure<Result(Arguments...)> {
public:
    static constexpr std::size_t inlineSize = 48;

    Closure() noexcept = default;
    Closure(std::nullptr_t) noexcept {}

    template <class F>
        requires(!std::is_same_v<std::remove_cvref_t<F>, Closure> &&
                 std::is_invocable_r_v<Result, std::decay_t<F>&, Arguments...>)
    Closure(F&& function) {
        using Stored = std::decay_t<F>;
        if constexpr (std::is_pointer_v<Stored> || std::is_member_pointer_v<Stored>)
            if (!function) return;
        if constexpr (fits<Stored>) {
            ::new (storage_) Stored(std::forward<F>(function));
            table_ = &inlineTable<Stored>;
        } else {
            ::new (storage_) Stored*(new Stored(std::forward<F>(function)));
            table_ = &heapTable<Stored>;
        }
    }

    Closure(Closure&& other) noexcept { take(other); }
    Closure& operator=(Closure&& other) noexcept {
        if (this != &other) {
            reset();
            take(other);
        }
        return *this;
    }
    Closure(Closure const&) = delete;
    Closure& operator=(Closure const&) = delete;
    ~Closure() { reset(); }

    explicit operator bool() const noexcept { return table_ != nullptr; }
    Result operator()(Arguments... arguments) const {
        return table_->call(const_cast<std::byte*>(storage_), std::forward<Arguments>(arguments)...);
    }

private:
    struct Table {
        Result (*call)(void*, Arguments...);
        void (*move)(void* to, void* from) noexcept;
        void (*destroy)(void*) noexcept;
    };

    template <class F>
    static constexpr bool fits =
        sizeof(F) <= inlineSize && alignof(F) <= alignof(std::max_align_t) && std::is_nothrow_move_constructible_v<F>;

    template <class F>
    static constexpr Table inlineTable{
        [](void* at, Arguments... arguments) -> Result {
            return detail::invokeAs<Result>(*static_cast<F*>(at), std::forward<Arguments>(arguments)...);
        },
        [](void* to, void* from) noexcept {
            ::new (to) F(std::move(*static_cast<F*>(from)));
            static_cast<F*>(from)->~F();
        },
        [](void* at) noexcept { static_cast<F*>(at)->~F(); }};

    template <class F>
    static constexpr Table heapTable{
        [](void* at, Arguments... arguments) -> Result {
            return detail::invokeAs<Result>(**static_cast<F**>(at), std::forward<Arguments>(arguments)...);
        },
        [](void* to, void* from) noexcept { ::new (to) F*(*static_cast<F**>(from)); },
        [](void* at) noexcept { delete *static_cast<F**>(at); }};

    void take(Closure& other) noexcept {
        if (!other.table_) return;
        other.table_->move(storage_, other.storage_);
        table_ = std::exchange(other.table_, nullptr);
    }
    void reset() noexcept {
        if (auto const* table = std::exchange(table_, nullptr)) table->destroy(storage_);
    }

    alignas(std::max_align_t) std::byte storage_[inlineSize];
    Table const* table_ = nullptr;
};

} // namespace Tessarin
