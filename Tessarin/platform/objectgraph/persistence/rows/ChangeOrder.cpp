#include "Tessarin/platform/objectgraph/persistence/rows/ChangeOrderPrivate.h"

#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"
#include "Tessarin/platform/objectgraph/query/SearchRankPrivate.h"

#include <algorithm>

namespace Tessarin {
namespace {

constexpr std::size_t fewest = 256; // that are sorted: the first rows of a list, and as many that are looked at in vain
constexpr std::size_t most = 16;    // orders that are remembered

struct Keyed {
    std::uint32_t at;
    RecordKey key;
    std::vector<Value> values;
};

/// What a set makes of records of the entity: no deletions, nor what changes only to-many relationships.
std::vector<Keyed> recordsIn(std::span<RecordChange const> changes, ChangeQuestion const& question,
                             ChangeMatches::Found const* matches) {
    std::vector<Keyed> all;
    auto const add = [&](std::uint32_t at, std::span<std::uint32_t const> wordCounts) {
        auto& entry = all.emplace_back(Keyed{at, changes[at].key, {}});
        entry.values.reserve(question.order.size());
        for (auto const& each : question.order)
            entry.values.push_back(each->key() == searchRankKey ? Value(question.ranking->rankOf(wordCounts))
                                                                : storedValue(*changes[at].after, each->key()));
    };
    if (matches) {
        auto const counts = question.search ? question.search->countsOfOne() : 0;
        for (std::size_t place = 0; place < matches->places.size(); ++place)
            add(matches->places[place], std::span(matches->wordCounts).subspan(place * counts, counts));
        return all;
    }
    for (std::uint32_t at = 0; at < changes.size(); ++at)
        if (changes[at].after && changes[at].changesRow() && changes[at].entity->isKindOf(question.entity)) add(at, {});
    return all;
}

bool isRankedAlike(ChangeQuestion const& a, ChangeQuestion const& b) {
    return a.ranking == b.ranking || (a.ranking && b.ranking && a.ranking->isAlike(*b.ranking));
}

} // namespace

std::shared_ptr<ChangeOrder::First const> ChangeOrder::known(ChangeQuestion const& question) const {
    std::lock_guard const hold(mutex_);
    auto const found = std::ranges::find_if(
        answers_, [&](Answer const& each) { return isRankedAlike(each.question, question) && each.question.isAlike(question); });
    bool const isEnough = found != answers_.end() && (found->first->isAll || found->first->places.size() >= question.count);
    return isEnough ? found->first : nullptr;
}

std::shared_ptr<ChangeOrder::First const> ChangeOrder::first(ChangeSet const& set, ChangeQuestion const& question,
                                                             std::size_t count, Matches matches) const {
    if (auto known = this->known(question); known && (known->isAll || known->places.size() >= count)) return known;
    auto const matching = question.condition ? matches() : nullptr;
    if (question.condition && !matching) return nullptr;
    auto all = recordsIn(set.changesOf(*question.entity->rootEntity()), question, matching.get());
    auto const wanted = std::min(all.size(), std::max(count, fewest));
    std::ranges::partial_sort(all, all.begin() + static_cast<std::ptrdiff_t>(wanted), [&](Keyed const& a, Keyed const& b) {
        for (std::size_t at = 0; at < question.order.size(); ++at)
            if (auto const order = question.order[at]->compareKeys(a.values[at], b.values[at]); order != 0) return order < 0;
        return isBeforeByKey(a.key, b.key);
    });
    auto answer = std::make_shared<First>();
    answer->isAll = wanted == all.size();
    for (auto const& each : std::span(all).first(wanted)) answer->places.push_back(each.at);
    std::lock_guard const hold(mutex_);
    std::erase_if(answers_, [&](Answer const& each) { return each.question.isAlike(question); });
    if (answers_.size() == most) answers_.erase(answers_.begin());
    answers_.push_back({question, answer});
    return answer;
}

} // namespace Tessarin
