#pragma once
#include <string>
#include <typeinfo>

namespace Tessarin {

template <class T> ThreadsafeArrayGenerator<T> ThreadsafeArray<T>::generate() { return {this->shared_from_this()}; }

template <class T> void ThreadsafeArray<T>::init(std::vector<T> array) {
    array_ = std::move(array);
    queue_ = dispatch_queue_create("threadsafe_array_queue", DISPATCH_QUEUE_SERIAL);
}

template <class T> void ThreadsafeArray<T>::modifyArray(FunctionRef<void(std::vector<T>&)> change) {
    if (typeid(*this) == typeid(detail::Made<ThreadsafeArray>)) return change(array_);
    if constexpr (std::copy_constructible<T>) {
        auto changed = array();
        change(changed);
        setArray(std::move(changed));
    } else {
        change(array_); // in place, so that what it throws costs no element
        setArray(std::move(array_));
    }
}

template <class T> template <class F> auto ThreadsafeArray<T>::withValues(F&& change) {
    using Result = std::remove_cvref_t<std::invoke_result_t<F&, std::vector<T>&>>;
    if constexpr (std::is_void_v<Result>) {
        sync("withValues", [&] { modifyArray(change); });
    } else {
        std::optional<Result> result;
        sync("withValues", [&] {
            modifyArray([&](std::vector<T>& values) {
                result.emplace(detail::invokeAs<std::invoke_result_t<F&, std::vector<T>&>>(change, values));
            });
        });
        return std::move(result).value();
    }
}

/// What `read` finds on the queue, copied into an optional; only for elements that can be copied.
template <class T> template <class Read> auto ThreadsafeArray<T>::copied(char const* operation, Read const& read) const {
    std::optional<T> element;
    if constexpr (std::copy_constructible<T>)
        sync(operation, [&] {
            if (auto const at = read()) element.emplace(array_[*at]);
        });
    else
        fatal(std::string{"ThreadsafeArray."} + operation + ": the elements cannot be copied");
    return element;
}

template <class T> T ThreadsafeArray<T>::takeAt(std::size_t at) {
    T taken = std::move(array_[at]);
    array_.erase(array_.begin() + static_cast<std::ptrdiff_t>(at));
    return taken;
}

template <class T> std::size_t ThreadsafeArray<T>::position(std::ptrdiff_t index, char const* operation) const {
    auto const at = static_cast<std::size_t>(index); // a negative one is larger than any count
    if (at >= array_.size())
        fatal(std::string{"ThreadsafeArray."} + operation + ": index " + std::to_string(index) + " of " +
              std::to_string(array_.size()) + " elements");
    return at;
}

template <class T> T ThreadsafeArray<T>::slot(std::ptrdiff_t index) const {
    return *copied("subscript", [&] { return std::optional(position(index, "subscript")); });
}

template <class T> void ThreadsafeArray<T>::setSlot(std::ptrdiff_t index, T value) {
    std::optional<T> replaced; // destroyed when the call has left the queue
    sync("subscript", [&] {
        auto const at = position(index, "subscript");
        replaced.emplace(std::move(array_[at]));
        array_[at] = std::move(value);
    });
}

template <class T> void ThreadsafeArray<T>::modifySlot(std::ptrdiff_t index, FunctionRef<void(T&)> change) {
    if constexpr (std::copy_constructible<T>) {
        auto changed = slot(index);
        change(changed);
        setSlot(index, std::move(changed));
    } else {
        sync("subscript", [&] { change(array_[position(index, "subscript")]); });
    }
}

template <class T> std::ptrdiff_t ThreadsafeArray<T>::count() const {
    std::ptrdiff_t count = 0;
    sync("count", [&] { count = std::ssize(array_); });
    return count;
}

template <class T> void ThreadsafeArray<T>::append(T element) {
    sync("append", [&] { array_.push_back(std::move(element)); });
}

template <class T> void ThreadsafeArray<T>::removeAtIndex(std::ptrdiff_t index) {
    if (!queue_) detail::noQueue("ThreadsafeArray", "removeAtIndex");
    dispatch_async(queue_, [self = this->shared_from_this(), index] {
        // Only the upper bound is forgiven: a negative index is a mistake, one behind the end may be a race that was lost.
        if (index >= std::ssize(self->array_)) return;
        detail::destroyOffQueue(self->takeAt(self->position(index, "removeAtIndex")));
    });
}

template <class T> void ThreadsafeArray<T>::mapEach(FunctionRef<void(T const&)> visit) const {
    sync("map", [&] {
        for (auto const& element : array_) visit(element);
    });
}

template <class T> void ThreadsafeArray<T>::flatMapEach(FunctionRef<void(T const&)> visit) const {
    sync("flatMap", [&] {
        for (auto const& element : array_) visit(element);
    });
}

template <class T> template <class F> auto ThreadsafeArray<T>::collected(F& transform, auto const& visitAll) {
    std::vector<std::decay_t<std::invoke_result_t<F&, T const&>>> results;
    visitAll(
        [&](T const& element) { results.push_back(detail::invokeAs<std::invoke_result_t<F&, T const&>>(transform, element)); });
    return results;
}

template <class T> std::vector<T> ThreadsafeArray<T>::values() const {
    std::vector<T> copy;
    if constexpr (std::copy_constructible<T>)
        sync("values", [&] { copy = std::vector<T>(array_); });
    else
        fatal("ThreadsafeArray.values: the elements cannot be copied");
    return copy;
}

template <class T> std::optional<T> ThreadsafeArray<T>::first() const {
    return copied("first", [&] { return array_.empty() ? std::nullopt : std::optional(std::size_t{0}); });
}

template <class T> std::optional<T> ThreadsafeArray<T>::last() const {
    return copied("last", [&] { return array_.empty() ? std::nullopt : std::optional(array_.size() - 1); });
}

template <class T>
bool ThreadsafeArray<T>::contains(T const& element) const
    requires std::equality_comparable<T>
{
    bool found = false;
    sync("contains", [&] { found = Array::contains(array_, element); });
    return found;
}

template <class T>
void ThreadsafeArray<T>::remove(T const& element)
    requires std::equality_comparable<T>
{
    std::optional<T> removed; // destroyed when the call has left the queue
    sync("remove", [&] {
        if (auto const at = Array::indexOf(array_, element)) removed.emplace(takeAt(static_cast<std::size_t>(*at)));
    });
}

template <class T> std::optional<T> ThreadsafeArrayGenerator<T>::next() {
    // Two submissions, on purpose, and not one: when an element is removed in between, the second one is fatal.
    if (index >= array->count()) return {};
    auto element = array->slot(index);
    ++index;
    return element;
}

} // namespace Tessarin
