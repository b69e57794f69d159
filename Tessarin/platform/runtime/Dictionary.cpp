#include "Tessarin/platform/runtime/Dictionary.h"

#include <bit>

namespace Tessarin {
namespace {

constexpr std::size_t nowhere = static_cast<std::size_t>(-1);

std::size_t hashOf(std::string_view key) { return std::hash<std::string_view>{}(key); }

} // namespace

Dictionary::Dictionary(std::initializer_list<Entry> entries) {
    entries_.reserve(entries.size());
    for (auto const& entry : entries) set(entry.key, entry.value);
}

/// Of a text or a view: two short texts are compared without a loop.
template <class Key> std::size_t Dictionary::position(Key const& key) const noexcept {
    if (index_.empty()) {
        for (std::size_t at = 0; at < entries_.size(); ++at)
            if (entries_[at].key == key) return at;
        return nowhere;
    }
    auto const mask = index_.size() - 1;
    for (auto at = hashOf(key) & mask; index_[at]; at = (at + 1) & mask)
        if (auto const found = index_[at] - 1; entries_[found].key == key) return found;
    return nowhere;
}

Value const* Dictionary::find(std::string_view key) const noexcept {
    auto const at = position(key);
    return at == nowhere ? nullptr : &entries_[at].value;
}

Value const& Dictionary::operator[](std::string_view key) const noexcept {
    static Value const absent;
    auto const* found = find(key);
    return found ? *found : absent;
}

Value& Dictionary::operator[](std::string_view key) {
    if (auto const at = position(key); at != nowhere) return entries_[at].value;
    append(Text{key}, {});
    return entries_.back().value;
}

void Dictionary::set(Text key, Value value) {
    if (auto const at = position(key); at != nowhere)
        entries_[at].value = std::move(value);
    else
        append(std::move(key), std::move(value));
}

void Dictionary::append(Text key, Value value) {
    entries_.push_back({std::move(key), std::move(value)});
    indexLast();
}

void Dictionary::indexLast() {
    if (entries_.size() <= searchedThrough) return;
    if (entries_.size() * 2 <= index_.size()) return place(entries_.size() - 1);
    index_.assign(std::bit_ceil(entries_.size() * 4), 0);
    for (std::size_t at = 0; at < entries_.size(); ++at) place(at);
}

void Dictionary::place(std::size_t position) {
    auto const mask = index_.size() - 1;
    auto at = hashOf(entries_[position].key) & mask;
    while (index_[at]) at = (at + 1) & mask;
    index_[at] = static_cast<std::uint32_t>(position + 1);
}

bool Dictionary::erase(std::string_view key) {
    auto const at = position(key);
    if (at == nowhere) return false;
    entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(at));
    index_.clear();
    indexLast();
    return true;
}

bool operator==(Dictionary const& a, Dictionary const& b) {
    if (a.size() != b.size()) return false;
    for (auto const& [key, value] : a) {
        auto const* other = b.find(key);
        if (!other || !(*other == value)) return false;
    }
    return true;
}

} // namespace Tessarin
