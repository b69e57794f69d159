#include "Tessarin/platform/objectgraph/persistence/stores/UniqueValuesPrivate.h"

#include <ranges>

namespace Tessarin {

using Kind = RecordChange::Kind;

void UniqueValues::exchange(RecordKey key, Row const* before, Row const* after) {
    for (auto const* constraint : constraints_.of((after ? after : before)->entity())) {
        auto& holders = holders_[constraint->index];
        auto const was = before ? constraint->valuesOf(*before) : std::nullopt;
        auto const is = after ? constraint->valuesOf(*after) : std::nullopt;
        if (was == is) continue;
        if (was) // somebody else may have taken them in the same save
            if (auto const found = holders.find(*was); found != holders.end() && found->second == key) holders.erase(found);
        if (is) holders[*is] = key;
    }
}

RecordKey UniqueValues::holder(UniqueConstraint const& constraint, std::string const& values) const {
    auto const found = holders_[constraint.index].find(values);
    return found == holders_[constraint.index].end() ? 0 : found->second;
}

RecordKey UniqueTrial::holder(UniqueConstraint const& constraint, std::string const& values) const {
    if (constraint.index < holders_.size())
        if (auto const found = holders_[constraint.index].find(values); found != holders_[constraint.index].end())
            return found->second;
    return values_.holder(constraint, values);
}

void UniqueTrial::setHolder(UniqueConstraint const& constraint, std::string const& values, RecordKey key) {
    if (holders_.empty()) holders_.resize(values_.constraints().count());
    steps_.push_back({constraint.index, values, holder(constraint, values)});
    holders_[constraint.index][values] = key;
}

RowRef UniqueTrial::rowOf(RecordChange const& change) const {
    auto const found = rows_.find(change.key);
    return found == rows_.end() ? stored_(*change.entity, change.key) : found->second;
}

Ref<NSError> UniqueTrial::add(ChangeSet const& set) {
    steps_.clear();
    std::vector<std::pair<RecordChange const*, UniqueConstraint const*>> taking;
    std::vector<RecordChange const*> changed;
    for (auto const& change : set.changes()) { // first all give up what they had
        auto const& constraints = values_.constraints().of(*change.entity);
        if (constraints.empty() || !change.changesRow()) continue;
        auto const before = rowOf(change);
        if (!before && change.kind == Kind::Update) continue; // made on a record that an ancestor never saved
        changed.push_back(&change);
        for (auto const* constraint : constraints) {
            if (auto const was = before ? constraint->valuesOf(*before) : std::nullopt;
                was && holder(*constraint, *was) == change.key)
                setHolder(*constraint, *was, 0);
            if (change.after) taking.emplace_back(&change, constraint);
        }
    }
    for (auto const& [change, constraint] : taking) {
        auto const values = constraint->valuesOf(*change->after);
        if (!values) continue;
        if (auto const other = holder(*constraint, *values); other == 0 || other == change->key) {
            setHolder(*constraint, *values, change->key);
            continue;
        }
        for (auto const& step : std::views::reverse(steps_)) holders_[step.constraint][step.values] = step.holder;
        return constraint->violation();
    }
    for (auto const* change : changed) rows_[change->key] = change->after;
    return nullptr;
}

} // namespace Tessarin
