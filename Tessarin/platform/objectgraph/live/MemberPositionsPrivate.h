#pragma once
#include "Tessarin/platform/objectgraph/live/ResultOrderPrivate.h"
#include <span>
#include <vector>

namespace Tessarin {

/// Numbers by which the members of an ordered relationship sort as they stand. Those that a list has stay where they can, so that
/// only what was really moved counts as moved; absent where there is no number left between two neighbours.
std::optional<std::vector<double>> positionsOf(std::span<RecordKey const> members, ResultOrder const& list);

} // namespace Tessarin
