#pragma once
#include "Tessarin/collections/GeneratorIterator.h"
#include "Tessarin/collections/Synchronised.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include "Tessarin/platform/runtime/Ref.h"
#include "Tessarin/platform/runtime/Slot.h"
#include <concepts>
#include <unordered_map>
#include <vector>

namespace Tessarin {

/// How keys are told apart unless a dictionary says otherwise: objects of the runtime by their own `hash` and `isEqual`.
template <class K> struct DictionaryKey {
    using Hash = std::hash<K>;
    using Equal = std::equal_to<K>;
};
template <std::derived_from<NSObject> T> struct DictionaryKey<Ref<T>> {
    struct Hash {
        std::size_t operator()(Ref<T> const& key) const { return key ? key->hash() : 0; }
    };
    struct Equal {
        bool operator()(Ref<T> const& a, Ref<T> const& b) const { return equal(a, b); }
    };
};
template <class Hash, class K>
concept HashesKey = std::default_initializable<Hash> && requires(Hash const& hash, K const& key) {
    { hash(key) } -> std::convertible_to<std::size_t>;
};

template <class K, class V, class Hash = typename DictionaryKey<K>::Hash, class Equal = typename DictionaryKey<K>::Equal>
    requires HashesKey<Hash, K>
struct ThreadsafeDictionaryGenerator;

/// A dictionary that several threads read and change: each operation is one synchronous submission to a private serial queue,
/// but for those on `dict`. A subclass that calls one inside that queue blocks for ever. What a copy, a hash or a comparison of
/// the caller's throws reaches the caller; a value that is replaced is destroyed when the call has left the queue. Keys need a
/// hash: std::hash, or one given here.
///
///     auto const ages = make<ThreadsafeDictionary<std::string, int>>();
///     (*ages)["Ada"] = 36;
///     for (auto const& [name, age] : *ages) show(name, *age);
///
/// Pairs are added and replaced, never removed, and no closure runs under its queue. Who needs either puts a plain map behind a
/// Dispatcher:
///
///     std::unordered_map<std::string, int> ages;
///     auto const guard = make<Dispatcher>(QueueOptions{.identifier = "ages"});
///     guard->sync([&] { ages.erase("Ada"); });
template <class K, class V, class Hash = typename DictionaryKey<K>::Hash, class Equal = typename DictionaryKey<K>::Equal>
    requires HashesKey<Hash, K>
class ThreadsafeDictionary : public std::enable_shared_from_this<ThreadsafeDictionary<K, V, Hash, Equal>> {
public:
    using Pairs = std::unordered_map<K, V, Hash, Equal>;
    using Generator = ThreadsafeDictionaryGenerator<K, V, Hash, Equal>;

    ThreadsafeDictionary(ThreadsafeDictionary const&) = delete;
    ThreadsafeDictionary& operator=(ThreadsafeDictionary const&) = delete;
    virtual ~ThreadsafeDictionary() = default;

    /// Walks the keys there are now; each value is read when its turn comes.
    virtual Generator generate();

    /// The pairs themselves, past the queue: unsynchronised on purpose. The only way to remove one.
    virtual Pairs const& dict() const { return dict_; }
    virtual void setDict(Pairs dict) { dict_ = std::move(dict); }
    /// In place, unless a subclass might hear of it: then through `dict` and `setDict`.
    virtual void modifyDict(FunctionRef<void(Pairs&)> change);

    /// Copies, in the same order; later changes do not reach them.
    virtual std::vector<K> keys() const;
    virtual std::vector<V> values() const;

    /// What `dict[key]` reads and writes. Reading a key that is not there is fatal, on purpose: a value is not optional here.
    virtual V slot(K const& key) const;
    virtual void setSlot(K const& key, V value);
    /// Reads, changes, writes: two submissions, between which another thread may come.
    /// A value that cannot be copied is changed in place, on the queue.
    virtual void modifySlot(K const& key, FunctionRef<void(V&)> change);
    std::vector<V> values() const
        requires(!std::copy_constructible<V>)
    = delete;
    V slot(K const& key) const
        requires(!std::copy_constructible<V>)
    = delete;
    Slot<ThreadsafeDictionary, K const&, V> operator[](K const& key) { return {*this, key}; }
    V operator[](K const& key) const { return slot(key); }

    virtual std::ptrdiff_t count() const;

    /// For range-for and `std::ranges`, over `generate()`.
    auto begin() { return GeneratorIterator<Generator>(generate()); }
    std::default_sentinel_t end() { return {}; }

protected:
    ThreadsafeDictionary() = default;
    virtual void init(Pairs dict);
    void init() { init(Pairs{}); }
    /// The queue, for subclasses. Null until `init` has run; every operation but those on `dict` is then fatal.
    dispatch_queue_t const& queue() const { return queue_; }

private:
    void sync(char const* operation, auto const& work) const {
        detail::synchronised(queue_, "ThreadsafeDictionary", operation, work);
    }
    static auto& valueIn(auto& pairs, K const& key) {
        auto const found = pairs.find(key);
        if (found == pairs.end()) fatal("ThreadsafeDictionary.subscript: there is no value under that key");
        return found->second;
    }

    dispatch_queue_t queue_; // constant after init
    Pairs dict_;
};

/// Walks a ThreadsafeDictionary over the keys it had when the generator was made. Pairs that came later are not visited; one
/// that was removed meanwhile is fatal.
template <class K, class V, class Hash, class Equal>
    requires HashesKey<Hash, K>
struct ThreadsafeDictionaryGenerator {
    using Dictionary = ThreadsafeDictionary<K, V, Hash, Equal>;
    explicit ThreadsafeDictionaryGenerator(Ref<Dictionary> over) : dict(std::move(over)), keys_(dict->keys()) {}

    Ref<Dictionary> dict;
    std::ptrdiff_t index = 0;
    std::vector<K> const& keys() const { return keys_; }

    /// The value is always present; that it is optional belongs to the element's type.
    std::optional<std::pair<K, std::optional<V>>> next();

private:
    std::vector<K> keys_;
};

/// A reference is a range, too, and keeps its dictionary during the loop.
template <class K, class V, class H, class E> auto begin(Ref<ThreadsafeDictionary<K, V, H, E>> const& dict) {
    return dict->begin();
}
template <class K, class V, class H, class E> std::default_sentinel_t end(Ref<ThreadsafeDictionary<K, V, H, E>> const&) {
    return {};
}

} // namespace Tessarin

#include "Tessarin/collections/ThreadsafeDictionary.inl"
