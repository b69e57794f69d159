#include "Tessarin/platform/runtime/Dictionary.h"

namespace Tessarin {
namespace {

constexpr std::size_t nowhere = static_cast<std::size_t>(-1);

std::size_t hashOf(std::string_view key) { return std::hash<std::string_view>{}(key); }

} // namespace

Dictionary::Dictionary(std::initializer_list<Entry> entries) {
    entries_.reserve(entries.size());
    for (auto const& entry : entries) set(entry.key, entry.value);
}

std::size_t Dictionary::position(std::string_view key) const noexcept {
    if (index_.empty()) {
        for (std::size_t at = 0; at < entries_.size(); ++at)
            if (entries_[at].key.view() == key) return at;
        return nowhere;
    }
    auto const [from, to] = index_.equal_range(hashOf(key));
    for (auto at = from; at != to; ++at)
        if (entries_[at->second].key.view() == key) return at->second;
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
    for (auto at = index_.size(); at < entries_.size(); ++at)
        index_.emplace(hashOf(entries_[at].key.view()), static_cast<std::uint32_t>(at));
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
