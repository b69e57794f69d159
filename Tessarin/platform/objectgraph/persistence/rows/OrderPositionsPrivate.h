#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/persistence/stores/KeyTablePrivate.h"
#include <optional>
#include <span>

namespace Tessarin {

struct OrderedMember {
    RecordKey member = 0;
    std::optional<std::int64_t> position; // as it stands in the store
};

/// New positions for those members that need one so that all ascend in the order given; as few as possible. Lists are
/// numbered in wide steps, so that an insertion usually finds room between its neighbours.
TESSARIN_API std::vector<OrderedMember> changedPositions(std::span<OrderedMember const> order);

} // namespace Tessarin
