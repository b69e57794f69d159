#include "Tessarin/platform/objectgraph/persistence/stores/StoreQueryPrivate.h"

#include <algorithm>

namespace Tessarin {

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
