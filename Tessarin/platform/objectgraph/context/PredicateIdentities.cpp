#include "Tessarin/platform/objectgraph/context/PredicateIdentitiesPrivate.h"

#include "Tessarin/platform/foundation/predicates/NSComparisonPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSCompoundPredicate.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObject.h"

#include <algorithm>

namespace Tessarin {
namespace {

bool holdsObjects(Value const& value) {
    return value.objectAs<NSManagedObject>() || std::ranges::any_of(value.list(), holdsObjects) ||
           std::ranges::any_of(value.set(), holdsObjects);
}

Value withIdentities(Value const& value) {
    if (auto const object = value.objectAs<NSManagedObject>()) return Value(object->objectID());
    if (value.kind() == Value::Kind::List) {
        List members;
        for (auto const& member : value.list()) members.push_back(withIdentities(member));
        return members;
    }
    if (value.kind() != Value::Kind::Set) return value;
    ValueSet members;
    for (auto const& member : value.set()) members.insert(withIdentities(member));
    return members;
}

/// What starts at an object reads its values: that is left as it is.
Ref<NSExpression> withIdentities(Ref<NSExpression> const& expression) {
    if (expression->expressionType() == NSExpressionType::ConstantValue && holdsObjects(expression->constantValue()))
        return NSExpression::expressionForConstantValue(withIdentities(expression->constantValue()));
    if (expression->expressionType() != NSExpressionType::Aggregate) return expression;
    std::vector<Ref<NSExpression>> members;
    for (auto const& member : expression->collection()) members.push_back(withIdentities(member));
    return std::ranges::equal(members, expression->collection()) ? expression
                                                                 : NSExpression::expressionForAggregate(std::move(members));
}

} // namespace

Ref<NSPredicate> withIdentities(Ref<NSPredicate> const& predicate) {
    if (auto const* compound = predicate ? predicate->asCompound() : nullptr) {
        std::vector<Ref<NSPredicate>> parts;
        for (auto const& part : compound->subpredicates()) parts.push_back(withIdentities(part));
        return std::ranges::equal(parts, compound->subpredicates())
                   ? predicate
                   : make<NSCompoundPredicate>(compound->compoundPredicateType(), std::move(parts));
    }
    auto const* comparison = predicate ? predicate->asComparison() : nullptr;
    if (!comparison) return predicate;
    auto const left = withIdentities(comparison->leftExpression()), right = withIdentities(comparison->rightExpression());
    bool const isSame = left == comparison->leftExpression() && right == comparison->rightExpression();
    return isSame ? predicate
                  : NSComparisonPredicate::predicateWithLeftExpression(left, right, comparison->predicateOperatorType(),
                                                                       comparison->comparisonPredicateModifier(),
                                                                       comparison->options());
}

} // namespace Tessarin
