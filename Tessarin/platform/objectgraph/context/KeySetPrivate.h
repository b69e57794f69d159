#pragma once
#include "Tessarin/platform/objectgraph/persistence/stores/KeyTablePrivate.h"
#include <algorithm>
#include <bit>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace Tessarin {

/// A set of record keys in the order in which they came: searched through while it is small, with an index from then on. What
/// leaves leaves a gap, which closes when the keys are read.
class KeySet {
public:
    bool contains(RecordKey key) const { return position(key) != nowhere; }

    bool add(RecordKey key) {
        if (contains(key)) return false;
        append(key);
        return true;
    }
    /// Adds a key that is known to be new.
    void append(RecordKey key) {
        if (keys_.empty()) keys_.reserve(3); // in the memory that one takes
        if (key < 0) noteTemporary(keys_.size());
        keys_.push_back(key);
        if (isIndexed()) noteIfRoom(keys_.size() - 1);
    }
    bool remove(RecordKey key) {
        auto const at = position(key);
        if (at == nowhere) return false;
        keys_[at] = gap;
        ++gaps_;
        if (gaps_ > searchedThrough && gaps_ * 2 > keys_.size()) closeGaps();
        return true;
    }
    /// Takes the key at one place out and puts it in at another; costs what lies between.
    void move(std::size_t from, std::size_t to) {
        if (gaps_ != 0) closeGaps();
        auto const first = std::min(from, to), count = std::max(from, to) + 1 - first;
        if (firstTemporary_ != none) noteTemporary(first);
        std::vector<std::uint32_t*> slots;
        if (isIndexed())
            for (auto const key : std::span(keys_).subspan(first, count)) slots.push_back(&slots_[slotOf(key)]);
        auto const rotate = [&](auto of) {
            std::rotate(of.begin(), of.begin() + (from < to ? 1 : std::ssize(of) - 1), of.end());
        };
        rotate(std::span(keys_).subspan(first, count));
        if (!isIndexed()) return;
        rotate(std::span(slots));
        for (std::size_t at = 0; at < count; ++at) *slots[at] = static_cast<std::uint32_t>(first + at + 1);
    }
    /// Of temporary keys, at the price of what stands from the first of them on; those that `translate` makes 0 leave.
    template <class Translate> void translate(Translate translate) {
        for (std::size_t at = std::exchange(firstTemporary_, none); at < keys_.size(); ++at) {
            if (keys_[at] >= 0) continue;
            auto const now = translate(keys_[at]);
            if (now < 0) noteTemporary(at);
            if (now == keys_[at]) continue;
            keys_[at] = now;
            if (now == gap)
                ++gaps_;
            else if (isIndexed()) // where the former key led to is passed over from now on
                ++passedOver_, noteIfRoom(at);
        }
        if (gaps_ != 0) closeGaps();
    }
    void clear() {
        keys_.clear();
        slots_.clear();
        gaps_ = 0;
        firstTemporary_ = none;
    }

    std::span<RecordKey const> keys() const {
        if (gaps_ != 0) closeGaps();
        return keys_;
    }
    std::size_t size() const noexcept { return keys_.size() - gaps_; }
    bool empty() const noexcept { return size() == 0; }

private:
    static constexpr std::size_t nowhere = static_cast<std::size_t>(-1);
    static constexpr std::size_t searchedThrough = 24;
    static constexpr RecordKey gap = 0; // no record's key

    std::size_t position(RecordKey key) const {
        if (keys_.size() <= searchedThrough) {
            auto const found = std::ranges::find(keys_, key);
            return found == keys_.end() ? nowhere : static_cast<std::size_t>(found - keys_.begin());
        }
        if (!isIndexed()) makeIndex();
        return slots_[slotOf(key)] - std::size_t{1};
    }
    void closeGaps() const {
        std::erase(keys_, gap);
        slots_.clear();
        gaps_ = 0;
        if (firstTemporary_ != none) firstTemporary_ = 0;
    }
    void noteTemporary(std::size_t at) const { firstTemporary_ = std::min(firstTemporary_, static_cast<std::uint32_t>(at)); }

    bool isIndexed() const noexcept { return !slots_.empty(); }
    void makeIndex() const {
        slots_.assign(std::bit_ceil(keys_.size() * 3), 0);
        passedOver_ = 0;
        for (std::size_t at = 0; at < keys_.size(); ++at)
            if (keys_[at] != gap) note(at);
    }
    void note(std::size_t at) const { slots_[slotOf(keys_[at])] = static_cast<std::uint32_t>(at + 1); }
    void noteIfRoom(std::size_t at) const { (keys_.size() + passedOver_) * 2 <= slots_.size() ? note(at) : slots_.clear(); }
    /// That of a key, or the empty one where it would stand. Those of gaps are passed over.
    std::size_t slotOf(RecordKey key) const {
        auto const last = slots_.size() - 1;
        auto slot = static_cast<std::size_t>((static_cast<std::uint64_t>(key) * 0x9E3779B97F4A7C15ULL) >> 32) & last;
        while (slots_[slot] != 0 && keys_[slots_[slot] - 1] != key) slot = (slot + 1) & last;
        return slot;
    }

    mutable std::vector<RecordKey> keys_;
    // Places of keys, from 1, where their hashes lead to; made by the first search among many.
    mutable std::vector<std::uint32_t> slots_;
    mutable std::size_t gaps_ = 0;
    static constexpr std::uint32_t none = static_cast<std::uint32_t>(-1);
    mutable std::uint32_t firstTemporary_ = none; // before it there is none
    mutable std::uint32_t passedOver_ = 0;        // slots of keys that have become others
};

} // namespace Tessarin
