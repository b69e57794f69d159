#pragma once
#include "Tessarin/collections/Array.h"
#include "Tessarin/collections/GeneratorIterator.h"
#include "Tessarin/platform/queues/Queue.h"
#include "Tessarin/platform/runtime/Ref.h"
#include "Tessarin/platform/runtime/Slot.h"

namespace Tessarin {

template <class T> struct ThreadsafeArrayGenerator;

/// An array that several threads read and change: each operation is one synchronous submission to a private serial queue, but
/// for what says otherwise. Calling one inside a closure that runs on the same array's queue (in the transform of `map`, say)
/// blocks for ever; nobody checks for that.
///
///     auto const names = make<ThreadsafeArray<std::string>>(std::vector<std::string>{"Ada"});
///     names->append("Grace");
///     (*names)[0] = "Ada Lovelace";
///     for (auto const& name : names->values()) print(name);
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
    virtual void modifyArray(FunctionRef<void(std::vector<T>&)> change) {
        auto changed = array();
        change(changed);
        setArray(std::move(changed));
    }

    virtual void init(std::vector<T> array);

    /// What `array[index]` reads and writes. Fatal when there is no such element.
    virtual T slot(std::ptrdiff_t index) const;
    virtual void setSlot(std::ptrdiff_t index, T value);
    /// Reads, changes, writes: two submissions, between which another thread may come.
    virtual void modifySlot(std::ptrdiff_t index, FunctionRef<void(T&)> change) {
        auto changed = slot(index);
        change(changed);
        setSlot(index, std::move(changed));
    }
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
    void init() { init(std::vector<T>{}); }
    /// The queue, for subclasses. Null until `init` has run; every operation but those on `array` is then fatal.
    dispatch_queue_t const& queue() const { return queue_; }

private:
    void sync(char const* operation, FunctionRef<void()> work) const;
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

namespace Array {
/// The elements of a ThreadsafeArray, read past its queue.
template <class T> std::vector<T> from(ThreadsafeArray<T> const& tsa) { return tsa.array(); }
} // namespace Array

} // namespace Tessarin

#include "Tessarin/collections/ThreadsafeArray.inl"
