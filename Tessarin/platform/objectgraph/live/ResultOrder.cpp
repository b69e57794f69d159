#include "Tessarin/platform/objectgraph/live/ResultOrderPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"

#include <algorithm>
#include <ranges>

namespace Tessarin {

bool ResultOrder::isBefore(RecordKey a, Values valuesOfA, RecordKey b, Values valuesOfB) const {
    for (std::size_t at = 0; at < descriptors_.size(); ++at)
        if (auto const order = descriptors_[at]->compareKeys(valuesOfA[at], valuesOfB[at]); order != 0) return order < 0;
    return isBeforeByKey(a, b);
}

bool ResultOrder::sortsAlike(Values a, Values b) const {
    for (std::size_t at = 0; at < descriptors_.size(); ++at)
        if (descriptors_[at]->compareKeys(a[at], b[at]) != 0) return false;
    return true;
}

std::size_t ResultOrder::firstRankOf(std::size_t leaf) const {
    firstRanks_.resize(leaves_.size());
    for (; counted_ <= leaf; ++counted_)
        firstRanks_[counted_] = counted_ == 0 ? 0 : firstRanks_[counted_ - 1] + counts_[counted_ - 1];
    return firstRanks_[leaf];
}

ResultOrder::Place ResultOrder::placeOf(std::size_t rank) const {
    firstRankOf(leaves_.size() - 1);
    auto const next = std::ranges::upper_bound(firstRanks_, rank);
    auto const leaf = static_cast<std::size_t>(next - firstRanks_.begin()) - 1;
    return {leaf, rank - firstRanks_[leaf]};
}

RecordKey ResultOrder::keyAt(std::size_t rank) const {
    auto const [leaf, at] = placeOf(rank);
    return leaves_[leaf]->keys[at];
}

ResultOrder::Values ResultOrder::valuesAt(std::size_t rank) const {
    auto const [leaf, at] = placeOf(rank);
    return valuesIn(*leaves_[leaf], at);
}

std::optional<std::size_t> ResultOrder::rankOf(RecordKey key) const {
    auto const* leaf = leafOf_.find(key);
    if (!leaf) return std::nullopt;
    return firstRankOf(leaf->place) + static_cast<std::size_t>(std::ranges::find(leaf->keys, key) - leaf->keys.begin());
}

ResultOrder::Values ResultOrder::valuesOf(RecordKey key) const {
    auto const& leaf = *leafOf_.find(key);
    return valuesIn(leaf, static_cast<std::size_t>(std::ranges::find(leaf.keys, key) - leaf.keys.begin()));
}

void ResultOrder::setValues(RecordKey key, Values values) {
    auto& leaf = *leafOf_.find(key);
    auto const at = std::ranges::find(leaf.keys, key) - leaf.keys.begin();
    std::ranges::copy(values, leaf.values.begin() + at * static_cast<std::ptrdiff_t>(descriptors_.size()));
}

/// The leaf that begins last before the record, and the place in it.
ResultOrder::Place ResultOrder::placeFor(RecordKey key, Values values) const {
    auto const next = std::ranges::partition_point(leaves_, [&](std::unique_ptr<Leaf> const& leaf) {
        return isBefore(leaf->keys.front(), valuesIn(*leaf, 0), key, values);
    });
    if (next == leaves_.begin()) return {0, 0};
    auto const& leaf = **std::prev(next);
    auto const places = std::views::iota(std::size_t{0}, leaf.keys.size());
    auto const at = std::ranges::partition_point(
        places, [&](std::size_t place) { return isBefore(leaf.keys[place], valuesIn(leaf, place), key, values); });
    return {leaf.place, static_cast<std::size_t>(at - places.begin())};
}

void ResultOrder::append(RecordKey key, Values values) {
    // Full leaves in the first filling; who is split later finds room in both halves.
    if (leaves_.empty() || leaves_.back()->keys.size() >= mostInLeaf * 3 / 4) {
        leaves_.push_back(std::make_unique<Leaf>());
        leaves_.back()->place = leaves_.size() - 1;
        counts_.push_back(0);
    }
    insertAt({leaves_.size() - 1, leaves_.back()->keys.size()}, key, values);
}

std::size_t ResultOrder::insert(RecordKey key, Values values) {
    if (leaves_.empty()) {
        append(key, values);
        return 0;
    }
    auto const place = placeFor(key, values);
    auto const rank = firstRankOf(place.leaf) + place.at;
    insertAt(place, key, values);
    if (leaves_[place.leaf]->keys.size() > mostInLeaf) split(place.leaf);
    return rank;
}

void ResultOrder::insertAt(Place place, RecordKey key, Values values) {
    auto& leaf = *leaves_[place.leaf];
    leaf.keys.insert(leaf.keys.begin() + static_cast<std::ptrdiff_t>(place.at), key);
    leaf.values.insert(leaf.values.begin() + static_cast<std::ptrdiff_t>(place.at * descriptors_.size()), values.begin(),
                       values.end());
    leafOf_.set(key, &leaf);
    ++counts_[place.leaf];
    ++size_;
    hasChanged(place.leaf + 1);
}

void ResultOrder::split(std::size_t place) {
    auto& leaf = *leaves_[place];
    auto second = std::make_unique<Leaf>();
    auto const half = static_cast<std::ptrdiff_t>(leaf.keys.size() / 2);
    auto const values = half * static_cast<std::ptrdiff_t>(descriptors_.size());
    second->keys.assign(leaf.keys.begin() + half, leaf.keys.end());
    second->values.assign(std::move_iterator(leaf.values.begin() + values), std::move_iterator(leaf.values.end()));
    leaf.keys.resize(static_cast<std::size_t>(half));
    leaf.values.resize(static_cast<std::size_t>(values));
    counts_[place] = static_cast<std::uint32_t>(leaf.keys.size());
    counts_.insert(counts_.begin() + static_cast<std::ptrdiff_t>(place) + 1, static_cast<std::uint32_t>(second->keys.size()));
    for (auto const key : second->keys) leafOf_.set(key, second.get());
    leaves_.insert(leaves_.begin() + static_cast<std::ptrdiff_t>(place) + 1, std::move(second));
    number(place + 1);
}

void ResultOrder::erase(RecordKey key) {
    auto& leaf = *leafOf_.find(key);
    auto const at = std::ranges::find(leaf.keys, key) - leaf.keys.begin();
    auto const place = leaf.place;
    leafOf_.set(key, nullptr);
    leaf.keys.erase(leaf.keys.begin() + at);
    auto const first = leaf.values.begin() + at * static_cast<std::ptrdiff_t>(descriptors_.size());
    leaf.values.erase(first, first + static_cast<std::ptrdiff_t>(descriptors_.size()));
    --counts_[place];
    --size_;
    hasChanged(place + 1);
    if (!leaf.keys.empty()) return;
    leaves_.erase(leaves_.begin() + static_cast<std::ptrdiff_t>(place));
    counts_.erase(counts_.begin() + static_cast<std::ptrdiff_t>(place));
    number(place);
}

void ResultOrder::number(std::size_t from) {
    for (auto place = from; place < leaves_.size(); ++place) leaves_[place]->place = place;
    hasChanged(from);
}

void ResultOrder::clear() {
    leaves_.clear();
    counts_.clear();
    firstRanks_.clear();
    leafOf_ = {};
    counted_ = size_ = 0;
}

} // namespace Tessarin
