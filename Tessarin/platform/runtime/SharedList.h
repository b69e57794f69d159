#pragma once
#include "Tessarin/platform/runtime/Hold.h"
#include "Tessarin/platform/runtime/SpinLock.h"
#include <atomic>
#include <cstddef>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Tessarin {

/// A list of references that is walked without copying it while other threads change it: who walks sees it as it was at the
/// start. It is changed in place while nobody walks, and copied otherwise. Nothing of the caller's runs while it is held, also
/// not the destructors of elements that leave. Null is no element. Any thread.
///
///     for (SharedList<Ref<Watcher>>::Reading const now(watchers_); auto const& watcher : now) watcher->fired(nullptr);
template <class T> class SharedList {
    struct List {
        std::vector<T> elements; // null where one has left
        std::size_t readers = 0;
    };
    using Elements = typename std::vector<T>::const_iterator;

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

        /// Passes over what has left.
        class Iterator {
        public:
            Iterator(Elements at, Elements end) : at_(at), end_(end) { pass(); }
            T const& operator*() const { return *at_; }
            Iterator& operator++() {
                ++at_;
                pass();
                return *this;
            }
            bool operator==(Iterator const& other) const { return at_ == other.at_; }

        private:
            void pass() {
                while (at_ != end_ && !*at_) ++at_;
            }
            Elements at_, end_;
        };
        Iterator begin() const { return {list_->elements.begin(), list_->elements.end()}; }
        Iterator end() const { return {list_->elements.end(), list_->elements.end()}; }

    private:
        SharedList const& from_;
        List* list_;
    };

    bool isEmpty() const noexcept { return count_.load(std::memory_order_acquire) == 0; }
    std::vector<T> copy() const {
        Hold const hold(lock_);
        auto elements = list_->elements;
        if (gaps_ != 0) std::erase(elements, nullptr);
        return elements;
    }
    void set(std::vector<T> elements) {
        Hold const hold(lock_);
        std::swap(writable(), elements);
        gaps_ = 0;
        places_.clear();
        noteCount();
    }
    void append(T element) {
        Hold const hold(lock_);
        auto& elements = writable();
        if (!places_.empty()) notePlace(element, elements.size());
        elements.push_back(std::move(element));
        noteCount();
    }
    /// False when the list is not that long.
    bool removeAt(std::size_t at) {
        T gone;
        Hold const hold(lock_);
        auto& elements = writable();
        closeGaps(elements);
        if (at >= elements.size()) return false;
        gone = std::move(elements[at]);
        elements.erase(elements.begin() + static_cast<std::ptrdiff_t>(at));
        noteCount();
        return true;
    }
    /// Removes the first reference to that object, if there is one, in a time that does not grow with the list: many that leave
    /// one after the other leave gaps, which close when they are half of it.
    void remove(T const& element) {
        T gone;
        Hold const hold(lock_);
        auto const at = placeOf(element);
        if (at == list_->elements.size()) return;
        auto& elements = writable();
        gone = std::move(elements[at]);
        hasRepeats_ ? places_.clear() : void(places_.erase(gone.get()));
        if (++gaps_ * 2 > elements.size()) closeGaps(elements);
        noteCount();
    }

private:
    // All with the lock held:
    std::vector<T>& writable() {
        if (list_->readers == 0) return list_->elements;
        auto copy = std::make_unique<List>();
        copy->elements = list_->elements;
        static_cast<void>(list_.release()); // the last of its readers destroys it
        list_ = std::move(copy);
        return list_->elements;
    }
    void noteCount() { count_.store(list_->elements.size() - gaps_, std::memory_order_release); }
    void closeGaps(std::vector<T>& elements) {
        if (gaps_ != 0) std::erase(elements, nullptr);
        gaps_ = 0;
        places_.clear();
    }
    void notePlace(T const& element, std::size_t at) {
        if (!places_.try_emplace(element.get(), at).second) hasRepeats_ = true;
    }
    std::size_t placeOf(T const& element) {
        auto const& elements = list_->elements;
        if (!element) return elements.size();
        if (elements.size() <= searchedThrough) {
            std::size_t at = 0;
            while (at < elements.size() && elements[at] != element) ++at;
            return at;
        }
        if (places_.empty()) {
            hasRepeats_ = false;
            for (std::size_t at = 0; at < elements.size(); ++at)
                if (elements[at]) notePlace(elements[at], at);
        }
        auto const found = places_.find(element.get());
        return found == places_.end() ? elements.size() : found->second;
    }

    static constexpr std::size_t searchedThrough = 64;

    std::atomic<std::size_t> count_{0}; // of elements
    mutable SpinLock lock_;
    std::unique_ptr<List> list_ = std::make_unique<List>(); // guarded by lock_, as is what follows
    std::size_t gaps_ = 0; // among its elements
    // Of a long list from which somebody was removed: where each stands first.
    std::unordered_map<void const*, std::size_t> places_;
    bool hasRepeats_ = false; // somebody stands there more than once
};

} // namespace Tessarin
