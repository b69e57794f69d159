#include "Tessarin/platform/objectgraph/context/TypedPredicate.h"

#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>
#include <iterator>

namespace Tessarin::query {
namespace {

using Modifier = NSComparisonPredicateModifier;

Ref<NSPredicate> comparison(ComparedPath left, NSPredicateOperatorType type, Ref<NSExpression> right, TextOptions options) {
    auto modifier = Modifier::Direct;
    if (left.mode == PathMode::Any || left.mode == PathMode::None) modifier = Modifier::Any;
    if (left.mode == PathMode::All) modifier = Modifier::All;
    auto made = NSComparisonPredicate::predicateWithLeftExpression(NSExpression::expressionForKeyPath(left.keyPath),
                                                                   std::move(right), type, modifier, options);
    if (left.mode == PathMode::None) return NSCompoundPredicate::notPredicateWithSubpredicate(std::move(made));
    return made;
}

} // namespace

void ConditionParts::join(NSCompoundPredicateType join, ConditionParts const& other) {
    if (parts_.size() > 1 && join_ != join) parts_ = {predicate()};
    join_ = join;
    parts_.push_back(other.predicate());
}

void ConditionParts::negate() { parts_ = {NSCompoundPredicate::notPredicateWithSubpredicate(predicate())}; }

Ref<NSPredicate> ConditionParts::predicate() const {
    if (parts_.size() == 1) return parts_.front();
    return make<NSCompoundPredicate>(join_, parts_);
}

Ref<NSPredicate> compared(ComparedPath left, NSPredicateOperatorType type, Value right, TextOptions options) {
    return comparison(std::move(left), type, NSExpression::expressionForConstantValue(std::move(right)), options);
}

Ref<NSPredicate> comparedWithPath(ComparedPath left, NSPredicateOperatorType type, std::string_view right, TextOptions options) {
    return comparison(std::move(left), type, NSExpression::expressionForKeyPath(right), options);
}

Ref<NSPredicate> wordsFound(std::vector<std::string> const& keyPaths, std::string_view words) {
    std::vector<Ref<NSExpression>> texts;
    for (auto const& path : keyPaths) texts.push_back(NSExpression::expressionForKeyPath(path));
    return NSComparisonPredicate::predicateWithLeftExpression(NSExpression::expressionForAggregate(std::move(texts)),
                                                              NSExpression::expressionForConstantValue(words),
                                                              NSPredicateOperatorType::Finds);
}

} // namespace Tessarin::query
