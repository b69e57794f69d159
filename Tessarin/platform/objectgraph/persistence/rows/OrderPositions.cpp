#include "Tessarin/platform/objectgraph/persistence/rows/OrderPositionsPrivate.h"

#include <algorithm>
#include <iterator>

namespace Tessarin {
namespace {

constexpr std::int64_t step = 1024;

/// Which members may keep their positions: a longest ascending subsequence.
std::vector<bool> keptOf(std::span<OrderedMember const> order) {
    std::vector<std::size_t> ends;             // ends[n]: where the lowest-ending ascent of n + 1 members ends
    std::vector<std::size_t> previous(order.size());
    for (std::size_t at = 0; at < order.size(); ++at) {
        if (!order[at].position) continue;
        auto const place =
            std::ranges::lower_bound(ends, *order[at].position, {}, [&](std::size_t end) { return *order[end].position; });
        previous[at] = place == ends.begin() ? order.size() : *std::prev(place);
        if (place == ends.end())
            ends.push_back(at);
        else
            *place = at;
    }
    std::vector<bool> kept(order.size());
    for (auto at = ends.empty() ? order.size() : ends.back(); at != order.size(); at = previous[at]) kept[at] = true;
    return kept;
}

std::vector<OrderedMember> renumbered(std::span<OrderedMember const> order) {
    std::vector<OrderedMember> changed;
    for (std::size_t at = 0; at < order.size(); ++at) {
        auto const position = static_cast<std::int64_t>(at + 1) * step;
        if (order[at].position != position) changed.push_back({order[at].member, position});
    }
    return changed;
}

} // namespace

std::vector<OrderedMember> changedPositions(std::span<OrderedMember const> order) {
    auto const kept = keptOf(order);
    std::vector<OrderedMember> changed;
    std::optional<std::int64_t> before; // of the last one that is placed
    for (std::size_t at = 0; at < order.size();) {
        if (kept[at]) {
            before = order[at++].position;
            continue;
        }
        auto end = at;
        while (end < order.size() && !kept[end]) ++end;
        auto const count = static_cast<std::int64_t>(end - at);
        auto low = before.value_or(end < order.size() ? *order[end].position - (count + 1) * step : 0);
        auto const high = end < order.size() ? *order[end].position : low + (count + 1) * step;
        if (high - low <= count) return renumbered(order);
        for (std::int64_t index = 1; at < end; ++at, ++index)
            changed.push_back({order[at].member, low + (high - low) * index / (count + 1)});
        before = changed.back().position;
    }
    return changed;
}

} // namespace Tessarin
