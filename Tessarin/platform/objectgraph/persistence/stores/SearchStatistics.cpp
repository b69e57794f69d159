#include "Tessarin/platform/objectgraph/persistence/stores/SearchStatisticsPrivate.h"

#include <algorithm>

namespace Tessarin {

void addStatistics(std::span<RowRef const> rows, RankedSearch const& search, SearchStatistics& statistics) {
    statistics.found.resize(search.query.words().size());
    std::vector<std::size_t> counts, elsewhere;
    for (auto const& row : rows) {
        ++statistics.records;
        counts.assign(statistics.found.size(), 0);
        elsewhere.assign(statistics.found.size(), 0);
        auto const cells = row->layout().cells();
        for (std::size_t cell = 0; cell < cells.size(); ++cell) {
            auto const* attribute = cells[cell].property->asAttribute();
            if (!attribute || !attribute->isFullText() || !row->isPresent(cell)) continue;
            bool const isSearched = std::ranges::find(search.attributes, attribute) != search.attributes.end();
            statistics.words += static_cast<std::int64_t>(search.query.countIn(row->text(cell), isSearched ? counts : elsewhere));
        }
        for (std::size_t at = 0; at < counts.size(); ++at) statistics.found[at] += counts[at] != 0 ? 1 : 0;
    }
}

} // namespace Tessarin
