#include "Tessarin/platform/objectgraph/persistence/rows/ChangeOrderPrivate.h"

#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"

#include <algorithm>

namespace Tessarin {
namespace {

constexpr std::size_t fewest = 256; // that are sorted: the first rows of a list, and as many that are looked at in vain

std::string nameOf(NSEntityDescription const& tree, ChangeOrder::Descriptors descriptors) {
    auto name = tree.name() + ":";
    for (auto const& each : descriptors)
        name += each->key() + (each->ascending() ? "+" : "-") + std::to_string(static_cast<int>(each->comparison())) + ",";
    return name;
}

struct Keyed {
    std::uint32_t at;
    RecordKey key;
    std::vector<Value> values;
};

Value valueOf(Row const& row, std::string const& attribute) {
    auto const* property = row.entity().propertyNamed(attribute);
    auto const cell = property ? row.layout().cellOf(property->index()) : RowLayout::noCell;
    return cell == RowLayout::noCell ? Value() : row.value(static_cast<std::size_t>(cell));
}

std::vector<Keyed> insertionsIn(std::span<RecordChange const> changes, ChangeOrder::Descriptors descriptors) {
    std::vector<Keyed> all;
    for (std::uint32_t at = 0; at < changes.size(); ++at) {
        if (changes[at].kind != RecordChange::Kind::Insert) continue;
        auto& entry = all.emplace_back(Keyed{at, changes[at].key, {}});
        entry.values.reserve(descriptors.size());
        for (auto const& each : descriptors) entry.values.push_back(valueOf(*changes[at].after, each->key()));
    }
    return all;
}

} // namespace

std::shared_ptr<ChangeOrder::First const> ChangeOrder::first(ChangeSet const& set, NSEntityDescription const& tree,
                                                             Descriptors descriptors, std::size_t count) const {
    auto const name = nameOf(tree, descriptors);
    {
        std::lock_guard const hold(mutex_);
        auto const& known = answers_[name];
        if (known && (known->isAll || known->places.size() >= count)) return known;
    }
    auto all = insertionsIn(set.changesOf(tree), descriptors);
    auto const wanted = std::min(all.size(), std::max(count, fewest));
    std::ranges::partial_sort(all, all.begin() + static_cast<std::ptrdiff_t>(wanted), [&](Keyed const& a, Keyed const& b) {
        for (std::size_t at = 0; at < descriptors.size(); ++at)
            if (auto const order = descriptors[at]->compareKeys(a.values[at], b.values[at]); order != 0) return order < 0;
        return isBeforeByKey(a.key, b.key);
    });
    auto answer = std::make_shared<First>();
    answer->isAll = wanted == all.size();
    for (auto const& each : std::span(all).first(wanted)) answer->places.push_back(each.at);
    std::lock_guard const hold(mutex_);
    answers_[name] = answer;
    return answer;
}

} // namespace Tessarin
