#include "Tessarin/platform/objectgraph/persistence/rows/ChangeMergesPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"

#include <algorithm>
#include <ranges>

namespace Tessarin {
namespace {

constexpr std::size_t few = 1024; // changes that are looked at without many words

bool isUpdate(RecordChange const& change) { return change.kind == RecordChange::Kind::Update && change.changesRow(); }

/// Whether the last set before it that has changed the record has left another row.
bool isMerged(RecordChange const& update, ChangeMerges::Sets earlier) {
    for (auto const& set : std::views::reverse(earlier))
        if (auto const* change = set->find(*update.entity, update.key); change && change->changesRow())
            return change->after != update.before;
    return false;
}

std::size_t countOf(NSEntityDescription const& tree, ChangeMerges::Sets sets) {
    std::size_t count = 0;
    for (auto const& set : sets) count += set->changesOf(tree).size();
    return count;
}

std::vector<RecordKey> keysOfMerged(ChangeSet const& set, NSEntityDescription const& tree, ChangeMerges::Sets earlier) {
    std::vector<RecordKey> keys;
    auto const add = [&](RecordChange const& change) {
        if (isUpdate(change) && isMerged(change, earlier)) keys.push_back(change.key);
    };
    auto const changes = set.changesOf(tree);
    if (changes.size() <= countOf(tree, earlier)) {
        std::ranges::for_each(changes, add);
        return keys;
    }
    for (auto const& each : earlier)
        for (auto const& change : each->changesOf(tree))
            if (auto const* later = set.find(tree, change.key)) add(*later);
    return keys;
}

} // namespace

ChangeMerges::Keys ChangeMerges::known(NSEntityDescription const& tree, Sets earlier) const {
    std::lock_guard const hold(mutex_);
    auto const found = answers_.find(&tree);
    bool const isOfThose = found != answers_.end() && std::ranges::equal(found->second.earlier, earlier, {}, {},
                                                                         [](auto const& each) { return each->number(); });
    return isOfThose ? found->second.keys : nullptr;
}

bool ChangeMerges::knows(ChangeSet const& set, NSEntityDescription const& tree, Sets earlier) const {
    bool const isQuick = !set.updatesOf(tree) || std::min(set.changesOf(tree).size(), countOf(tree, earlier)) <= few;
    return isQuick || known(tree, earlier);
}

ChangeMerges::Keys ChangeMerges::find(ChangeSet const& set, NSEntityDescription const& tree, Sets earlier) const {
    static auto const none = std::make_shared<std::vector<RecordKey> const>();
    if (!set.updatesOf(tree) || countOf(tree, earlier) == 0) return none;
    if (auto keys = known(tree, earlier)) return keys;
    auto keys = std::make_shared<std::vector<RecordKey> const>(keysOfMerged(set, tree, earlier));
    Answer answer{{}, keys};
    for (auto const& each : earlier) answer.earlier.push_back(each->number());
    std::lock_guard const hold(mutex_);
    answers_[&tree] = std::move(answer);
    return keys;
}

} // namespace Tessarin
