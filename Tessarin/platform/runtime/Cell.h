#pragma once
#include <mutex>
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
        std::lock_guard const hold(mutex_);
        return value_;
    }
    void set(T value) {
        std::lock_guard const hold(mutex_);
        std::swap(value_, value);
    }
    /// Sets `value` and gives what stood there.
    T exchange(T value) {
        std::lock_guard const hold(mutex_);
        std::swap(value_, value);
        return value;
    }

private:
    mutable std::mutex mutex_;
    T value_{}; // guarded by mutex_
};

} // namespace Tessarin
