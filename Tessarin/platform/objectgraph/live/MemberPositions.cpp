#include "Tessarin/platform/objectgraph/live/MemberPositionsPrivate.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Tessarin {
namespace {

constexpr double distance = 1 << 20; // between two neighbours at first
constexpr double nowhere = std::numeric_limits<double>::quiet_NaN();

/// The longest run of positions that rise, whatever stands between them: the others become NaN.
void keepRising(std::vector<double>& positions) {
    static constexpr std::size_t none = static_cast<std::size_t>(-1);
    std::vector<std::size_t> ends, before(positions.size(), none); // ends[n]: where the lowest run of n + 1 ends
    for (std::size_t at = 0; at < positions.size(); ++at) {
        if (std::isnan(positions[at])) continue;
        auto const end = std::ranges::lower_bound(ends, positions[at], {}, [&](std::size_t place) { return positions[place]; });
        if (end != ends.begin()) before[at] = *std::prev(end);
        end == ends.end() ? ends.push_back(at) : static_cast<void>(*end = at);
    }
    std::vector<double> kept(positions.size(), nowhere);
    for (auto at = ends.empty() ? none : ends.back(); at != none; at = before[at]) kept[at] = positions[at];
    positions = std::move(kept);
}

} // namespace

std::optional<std::vector<double>> positionsOf(std::span<RecordKey const> members, ResultOrder const& list) {
    std::vector<double> positions;
    positions.reserve(members.size());
    for (auto const key : members) positions.push_back(list.contains(key) ? list.valuesOf(key).front().number() : nowhere);
    keepRising(positions);
    for (std::size_t at = 0; at < positions.size();) {
        auto const next =
            static_cast<std::size_t>(std::ranges::find_if(positions.begin() + static_cast<std::ptrdiff_t>(at), positions.end(),
                                                          [](double position) { return !std::isnan(position); }) -
                                     positions.begin());
        auto const count = static_cast<double>(next - at);
        bool const isFirst = at == 0, isLast = next == positions.size();
        auto const low = !isFirst ? positions[at - 1] : isLast ? 0 : positions[next] - distance * (count + 1);
        auto const high = isLast ? low + distance * (count + 1) : positions[next];
        auto const step = (high - low) / (count + 1);
        if (next != at && (step < 1e-6 || std::abs(high) > 1e15)) return std::nullopt;
        for (auto place = at; place < next; ++place) positions[place] = low + step * static_cast<double>(place - at + 1);
        at = next + 1;
    }
    return positions;
}

} // namespace Tessarin
