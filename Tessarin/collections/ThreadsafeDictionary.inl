#pragma once
#include <optional>
#include <string>
#include <typeinfo>

namespace Tessarin {

template <class K, class V, class Hash, class Equal>
    requires HashesKey<Hash, K>
typename ThreadsafeDictionary<K, V, Hash, Equal>::Generator ThreadsafeDictionary<K, V, Hash, Equal>::generate() {
    return Generator(this->shared_from_this());
}

template <class K, class V, class Hash, class Equal>
    requires HashesKey<Hash, K>
void ThreadsafeDictionary<K, V, Hash, Equal>::init(Pairs dict) {
    dict_ = std::move(dict);
    queue_ = dispatch_queue_create("threadsafe_dictionary_queue", DISPATCH_QUEUE_SERIAL);
}

template <class K, class V, class Hash, class Equal>
    requires HashesKey<Hash, K>
void ThreadsafeDictionary<K, V, Hash, Equal>::modifyDict(FunctionRef<void(Pairs&)> change) {
    if (typeid(*this) == typeid(detail::Made<ThreadsafeDictionary>)) return change(dict_);
    if constexpr (std::copy_constructible<V>) {
        auto changed = dict();
        change(changed);
        setDict(std::move(changed));
    } else {
        change(dict_); // in place, so that what it throws costs no value
        setDict(std::move(dict_));
    }
}

template <class K, class V, class Hash, class Equal>
    requires HashesKey<Hash, K>
std::vector<K> ThreadsafeDictionary<K, V, Hash, Equal>::keys() const {
    std::vector<K> keys; // of the keys only: nobody could see the values through it
    sync("keys", [&] {
        keys.reserve(dict_.size());
        for (auto const& pair : dict_) keys.push_back(pair.first);
    });
    return keys;
}

template <class K, class V, class Hash, class Equal>
    requires HashesKey<Hash, K>
std::vector<V> ThreadsafeDictionary<K, V, Hash, Equal>::values() const {
    std::vector<V> values;
    if constexpr (std::copy_constructible<V>)
        sync("values", [&] {
            values.reserve(dict_.size());
            for (auto const& pair : dict_) values.push_back(pair.second);
        });
    else
        fatal("ThreadsafeDictionary.values: the values cannot be copied");
    return values;
}

template <class K, class V, class Hash, class Equal>
    requires HashesKey<Hash, K>
V ThreadsafeDictionary<K, V, Hash, Equal>::slot(K const& key) const {
    std::optional<V> value;
    if constexpr (std::copy_constructible<V>)
        sync("subscript", [&] { value.emplace(valueIn(dict_, key)); });
    else
        fatal("ThreadsafeDictionary.subscript: the values cannot be copied");
    return *std::move(value);
}

template <class K, class V, class Hash, class Equal>
    requires HashesKey<Hash, K>
void ThreadsafeDictionary<K, V, Hash, Equal>::setSlot(K const& key, V value) {
    std::optional<V> replaced; // destroyed when the call has left the queue
    sync("subscript", [&] {
        auto const [place, isNew] = dict_.try_emplace(key, std::move(value));
        if (isNew) return;
        replaced.emplace(std::move(place->second));
        place->second = std::move(value);
    });
}

template <class K, class V, class Hash, class Equal>
    requires HashesKey<Hash, K>
void ThreadsafeDictionary<K, V, Hash, Equal>::modifySlot(K const& key, FunctionRef<void(V&)> change) {
    if constexpr (std::copy_constructible<V>) {
        auto changed = slot(key);
        change(changed);
        setSlot(key, std::move(changed));
    } else {
        sync("subscript", [&] { change(valueIn(dict_, key)); });
    }
}

template <class K, class V, class Hash, class Equal>
    requires HashesKey<Hash, K>
std::ptrdiff_t ThreadsafeDictionary<K, V, Hash, Equal>::count() const {
    std::ptrdiff_t count = 0;
    sync("count", [&] { count = std::ssize(dict_); });
    return count;
}

template <class K, class V, class Hash, class Equal>
    requires HashesKey<Hash, K>
std::optional<std::pair<K, std::optional<V>>> ThreadsafeDictionaryGenerator<K, V, Hash, Equal>::next() {
    if (index >= std::ssize(keys_)) return {};
    auto const& key = keys_[static_cast<std::size_t>(index++)];
    return std::pair(key, std::optional<V>(dict->slot(key)));
}

} // namespace Tessarin
