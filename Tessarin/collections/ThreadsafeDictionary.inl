#pragma once
#include "Tessarin/platform/runtime/Fatal.h"
#include <optional>
#include <string>

namespace Tessarin {

template <class K, class V> ThreadsafeDictionaryGenerator<K, V> ThreadsafeDictionary<K, V>::generate() {
    return ThreadsafeDictionaryGenerator<K, V>(this->shared_from_this());
}

template <class K, class V> void ThreadsafeDictionary<K, V>::init(Pairs dict) {
    dict_ = std::move(dict);
    queue_ = dispatch_queue_create("threadsafe_dictionary_queue", DISPATCH_QUEUE_SERIAL);
}

template <class K, class V> void ThreadsafeDictionary<K, V>::sync(char const* operation, FunctionRef<void()> work) const {
    if (!queue_) fatal(std::string{"ThreadsafeDictionary."} + operation + ": there is no queue");
    dispatch_sync(queue_, work);
}

template <class K, class V> std::vector<K> ThreadsafeDictionary<K, V>::keys() const {
    std::vector<K> keys; // of the keys only: nobody could see the values through it
    sync("keys", [&] {
        keys.reserve(dict_.size());
        for (auto const& pair : dict_) keys.push_back(pair.first);
    });
    return keys;
}

template <class K, class V> std::vector<V> ThreadsafeDictionary<K, V>::values() const {
    std::vector<V> values;
    sync("values", [&] {
        values.reserve(dict_.size());
        for (auto const& pair : dict_) values.push_back(pair.second);
    });
    return values;
}

template <class K, class V> V ThreadsafeDictionary<K, V>::slot(K const& key) const {
    std::optional<V> value;
    sync("subscript", [&] {
        auto const found = dict_.find(key);
        if (found == dict_.end()) fatal("ThreadsafeDictionary.subscript: there is no value under that key");
        value.emplace(found->second);
    });
    return *std::move(value);
}

template <class K, class V> void ThreadsafeDictionary<K, V>::setSlot(K const& key, V value) {
    sync("subscript", [&] { dict_.insert_or_assign(key, std::move(value)); });
}

template <class K, class V> std::ptrdiff_t ThreadsafeDictionary<K, V>::count() const {
    std::ptrdiff_t count = 0;
    sync("count", [&] { count = std::ssize(dict_); });
    return count;
}

template <class K, class V> std::optional<std::pair<K, std::optional<V>>> ThreadsafeDictionaryGenerator<K, V>::next() {
    if (index >= std::ssize(keys_)) return {};
    auto const& key = keys_[static_cast<std::size_t>(index++)];
    return std::pair(key, std::optional<V>(dict->slot(key)));
}

} // namespace Tessarin
