#pragma once
#include <string>

namespace Tessarin {

template <class T> ThreadsafeArrayGenerator<T> ThreadsafeArray<T>::generate() { return {this->shared_from_this()}; }

template <class T> void ThreadsafeArray<T>::init(std::vector<T> array) {
    array_ = std::move(array);
    queue_ = dispatch_queue_create("threadsafe_array_queue", DISPATCH_QUEUE_SERIAL);
}

template <class T> void ThreadsafeArray<T>::sync(char const* operation, FunctionRef<void()> work) const {
    if (!queue_) fatal(std::string{"ThreadsafeArray."} + operation + ": there is no queue");
    dispatch_sync(queue_, work);
}

template <class T> std::size_t ThreadsafeArray<T>::position(std::ptrdiff_t index, char const* operation) const {
    auto const at = static_cast<std::size_t>(index); // a negative one is larger than any count
    if (at >= array_.size())
        fatal(std::string{"ThreadsafeArray."} + operation + ": index " + std::to_string(index) + " of " +
              std::to_string(array_.size()) + " elements");
    return at;
}

template <class T> T ThreadsafeArray<T>::slot(std::ptrdiff_t index) const {
    std::optional<T> element;
    sync("subscript", [&] { element.emplace(array_[position(index, "subscript")]); });
    return *std::move(element);
}

template <class T> void ThreadsafeArray<T>::setSlot(std::ptrdiff_t index, T value) {
    sync("subscript", [&] { array_[position(index, "subscript")] = std::move(value); });
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
    if (!queue_) fatal("ThreadsafeArray.removeAtIndex: there is no queue");
    dispatch_async(queue_, [self = this->shared_from_this(), index] {
        // Only the upper bound is forgiven: a negative index is a mistake, one behind the end may be a race that was lost.
        if (index >= std::ssize(self->array_)) return;
        self->array_.erase(self->array_.begin() + static_cast<std::ptrdiff_t>(self->position(index, "removeAtIndex")));
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
    visitAll([&](T const& element) { results.push_back(std::invoke(transform, element)); });
    return results;
}

template <class T> std::vector<T> ThreadsafeArray<T>::values() const {
    std::vector<T> copy;
    sync("values", [&] { copy = array_; });
    return copy;
}

template <class T> std::optional<T> ThreadsafeArray<T>::first() const {
    std::optional<T> element;
    sync("first", [&] {
        if (!array_.empty()) element = array_.front();
    });
    return element;
}

template <class T> std::optional<T> ThreadsafeArray<T>::last() const {
    std::optional<T> element;
    sync("last", [&] {
        if (!array_.empty()) element = array_.back();
    });
    return element;
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
    sync("remove", [&] { Array::remove(array_, element); });
}

template <class T> std::optional<T> ThreadsafeArrayGenerator<T>::next() {
    // Two submissions, on purpose, and not one: when an element is removed in between, the second one is fatal.
    if (index >= array->count()) return {};
    auto element = array->slot(index);
    ++index;
    return element;
}

} // namespace Tessarin
