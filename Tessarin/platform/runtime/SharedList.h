#pragma once
#include "Tessarin/platform/runtime/Hold.h"
#include "Tessarin/platform/runtime/SpinLock.h"
#include <atomic>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace Tessarin {

/// A list of references that is walked without copying it while other threads change it: who walks sees it as it was at the
/// start. It is changed in place while nobody walks, and copied otherwise. Nothing of the caller's runs while it is held, also
/// not the destructors of elements that leave. Any thread.
///
///     for (SharedList<Ref<Watcher>>::Reading const now(watchers_); auto const& watcher : now) watcher->fired(nullptr);
template <class T> class SharedList {
    struct List {
        std::vector<T> elements;
        std::size_t readers = 0;
    };

public:
    /// Keeps what stood in the list; shorter-lived than the list.
    class Reading {
    public:
        explicit Reading(SharedList const& from) : from_(from) {
            Hold const hold(from.lock_);
            list_ = from.list_.get();
            ++list_->readers;
        }
        ~Reading() {
            std::unique_ptr<List> left; // destroyed after the lock
            Hold const hold(from_.lock_);
            if (--list_->readers == 0 && list_ != from_.list_.get()) left.reset(list_);
        }
        Reading(Reading const&) = delete;
        Reading& operator=(Reading const&) = delete;

        auto begin() const { return list_->elements.begin(); }
        auto end() const { return list_->elements.end(); }

    private:
        SharedList const& from_;
        List* list_;
    };

    bool isEmpty() const noexcept { return count_.load(std::memory_order_acquire) == 0; }
    std::vector<T> copy() const {
        Hold const hold(lock_);
        return list_->elements;
    }
    void set(std::vector<T> elements) {
        Hold const hold(lock_);
        std::swap(writable(), elements);
        count_.store(list_->elements.size(), std::memory_order_release);
    }
    void append(T element) {
        Hold const hold(lock_);
        auto& elements = writable();
        elements.push_back(std::move(element));
        count_.store(elements.size(), std::memory_order_release);
    }
    /// False when the list is not that long.
    bool removeAt(std::size_t at) {
        T gone;
        Hold const hold(lock_);
        if (at >= list_->elements.size()) return false;
        gone = take(at);
        return true;
    }
    /// Removes the first reference to that object, if there is one.
    void remove(T const& element) {
        T gone;
        Hold const hold(lock_);
        for (std::size_t at = 0; at < list_->elements.size(); ++at)
            if (list_->elements[at] == element) {
                gone = take(at);
                return;
            }
    }

private:
    std::vector<T>& writable() { // with the lock held
        if (list_->readers == 0) return list_->elements;
        auto copy = std::make_unique<List>();
        copy->elements = list_->elements;
        static_cast<void>(list_.release()); // the last of its readers destroys it
        list_ = std::move(copy);
        return list_->elements;
    }
    T take(std::size_t at) {
        auto& elements = writable();
        T taken = std::move(elements[at]);
        elements.erase(elements.begin() + static_cast<std::ptrdiff_t>(at));
        count_.store(elements.size(), std::memory_order_release);
        return taken;
    }

    std::atomic<std::size_t> count_{0}; // of elements
    mutable SpinLock lock_;
    std::unique_ptr<List> list_ = std::make_unique<List>(); // guarded by lock_
};

} // namespace Tessarin
