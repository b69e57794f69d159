#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/persistence/stores/RecordKey.h"
#include <vector>

namespace Tessarin {

/// Keys of neighbours, from the first to the last.
struct KeyRange {
    RecordKey first, last;
};
/// Permanent keys, in whatever order and perhaps twice, as ranges in order.
TESSARIN_API std::vector<KeyRange> rangesOf(std::vector<RecordKey> keys);
/// The same of ranges that may overlap.
std::vector<KeyRange> joined(std::vector<KeyRange> ranges);

} // namespace Tessarin
