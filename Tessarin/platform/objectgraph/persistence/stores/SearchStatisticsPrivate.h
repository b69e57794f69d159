#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/Row.h"
#include "Tessarin/platform/objectgraph/query/SearchRankPrivate.h"

namespace Tessarin {

/// Counts records with their words, for who has no index of them: all texts are taken apart.
void addStatistics(std::span<RowRef const> rows, RankedSearch const& search, SearchStatistics& statistics);

} // namespace Tessarin
