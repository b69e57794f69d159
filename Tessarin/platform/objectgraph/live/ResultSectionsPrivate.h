#pragma once
#include "Tessarin/platform/objectgraph/live/LiveChanges.h"
#include <cstddef>
#include <vector>

namespace Tessarin {

/// The sections of a list in their order, and which of them a result stands in.
class ResultSections {
public:
    std::vector<LiveSection> const& all() const noexcept { return sections_; }
    /// How many results stand before a section.
    std::size_t firstRankOf(std::size_t section) const;
    /// The section of the result at a rank; `rank` becomes its row.
    std::size_t sectionOf(std::size_t& rank) const;

    void insert(std::size_t section, Value name);
    void erase(std::size_t section);
    void add(std::size_t section, std::ptrdiff_t count);
    void clear();

private:
    std::vector<LiveSection> sections_;
    mutable std::vector<std::size_t> firstRanks_; // right up to `counted_`
    mutable std::size_t counted_ = 0;
};

} // namespace Tessarin
