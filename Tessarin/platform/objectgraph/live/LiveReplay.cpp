#include "Tessarin/platform/objectgraph/live/LiveReplay.h"

#include "Tessarin/platform/objectgraph/live/LiveList.h"

namespace Tessarin {
namespace {

using Kind = LiveChange::Kind;
using Place = LiveReplay::Place;

/// Where a row stands after a step; false for one that went.
bool follow(LiveChange const& step, Place& place) {
    bool const isBehind = place.section == step.section && place.row >= step.row;
    switch (step.kind) {
    case Kind::InsertSection: place.section += place.section >= step.section ? 1 : 0; return true;
    case Kind::RemoveSection: place.section -= place.section > step.section ? 1 : 0; return true;
    case Kind::Insert: place.row += isBehind ? step.count : 0; return true;
    case Kind::Remove:
        if (!isBehind) return true;
        if (place.row < step.row + step.count) return false;
        place.row -= step.count;
        return true;
    case Kind::Move:
        if (place == Place{step.section, step.row}) return place = {step.toSection, step.toRow}, true;
        if (isBehind) --place.row;
        if (place.section == step.toSection && place.row >= step.toRow) ++place.row;
        return true;
    case Kind::Update: return true;
    }
    return true;
}

} // namespace

LiveReplay::LiveReplay(LiveList const& list) {
    for (auto const& section : list.sections()) counts_.push_back(section.count);
}

void LiveReplay::take() {
    auto const& step = steps_.front();
    auto const at = counts_.begin() + static_cast<std::ptrdiff_t>(step.section);
    switch (step.kind) {
    case Kind::InsertSection: counts_.insert(at, 0); break;
    case Kind::RemoveSection: counts_.erase(at); break;
    case Kind::Insert: *at += step.count; break;
    case Kind::Remove: *at -= step.count; break;
    case Kind::Move:
        --*at;
        ++counts_[step.toSection];
        break;
    case Kind::Update: break;
    }
    steps_ = steps_.subspan(1);
}

void LiveReplay::end() {
    while (!steps_.empty()) take();
}

std::optional<Place> LiveReplay::inTheEnd(Place place) const {
    for (auto const& step : steps_)
        if (!follow(step, place)) return std::nullopt;
    return place;
}

} // namespace Tessarin
