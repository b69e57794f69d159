#pragma once
#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/objectgraph/persistence/stores/KeyTablePrivate.h"
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace Tessarin {

/// Records in the order of descriptors, with the values that each is sorted by: in leaves of some hundred neighbours, so that a
/// record comes, goes or is found by key or by rank in a time that hardly grows with their number. A record takes 8 bytes for its
/// key, 8 for its way back to its leaf, and 16 for each descriptor with what a long text needs beside.
class ResultOrder {
public:
    using Values = std::span<Value const>;

    explicit ResultOrder(std::vector<Ref<NSSortDescriptor>> descriptors) : descriptors_(std::move(descriptors)) {}

    std::size_t size() const noexcept { return size_; }
    std::vector<Ref<NSSortDescriptor>> const& descriptors() const noexcept { return descriptors_; }
    bool contains(RecordKey key) const noexcept { return leafOf_.find(key) != nullptr; }
    RecordKey keyAt(std::size_t rank) const;
    std::optional<std::size_t> rankOf(RecordKey key) const;
    /// What a record that is here is sorted by; until the next change.
    Values valuesOf(RecordKey key) const;
    Values valuesAt(std::size_t rank) const;

    /// Adds a record behind all others, where it belongs.
    void append(RecordKey key, Values values);
    /// Adds a record where it belongs, and gives its rank.
    std::size_t insert(RecordKey key, Values values);
    void erase(RecordKey key);
    /// Exchanges what a record is sorted by for something that sorts the same.
    void setValues(RecordKey key, Values values);
    void clear();

    /// The order of two records.
    bool isBefore(RecordKey a, Values valuesOfA, RecordKey b, Values valuesOfB) const;
    /// Whether descriptors tell two records apart.
    bool sortsAlike(Values a, Values b) const;
    /// Whether the first descriptor does not tell two values apart.
    bool isSameSection(Value const& a, Value const& b) const { return descriptors_.front()->compareKeys(a, b) == 0; }

private:
    static constexpr std::size_t mostInLeaf = 512;
    struct Leaf {
        std::size_t place = 0; // among the leaves
        std::vector<RecordKey> keys;
        std::vector<Value> values; // of each key as many as there are descriptors
    };
    struct Place {
        std::size_t leaf, at;
    };

    Values valuesIn(Leaf const& leaf, std::size_t at) const {
        return Values(leaf.values).subspan(at * descriptors_.size(), descriptors_.size());
    }
    Place placeOf(std::size_t rank) const;
    Place placeFor(RecordKey key, Values values) const;
    std::size_t firstRankOf(std::size_t leaf) const;
    void insertAt(Place place, RecordKey key, Values values);
    void split(std::size_t leaf);
    void number(std::size_t from);
    void hasChanged(std::size_t leaf) noexcept { counted_ = leaf < counted_ ? leaf : counted_; }

    std::vector<Ref<NSSortDescriptor>> descriptors_;
    std::vector<std::unique_ptr<Leaf>> leaves_; // none is empty
    std::vector<std::uint32_t> counts_; // of the leaves' records, side by side
    mutable std::vector<std::size_t> firstRanks_; // of the leaves, right up to `counted_`
    mutable std::size_t counted_ = 0;
    KeyTable<Leaf> leafOf_;
    std::size_t size_ = 0;
};

} // namespace Tessarin
