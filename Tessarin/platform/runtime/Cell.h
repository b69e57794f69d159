#pragma once
#include "Tessarin/platform/runtime/Hold.h"
#include "Tessarin/platform/runtime/Mutex.h"
#include "Tessarin/platform/runtime/SpinLock.h"
#include <atomic>
#include <concepts>
#include <type_traits>
#include <utility>

namespace Tessarin {

/// One value that is read and written from several threads by contract: `get` copies, `set` swaps. Nothing of the caller's
/// runs while the cell is held, also not the destructor of the value that `set` replaces. Read-then-write is not atomic.
template <class T> class Cell {
public:
    Cell() = default;
    explicit Cell(T value) : value_(std::move(value)) {}
    Cell(Cell const&) = delete;
    Cell& operator=(Cell const&) = delete;

    T get() const {
        Hold const hold(lock_);
        return value_;
    }
    void set(T value) {
        Hold const hold(lock_);
        std::swap(value_, value);
    }
    /// Sets `value` and gives what stood there.
    T exchange(T value) {
        Hold const hold(lock_);
        std::swap(value_, value);
        return value;
    }
    /// Of a list: adds an element at its end.
    template <class Element>
    void append(Element element)
        requires requires(T& list) { list.push_back(std::move(element)); }
    {
        Hold const hold(lock_);
        value_.push_back(std::move(element));
    }
    /// Of a weak reference: the object, while it lives. No copy of the reference is made for it.
    auto lock() const
        requires requires(T const& weak) { weak.lock(); }
    {
        Hold const hold(lock_);
        return value_.lock();
    }
    bool expired() const
        requires requires(T const& weak) { weak.expired(); }
    {
        Hold const hold(lock_);
        return value_.expired();
    }

private:
    // References, strong or weak, are copied in a few instructions; a text may have to be allocated.
    mutable std::conditional_t<(sizeof(T) <= 16 && std::is_nothrow_copy_constructible_v<T>), SpinLock, Mutex> lock_;
    T value_{}; // guarded by lock_
};

/// What fits a machine word needs no lock: the benchmark "state" shows the difference.
template <class T>
    requires(std::is_trivially_copyable_v<T> && (sizeof(T) == 1 || sizeof(T) == 2 || sizeof(T) == 4 || sizeof(T) == 8))
class Cell<T> {
public:
    Cell()
        requires std::default_initializable<T>
        : value_(T{}) {}
    explicit Cell(T value) : value_(value) {}
    Cell(Cell const&) = delete;
    Cell& operator=(Cell const&) = delete;

    T get() const noexcept { return value_.load(std::memory_order_acquire); }
    void set(T value) noexcept { value_.store(value, std::memory_order_release); }
    T exchange(T value) noexcept { return value_.exchange(value, std::memory_order_acq_rel); }

private:
    std::atomic<T> value_;
};

} // namespace Tessarin
