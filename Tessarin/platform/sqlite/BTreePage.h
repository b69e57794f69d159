#pragma once
#include "Tessarin/platform/sqlite/BigEndian.h"
#include "Tessarin/platform/sqlite/SnapshotPages.h"

namespace Tessarin::SQLite {

/// A page of a table or an index: cells in order, of which those of an inner page lead to the pages before them. Nothing that it
/// says is believed before it is compared with its size: a file may be damaged, or made to do harm.
class BTreePage {
public:
    /// What its first byte says.
    struct Kinds {
        std::byte inner, leaf;
    };
    static constexpr Kinds ofTable{std::byte{5}, std::byte{13}}, ofIndex{std::byte{2}, std::byte{10}};
    static constexpr int deepest = 20;

    BTreePage(SnapshotPages::Page page, std::size_t usable, Kinds kinds) noexcept : start_(page.data()), usable_(usable) {
        if (page.empty() || (page.front() != kinds.inner && page.front() != kinds.leaf)) return;
        isInner_ = page.front() == kinds.inner;
        count_ = bigEndian<std::uint16_t>(start_ + 3);
        isSound_ = header() + count_ * std::size_t{2} <= usable;
    }

    bool isSound() const noexcept { return isSound_; }
    bool isInner() const noexcept { return isInner_; }
    std::size_t count() const noexcept { return count_; }
    std::byte const* start() const noexcept { return start_; }
    /// Behind its last byte.
    std::byte const* end() const noexcept { return start_ + usable_; }
    /// Where a cell begins, of an inner page behind the number of the page before it; null where that is outside.
    std::byte const* cell(std::size_t at) const noexcept {
        auto const begin = offset(at) + (isInner_ ? 4 : 0);
        return begin < usable_ ? start_ + begin : nullptr;
    }
    /// The page before that cell; behind the last one, the page after all. Once the cell is known to be inside.
    SnapshotPages::Number below(std::size_t at) const noexcept {
        return bigEndian<std::uint32_t>(start_ + (at == count_ ? 8 : offset(at)));
    }

private:
    std::size_t header() const noexcept { return isInner_ ? 12 : 8; }
    std::size_t offset(std::size_t at) const noexcept { return bigEndian<std::uint16_t>(start_ + header() + at * 2); }

    std::byte const* start_;
    std::size_t usable_;
    std::size_t count_ = 0;
    bool isInner_ = false, isSound_ = false;
};

/// The first of a page's cells of which `isBefore` is not true. It answers nothing where a cell is broken, and so does this.
template <class IsBefore> std::optional<std::size_t> firstCellNot(BTreePage const& page, IsBefore isBefore) {
    std::size_t low = 0;
    for (auto high = page.count(); low < high;) {
        auto const middle = (low + high) / 2;
        std::optional<bool> const before = isBefore(middle);
        if (!before) return {};
        if (*before)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

} // namespace Tessarin::SQLite
