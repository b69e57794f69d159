#include "Tessarin/platform/objectgraph/live/LiveOutcomePrivate.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace Tessarin {

void LiveOutcome::note(RecordKey key, List* values, bool isShown) {
    bool const isHere = order_.contains(key);
    if (!isHere && values) return coming_.push_back({key, std::move(*values), key});
    if (!isHere) return;
    if (!values) return leaving_.push_back(key);
    auto const before = order_.valuesOf(key);
    if (!order_.sortsAlike(before, *values)) return moving_.push_back({key, std::move(*values), key});
    if (isShown || !std::ranges::equal(before, *values)) shown_.push_back(key);
    order_.setValues(key, *values);
}

void LiveOutcome::noteNewKey(RecordKey before, RecordKey now) {
    auto const values = order_.valuesOf(before);
    moving_.push_back({now, List(values.begin(), values.end()), before});
}

std::vector<LiveChange> LiveOutcome::apply() {
    removeLeaving();
    for (auto const& mover : moving_) move(mover);
    insertComing();
    nameShown();
    removeEmptySections();
    return std::move(steps_);
}

LiveOutcome::Place LiveOutcome::placeOf(std::size_t rank) const {
    if (!sections_) return {0, rank};
    auto const section = sections_->sectionOf(rank);
    return {section, rank};
}

/// Neighbours that come or go together are one step.
void LiveOutcome::add(LiveChange::Kind kind, Place place) {
    using Kind = LiveChange::Kind;
    if (!steps_.empty() && steps_.back().kind == kind && steps_.back().section == place.section) {
        auto& last = steps_.back();
        if (kind == Kind::Remove ? place.row + 1 == last.row : place.row == last.row + last.count) {
            if (kind == Kind::Remove) last.row = place.row;
            ++last.count;
            return;
        }
    }
    steps_.push_back({.kind = kind, .section = place.section, .row = place.row});
}

void LiveOutcome::leave(std::size_t section) {
    if (!sections_) return;
    sections_->add(section, -1);
    hasLeft_ = hasLeft_ || sections_->all()[section].count == 0;
}

void LiveOutcome::removeLeaving() {
    std::vector<std::pair<std::size_t, RecordKey>> ranked;
    ranked.reserve(leaving_.size());
    for (auto const key : leaving_) ranked.emplace_back(*order_.rankOf(key), key);
    std::ranges::sort(ranked, std::greater());
    for (auto const& [rank, key] : ranked) {
        auto const place = placeOf(rank);
        order_.erase(key);
        leave(place.section);
        add(LiveChange::Kind::Remove, place);
    }
}

std::size_t LiveOutcome::sectionFor(List const& values) {
    auto const& all = sections_->all();
    auto const& descriptor = *order_.descriptors().front();
    auto const found = std::ranges::partition_point(
        all, [&](LiveSection const& section) { return descriptor.compareKeys(section.name, values.front()) < 0; });
    auto const section = static_cast<std::size_t>(found - all.begin());
    if (found != all.end() && descriptor.compareKeys(found->name, values.front()) == 0) return section;
    sections_->insert(section, values.front());
    steps_.push_back({.kind = LiveChange::Kind::InsertSection, .section = section});
    return section;
}

/// A result stays in its place where another key does not change that: then the list is the same.
void LiveOutcome::move(Comer const& mover) {
    bool const isRenamed = mover.key != mover.before;
    auto const target = sections_ ? sectionFor(mover.values) : 0; // before the rows are numbered
    auto const from = placeOf(*order_.rankOf(mover.before));
    order_.erase(mover.before);
    leave(from.section);
    auto const now = order_.insert(mover.key, mover.values);
    auto const row = sections_ ? now - sections_->firstRankOf(target) : now;
    if (sections_) sections_->add(target, 1);
    if (target == from.section && row == from.row) {
        if (!isRenamed) shown_.push_back(mover.key);
        return;
    }
    steps_.push_back(
        {.kind = LiveChange::Kind::Move, .section = from.section, .row = from.row, .toSection = target, .toRow = row});
    if (!isRenamed) shown_.push_back(mover.key);
}

void LiveOutcome::insertComing() {
    std::ranges::sort(coming_, [&](Comer const& a, Comer const& b) { return order_.isBefore(a.key, a.values, b.key, b.values); });
    for (auto const& comer : coming_) {
        auto const section = sections_ ? sectionFor(comer.values) : 0;
        auto const rank = order_.insert(comer.key, comer.values);
        auto const row = sections_ ? rank - sections_->firstRankOf(section) : rank;
        if (sections_) sections_->add(section, 1);
        add(LiveChange::Kind::Insert, {section, row});
    }
}

void LiveOutcome::nameShown() {
    std::vector<std::size_t> ranks;
    ranks.reserve(shown_.size());
    for (auto const key : shown_) ranks.push_back(*order_.rankOf(key));
    std::ranges::sort(ranks);
    for (auto const rank : ranks) add(LiveChange::Kind::Update, placeOf(rank));
}

void LiveOutcome::removeEmptySections() {
    if (!sections_ || !hasLeft_) return;
    for (auto section = sections_->all().size(); section-- > 0;) {
        if (sections_->all()[section].count != 0) continue;
        sections_->erase(section);
        steps_.push_back({.kind = LiveChange::Kind::RemoveSection, .section = section});
    }
}

} // namespace Tessarin
