#include "Tessarin/platform/objectgraph/persistence/rows/ChangeMatchesPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"

#include <algorithm>
#include <ranges>

namespace Tessarin {
namespace {

constexpr std::size_t most = 4; // that are remembered: with each key of a search that is typed it is another one

} // namespace

std::shared_ptr<ChangeMatches::Places const> ChangeMatches::known(ChangeQuestion const& question) const {
    std::lock_guard const hold(mutex_);
    auto const found = std::ranges::find_if(answers_, [&](Answer const& each) {
        return each.entity == question.entity && equal(each.condition, question.condition);
    });
    return found == answers_.end() ? nullptr : found->places;
}

std::shared_ptr<ChangeMatches::Places const> ChangeMatches::find(std::span<RecordChange const> changes, ChangeIndex const& index,
                                                                 ChangeQuestion const& question,
                                                                 std::atomic<bool> const* isGivenUp) const {
    if (auto places = known(question)) return places;
    auto places = std::make_shared<Places>();
    RowEvaluation const evaluation(*question.condition);
    auto const look = [&](std::uint32_t at) {
        auto const& change = changes[at];
        bool const isOne = change.after && change.changesRow() && change.entity->isKindOf(question.entity);
        if (isOne && evaluation.isFulfilledBy(*change.after)) places->push_back(at);
        return !isGivenUp || !isGivenUp->load(std::memory_order_relaxed);
    };
    if (auto const* relationship = question.link.relationship) {
        for (auto const key : question.link.keys)
            if (!std::ranges::all_of(index.find(changes, *relationship, key), look)) return nullptr;
    } else if (!std::ranges::all_of(std::views::iota(std::uint32_t{0}, static_cast<std::uint32_t>(changes.size())), look)) {
        return nullptr;
    }
    std::lock_guard const hold(mutex_);
    if (answers_.size() == most) answers_.erase(answers_.begin());
    answers_.push_back({question.entity, question.condition, places});
    return places;
}

} // namespace Tessarin
