#pragma once
#include "Tessarin/platform/objectgraph/persistence/stores/KeyTablePrivate.h"
#include <algorithm>
#include <span>
#include <unordered_map>
#include <vector>

namespace Tessarin {

/// A set of record keys in the order in which they came: searched through while it is small, with an index of positions from
/// then on. What leaves leaves a gap, which closes when the keys are read.
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
        keys_[at] = gap;
        ++gaps_;
        if (!positions_.empty()) positions_.erase(key);
        if (gaps_ > searchedThrough && gaps_ * 2 > keys_.size()) closeGaps();
        return true;
    }
    /// Takes the key at one place out and puts it in at another; costs what lies between.
    void move(std::size_t from, std::size_t to) {
        if (gaps_ != 0) closeGaps();
        auto const at = [this](std::size_t place) { return keys_.begin() + static_cast<std::ptrdiff_t>(place); };
        if (from < to)
            std::rotate(at(from), at(from + 1), at(to + 1));
        else
            std::rotate(at(to), at(from), at(from + 1));
        if (positions_.empty()) return;
        for (auto place = std::min(from, to); place <= std::max(from, to); ++place) positions_[keys_[place]] = place;
    }
    /// Keys that `translate` makes 0 leave.
    template <class Translate> void translate(Translate translate) {
        for (auto& key : keys_)
            if (key != gap) key = translate(key);
        closeGaps();
    }
    void clear() {
        keys_.clear();
        positions_.clear();
        gaps_ = 0;
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
        if (positions_.empty())
            for (std::size_t at = 0; at < keys_.size(); ++at)
                if (keys_[at] != gap) positions_.emplace(keys_[at], at);
        auto const found = positions_.find(key);
        return found == positions_.end() ? nowhere : found->second;
    }
    void closeGaps() const {
        std::erase(keys_, gap);
        positions_.clear();
        gaps_ = 0;
    }

    mutable std::vector<RecordKey> keys_;
    mutable std::unordered_map<RecordKey, std::size_t> positions_; // made by the first search among many
    mutable std::size_t gaps_ = 0;
};

} // namespace Tessarin
