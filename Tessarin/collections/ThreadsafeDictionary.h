#pragma once
#include "Tessarin/collections/GeneratorIterator.h"
#include "Tessarin/platform/queues/Queue.h"
#include "Tessarin/platform/runtime/Ref.h"
#include "Tessarin/platform/runtime/Slot.h"
#include <unordered_map>
#include <vector>

namespace Tessarin {

template <class K, class V> struct ThreadsafeDictionaryGenerator;

/// A dictionary that several threads read and change: each operation is one synchronous submission to a private serial queue,
/// but for those on `dict`. A subclass that calls one inside that queue blocks for ever.
///
///     auto const ages = make<ThreadsafeDictionary<std::string, int>>();
///     (*ages)["Ada"] = 36;
///     for (auto const& [name, age] : *ages) show(name, *age);
template <class K, class V> class ThreadsafeDictionary : public std::enable_shared_from_this<ThreadsafeDictionary<K, V>> {
public:
    using Pairs = std::unordered_map<K, V>;

    ThreadsafeDictionary(ThreadsafeDictionary const&) = delete;
    ThreadsafeDictionary& operator=(ThreadsafeDictionary const&) = delete;
    virtual ~ThreadsafeDictionary() = default;

    /// Walks the keys there are now; each value is read when its turn comes.
    virtual ThreadsafeDictionaryGenerator<K, V> generate();

    /// The pairs themselves, past the queue: unsynchronised on purpose. The only way to remove one.
    virtual Pairs const& dict() const { return dict_; }
    virtual void setDict(Pairs dict) { dict_ = std::move(dict); }
    virtual void modifyDict(FunctionRef<void(Pairs&)> change) {
        auto changed = dict();
        change(changed);
        setDict(std::move(changed));
    }

    virtual void init(Pairs dict);

    /// Copies, in the same order; later changes do not reach them.
    virtual std::vector<K> keys() const;
    virtual std::vector<V> values() const;

    /// What `dict[key]` reads and writes. Reading a key that is not there is fatal, on purpose: a value is not optional here.
    virtual V slot(K const& key) const;
    virtual void setSlot(K const& key, V value);
    /// Reads, changes, writes: two submissions, between which another thread may come.
    virtual void modifySlot(K const& key, FunctionRef<void(V&)> change) {
        auto changed = slot(key);
        change(changed);
        setSlot(key, std::move(changed));
    }
    Slot<ThreadsafeDictionary, K const&, V> operator[](K const& key) { return {*this, key}; }
    V operator[](K const& key) const { return slot(key); }

    virtual std::ptrdiff_t count() const;

    /// For range-for and `std::ranges`, over `generate()`.
    auto begin() { return GeneratorIterator<ThreadsafeDictionaryGenerator<K, V>>(generate()); }
    std::default_sentinel_t end() { return {}; }

protected:
    ThreadsafeDictionary() = default;
    void init() { init(Pairs{}); }
    /// The queue, for subclasses. Null until `init` has run; every operation but those on `dict` is then fatal.
    dispatch_queue_t const& queue() const { return queue_; }

private:
    void sync(char const* operation, FunctionRef<void()> work) const;

    dispatch_queue_t queue_; // constant after init
    Pairs dict_;
};

/// Walks a ThreadsafeDictionary over the keys it had when the generator was made. Pairs that came later are not visited; one
/// that was removed meanwhile is fatal.
template <class K, class V> struct ThreadsafeDictionaryGenerator {
    explicit ThreadsafeDictionaryGenerator(Ref<ThreadsafeDictionary<K, V>> over) : dict(std::move(over)), keys_(dict->keys()) {}

    Ref<ThreadsafeDictionary<K, V>> dict;
    std::ptrdiff_t index = 0;
    std::vector<K> const& keys() const { return keys_; }

    /// The value is always present; that it is optional belongs to the element's type.
    std::optional<std::pair<K, std::optional<V>>> next();

private:
    std::vector<K> keys_;
};

} // namespace Tessarin

#include "Tessarin/collections/ThreadsafeDictionary.inl"
