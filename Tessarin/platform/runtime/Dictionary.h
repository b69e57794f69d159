#pragma once
#include "Tessarin/platform/runtime/Value.h"
#include <unordered_map>
#include <unordered_set>

namespace Tessarin {

/// A text-keyed dictionary in order of insertion: small ones are searched through, larger ones have an index.
///
///     Dictionary book{{"title", "Emma"}, {"year", 1815}};
///     if (auto const* year = book.find("year")) show(year->integer());
class TESSARIN_API Dictionary {
public:
    struct Entry {
        Text key;
        Value value;
        friend bool operator==(Entry const&, Entry const&) = default;
    };

    Dictionary() = default;
    Dictionary(std::initializer_list<Entry> entries);

    Value const* find(std::string_view key) const noexcept;
    bool contains(std::string_view key) const noexcept { return find(key) != nullptr; }
    /// The value under `key`; absent when there is none.
    Value const& operator[](std::string_view key) const noexcept;
    /// The value under `key`, made absent when there was none.
    Value& operator[](std::string_view key);
    void set(Text key, Value value);
    bool erase(std::string_view key);
    void reserve(std::size_t count) { entries_.reserve(count); }
    /// Adds an entry whose key is known to be new.
    void append(Text key, Value value);

    std::size_t size() const noexcept { return entries_.size(); }
    bool empty() const noexcept { return entries_.empty(); }
    auto begin() const noexcept { return entries_.begin(); }
    auto end() const noexcept { return entries_.end(); }
    /// Equal when both hold the same keys with equal values, in any order.
    friend TESSARIN_API bool operator==(Dictionary const& a, Dictionary const& b);

private:
    static constexpr std::size_t searchedThrough = 12; // up to here an index costs more than it saves
    template <class Key> std::size_t position(Key const& key) const noexcept;
    void indexLast();
    void place(std::size_t position);

    std::vector<Entry> entries_;
    std::vector<std::uint32_t> index_; // by hash: 1 + position, or 0; at most half full, empty while the dictionary is small
};

/// A dictionary with keys of any kind.
class TESSARIN_API ValueDictionary : public std::unordered_map<Value, Value> {
public:
    using std::unordered_map<Value, Value>::unordered_map;
};

/// A set of values, without order.
class TESSARIN_API ValueSet : public std::unordered_set<Value> {
public:
    using std::unordered_set<Value>::unordered_set;
};

} // namespace Tessarin

#include "Tessarin/platform/runtime/Value.inl"
