#include "Tessarin/platform/objectgraph/persistence/stores/StoreQueryPrivate.h"

#include <algorithm>

namespace Tessarin {

std::vector<KeyRange> joined(std::vector<KeyRange> ranges) {
    if (!std::ranges::is_sorted(ranges, {}, &KeyRange::first)) std::ranges::sort(ranges, {}, &KeyRange::first);
    std::size_t kept = 0;
    for (auto const& each : ranges)
        if (kept != 0 && each.first <= ranges[kept - 1].last + 1)
            ranges[kept - 1].last = std::max(ranges[kept - 1].last, each.last);
        else
            ranges[kept++] = each;
    ranges.resize(kept);
    return ranges;
}

std::vector<KeyRange> rangesOf(std::vector<RecordKey> keys) {
    if (!std::ranges::is_sorted(keys)) std::ranges::sort(keys);
    std::vector<KeyRange> ranges;
    for (auto const key : keys) {
        if (key <= 0 || (!ranges.empty() && ranges.back().last == key)) continue;
        if (ranges.empty() || ranges.back().last + 1 != key)
            ranges.push_back({key, key});
        else
            ranges.back().last = key;
    }
    return ranges;
}

} // namespace Tessarin
