#include "Tessarin/platform/objectgraph/persistence/rows/ChangeMatchesPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"
#include "Tessarin/platform/objectgraph/query/SearchRankPrivate.h"

#include <algorithm>
#include <ranges>

namespace Tessarin {
namespace {

constexpr std::size_t most = 4; // that are remembered: with each key of a search that is typed it is another one

/// Hands on where the condition may be fulfilled, until `look` gives false.
bool eachPlace(std::span<RecordChange const> changes, ChangeIndex const& index, ChangeQuestion const& question,
               FunctionRef<bool(std::uint32_t)> look) {
    auto const* relationship = question.link.relationship;
    if (relationship && !(question.equal && index.count(changes, *question.equal, question.equalTo) <= ChangeQuestion::few))
        return std::ranges::all_of(question.link.keys, [&](RecordKey key) {
            return std::ranges::all_of(index.find(changes, *relationship, key), look);
        });
    if (question.equal)
        if (auto const places = index.find(changes, *question.equal, question.equalTo)) return std::ranges::all_of(*places, look);
    return std::ranges::all_of(std::views::iota(std::uint32_t{0}, static_cast<std::uint32_t>(changes.size())), look);
}

void countWords(RankedSearch const& search, Row const& row, std::vector<std::uint32_t>& counts) {
    auto const textOf = [&](NSAttributeDescription const& attribute) {
        auto const cell = row.layout().cellOf(attribute.index());
        bool const isThere = cell != RowLayout::noCell && row.isPresent(static_cast<std::size_t>(cell));
        return isThere ? row.text(static_cast<std::size_t>(cell)) : std::string_view();
    };
    search.appendCounts(row.entity(), textOf, counts);
}

} // namespace

std::shared_ptr<ChangeMatches::Found const> ChangeMatches::known(ChangeQuestion const& question) const {
    std::lock_guard const hold(mutex_);
    auto const found = std::ranges::find_if(answers_, [&](Answer const& each) {
        return each.entity == question.entity && (each.isCounted || !question.search) &&
               equal(each.condition, question.condition);
    });
    return found == answers_.end() ? nullptr : found->found;
}

std::shared_ptr<ChangeMatches::Found const> ChangeMatches::find(std::span<RecordChange const> changes, ChangeIndex const& index,
                                                                ChangeQuestion const& question,
                                                                std::atomic<bool> const* isGivenUp) const {
    if (auto found = known(question)) return found;
    auto found = std::make_shared<Found>();
    RowEvaluation const evaluation(*question.condition);
    auto const look = [&](std::uint32_t at) {
        auto const& change = changes[at];
        bool const isOne = change.after && change.changesRow() && change.entity->isKindOf(question.entity);
        if (isOne && evaluation.isFulfilledBy(*change.after)) {
            found->places.push_back(at);
            if (question.search) countWords(*question.search, *change.after, found->wordCounts);
        }
        return !isGivenUp || !isGivenUp->load(std::memory_order_relaxed);
    };
    if (!eachPlace(changes, index, question, look)) return nullptr;
    std::lock_guard const hold(mutex_);
    if (answers_.size() == most) answers_.erase(answers_.begin());
    answers_.push_back({question.entity, question.condition, question.search != nullptr, found});
    return found;
}

} // namespace Tessarin
