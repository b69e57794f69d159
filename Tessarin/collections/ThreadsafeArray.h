#pragma once
#include "Tessarin/collections/Array.h"
#include "Tessarin/collections/GeneratorIterator.h"
#include "Tessarin/collections/Synchronised.h"
#include "Tessarin/platform/runtime/Ref.h"
#include "Tessarin/platform/runtime/Slot.h"

namespace Tessarin {

template <class T> struct ThreadsafeArrayGenerator;

/// An array that several threads read and change: each operation is one synchronous submission to a private serial queue, but
/// for what says otherwise. Calling one inside a closure that runs on the same array's queue (in the transform of `map`, say)
/// blocks for ever; nobody checks for that. What a closure, a copy or a comparison throws reaches the caller. An element that is
/// replaced or removed is destroyed when the call has left the queue. Elements that cannot be copied are walked by `map` and
/// `withValues`; what would copy them does not compile.
///
///     auto const names = make<ThreadsafeArray<std::string>>(std::vector<std::string>{"Ada"});
///     names->append("Grace");
///     (*names)[0] = "Ada Lovelace";
///     for (auto const& name : names->values()) print(name);
///     names->withValues([](std::vector<std::string>& all) { std::ranges::sort(all); });
///
/// A loop over a reference keeps the array: `for (auto x : makeArray())`. One over `*makeArray()` does not, in C++20: the array
/// would be gone before the first step.
template <class T> class ThreadsafeArray : public std::enable_shared_from_this<ThreadsafeArray<T>> {
public:
    ThreadsafeArray(ThreadsafeArray const&) = delete;
    ThreadsafeArray& operator=(ThreadsafeArray const&) = delete;
    virtual ~ThreadsafeArray() = default;

    /// Walks the array live, at an element each `next()`. A stable view is `values()`.
    virtual ThreadsafeArrayGenerator<T> generate();

    /// The elements themselves, past the queue: unsynchronised on purpose.
    virtual std::vector<T> const& array() const { return array_; }
    virtual void setArray(std::vector<T> array) { array_ = std::move(array); }
    /// In place, unless a subclass might hear of it: then through `array` and `setArray`.
    virtual void modifyArray(FunctionRef<void(std::vector<T>&)> change);

    /// Reads, changes and writes on the queue as one, so that no change of another thread is lost; gives a copy of what `change`
    /// gives. Elements that `change` itself destroys end on the queue.
    template <class F> auto withValues(F&& change);

    /// What `array[index]` reads and writes. Fatal when there is no such element.
    virtual T slot(std::ptrdiff_t index) const;
    virtual void setSlot(std::ptrdiff_t index, T value);
    /// Reads, changes, writes: two submissions, between which another thread may come.
    /// An element that cannot be copied is changed in place, on the queue.
    virtual void modifySlot(std::ptrdiff_t index, FunctionRef<void(T&)> change);
    T slot(std::ptrdiff_t index) const
        requires(!std::copy_constructible<T>)
    = delete;
    Slot<ThreadsafeArray, std::ptrdiff_t, T> operator[](std::ptrdiff_t index) { return {*this, index}; }
    T operator[](std::ptrdiff_t index) const { return slot(index); }

    virtual std::ptrdiff_t count() const;
    virtual void append(T element);
    /// Returns before the element is removed. An index behind the end is ignored; a negative one is fatal, on the queue.
    virtual void removeAtIndex(std::ptrdiff_t index);

    /// What `map` and `flatMap` are made of: they give every element in order to a visitor, on the queue, which they hold
    /// until all have been seen.
    virtual void mapEach(FunctionRef<void(T const&)> visit) const;
    virtual void flatMapEach(FunctionRef<void(T const&)> visit) const;
    template <class F> auto map(F&& transform) const {
        return collected(transform, [this](FunctionRef<void(T const&)> visit) { mapEach(visit); });
    }
    /// The same as `map`: the transform gives a plain value, on purpose, so there is never an absent one to drop.
    template <class F> auto flatMap(F&& transform) const {
        return collected(transform, [this](FunctionRef<void(T const&)> visit) { flatMapEach(visit); });
    }

    virtual std::vector<T> values() const;
    virtual std::optional<T> first() const;
    virtual std::optional<T> last() const;
    std::vector<T> values() const
        requires(!std::copy_constructible<T>)
    = delete;
    std::optional<T> first() const
        requires(!std::copy_constructible<T>)
    = delete;
    std::optional<T> last() const
        requires(!std::copy_constructible<T>)
    = delete;

    bool contains(T const& element) const
        requires std::equality_comparable<T>;
    /// Removes the first element that equals `element`, if there is one.
    void remove(T const& element)
        requires std::equality_comparable<T>;

    /// For range-for and `std::ranges`, over `generate()`.
    auto begin() { return GeneratorIterator<ThreadsafeArrayGenerator<T>>(generate()); }
    std::default_sentinel_t end() { return {}; }

protected:
    ThreadsafeArray() = default;
    virtual void init(std::vector<T> array);
    void init() { init(std::vector<T>{}); }
    /// The queue, for subclasses. Null until `init` has run; every operation but those on `array` is then fatal.
    dispatch_queue_t const& queue() const { return queue_; }

private:
    void sync(char const* operation, auto const& work) const {
        detail::synchronised(queue_, "ThreadsafeArray", operation, work);
    }
    template <class Read> auto copied(char const* operation, Read const& read) const;
    T takeAt(std::size_t at);
    std::size_t position(std::ptrdiff_t index, char const* operation) const;
    template <class F> static auto collected(F& transform, auto const& visitAll);

    dispatch_queue_t queue_; // constant after init
    std::vector<T> array_;
};

/// Walks a ThreadsafeArray from `index` on. What is appended meanwhile is visited.
template <class T> struct ThreadsafeArrayGenerator {
    Ref<ThreadsafeArray<T>> array;
    std::ptrdiff_t index = 0;

    std::optional<T> next();
};

/// A reference is a range, too, and keeps its array during the loop.
template <class T> auto begin(Ref<ThreadsafeArray<T>> const& array) { return array->begin(); }
template <class T> std::default_sentinel_t end(Ref<ThreadsafeArray<T>> const&) { return {}; }

namespace Array {
/// The elements of a ThreadsafeArray, read past its queue.
template <class T> std::vector<T> from(ThreadsafeArray<T> const& tsa) { return tsa.array(); }
} // namespace Array

} // namespace Tessarin

#include "Tessarin/collections/ThreadsafeArray.inl"
