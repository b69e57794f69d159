#pragma once
#include "Tessarin/platform/objectgraph/persistence/KeyTable.h"
#include <algorithm>
#include <span>
#include <unordered_map>
#include <vector>

namespace Tessarin {

/// A set of record keys in order of insertion (a removal moves the last into the gap): searched through while it is small,
/// with an index of positions from then on.
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
        keys_.push_back(key);
        if (!positions_.empty()) positions_.emplace(key, keys_.size() - 1);
    }
    bool remove(RecordKey key) {
        auto const at = position(key);
        if (at == nowhere) return false;
        auto const moved = keys_.back();
        keys_[at] = moved;
        keys_.pop_back();
        if (!positions_.empty()) {
            positions_[moved] = at;
            positions_.erase(key);
        }
        return true;
    }
    template <class Translate> void translate(Translate translate) {
        for (auto& key : keys_) key = translate(key);
        positions_.clear();
    }
    void clear() {
        keys_.clear();
        positions_.clear();
    }

    std::span<RecordKey const> keys() const noexcept { return keys_; }
    std::size_t size() const noexcept { return keys_.size(); }
    bool empty() const noexcept { return keys_.empty(); }

private:
    static constexpr std::size_t nowhere = static_cast<std::size_t>(-1);
    static constexpr std::size_t searchedThrough = 24;

    std::size_t position(RecordKey key) const {
        if (keys_.size() <= searchedThrough) {
            auto const found = std::ranges::find(keys_, key);
            return found == keys_.end() ? nowhere : static_cast<std::size_t>(found - keys_.begin());
        }
        if (positions_.empty())
            for (std::size_t at = 0; at < keys_.size(); ++at) positions_.emplace(keys_[at], at);
        auto const found = positions_.find(key);
        return found == positions_.end() ? nowhere : found->second;
    }

    std::vector<RecordKey> keys_;
    mutable std::unordered_map<RecordKey, std::size_t> positions_; // made by the first search among many
};

} // namespace Tessarin
