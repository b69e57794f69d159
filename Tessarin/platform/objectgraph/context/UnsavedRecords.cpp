#include "Tessarin/platform/objectgraph/context/UnsavedRecordsPrivate.h"

#include "Tessarin/platform/foundation/NSComparisonPredicate.h"
#include "Tessarin/platform/foundation/NSCompoundPredicate.h"
#include "Tessarin/platform/foundation/NSExpression.h"

#include <algorithm>

namespace Tessarin {
namespace {

/// The attribute of which a comparison says that it equals a constant; null when it says something else.
NSAttributeDescription const* comparedAttribute(NSComparisonPredicate const& comparison, NSEntityDescription const& entity) {
    auto const& left = *comparison.leftExpression();
    bool const isEquality = comparison.predicateOperatorType() == NSPredicateOperatorType::EqualTo && comparison.options() == TextOptions::None &&
                            comparison.comparisonPredicateModifier() == NSComparisonPredicateModifier::Direct;
    if (!isEquality || left.expressionType() != NSExpressionType::KeyPath || left.operand()) return nullptr;
    if (comparison.rightExpression()->expressionType() != NSExpressionType::ConstantValue) return nullptr;
    auto const* property = entity.propertyNamed(left.keyPath().text());
    return property ? property->asAttribute() : nullptr;
}

} // namespace

UnsavedRecords::UnsavedRecords(ContextState const& context, RecordReader const& reader, NSEntityDescription const& entity, bool includesSubentities)
    : entity_(entity), includesSubentities_(includesSubentities), sets_(&reader.sets()) {
    for (auto const& set : *sets_) {
        note(*set, entity);
        hasOthers_ = hasOthers_ || set->changesRelationships() || set->changesOf(*entity.rootEntity()).size() != set->changes().size();
    }
    for (auto const& object : context.changed) {
        if (isWanted(object->entity()))
            own_.insert(object->recordKey());
        else
            hasOthers_ = true;
    }
    count_ += own_.size();
}

void UnsavedRecords::note(ChangeSet const& set, NSEntityDescription const& entity) {
    count_ += set.changedRowsOf(entity);
    if (!includesSubentities_) return;
    for (auto const* child : entity.subentities()) note(set, *child);
}

bool UnsavedRecords::contains(RecordKey key) const {
    if (own_.contains(key)) return true;
    return std::ranges::any_of(*sets_, [&](auto const& set) {
        auto const* change = set->find(entity_, key);
        return change && change->changesRow() && isWanted(*change->entity);
    });
}

std::vector<RecordKey> UnsavedRecords::candidates(NSPredicate const* predicate) const {
    auto keys = own_;
    for (auto const& set : *sets_) {
        if (predicate && addEqual(*set, *predicate, keys)) continue;
        for (auto const& change : set->changesOf(*entity_.rootEntity()))
            if (change.changesRow() && isWanted(*change.entity)) keys.insert(change.key);
    }
    return {keys.begin(), keys.end()};
}

bool UnsavedRecords::addEqual(ChangeSet const& set, NSPredicate const& predicate, std::unordered_set<RecordKey>& keys) const {
    if (auto const* compound = predicate.asCompound())
        return compound->compoundPredicateType() == NSCompoundPredicateType::And &&
               std::ranges::any_of(compound->subpredicates(), [&](auto const& each) { return addEqual(set, *each, keys); });
    auto const* comparison = predicate.asComparison();
    auto const* attribute = comparison ? comparedAttribute(*comparison, entity_) : nullptr;
    if (!attribute) return false;
    auto const found = set.keysWith(*entity_.rootEntity(), *attribute, comparison->rightExpression()->constantValue());
    if (!found) return false;
    for (auto const key : *found)
        if (contains(key)) keys.insert(key);
    return true;
}

} // namespace Tessarin
