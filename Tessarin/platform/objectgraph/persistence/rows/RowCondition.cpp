#include "Tessarin/platform/objectgraph/persistence/rows/RowConditionPrivate.h"

#include "Tessarin/platform/foundation/predicates/NSComparisonPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSCompoundPredicate.h"
#include "Tessarin/platform/objectgraph/model/NSAttributeDescription.h"
#include "Tessarin/platform/objectgraph/model/NSRelationshipDescription.h"

#include <algorithm>

namespace Tessarin {
namespace {

/// What stands for a record may be somebody's object, which belongs to that one's queue.
bool isPlain(Value const& constant) {
    return constant.kind() != Value::Kind::Object && std::ranges::all_of(constant.list(), isPlain) &&
           std::ranges::all_of(constant.set(), isPlain);
}

bool isOfRow(NSExpression const& expression, NSEntityDescription const& entity) {
    switch (expression.expressionType()) {
    case NSExpressionType::ConstantValue: return isPlain(expression.constantValue());
    case NSExpressionType::Aggregate:
        return std::ranges::all_of(expression.collection(), [&](auto const& each) { return isOfRow(*each, entity); });
    case NSExpressionType::KeyPath: {
        if (expression.operand()) return false;
        auto const* property = entity.propertyNamed(expression.keyPath().text());
        return property && property->asAttribute() && !property->isTransient();
    }
    default: return false;
    }
}

bool isOfRow(NSPredicate const& predicate, NSEntityDescription const& entity) {
    if (auto const* compound = predicate.asCompound())
        return std::ranges::all_of(compound->subpredicates(), [&](auto const& each) { return isOfRow(*each, entity); });
    if (auto const* comparison = predicate.asComparison())
        return isOfRow(*comparison->leftExpression(), entity) && isOfRow(*comparison->rightExpression(), entity);
    return predicate.predicateType() == NSPredicateType::Value;
}

/// The to-one relationship of which a comparison says where it leads; null when it says something else.
NSRelationshipDescription const* comparedLink(NSComparisonPredicate const& comparison, NSEntityDescription const& entity) {
    auto const& left = *comparison.leftExpression();
    auto const type = comparison.predicateOperatorType();
    bool const isEquality = (type == NSPredicateOperatorType::EqualTo || type == NSPredicateOperatorType::In) &&
                            comparison.comparisonPredicateModifier() == NSComparisonPredicateModifier::Direct &&
                            left.expressionType() == NSExpressionType::KeyPath && !left.operand() &&
                            comparison.rightExpression()->expressionType() == NSExpressionType::ConstantValue;
    auto const* property = isEquality ? entity.propertyNamed(left.keyPath().text()) : nullptr;
    auto const* relationship = property && !property->isTransient() ? property->asRelationship() : nullptr;
    return relationship && !relationship->isToMany() ? relationship : nullptr;
}

/// The keys of all records that it may lead to; none where one of them is none.
std::vector<RecordKey> linkedKeys(NSComparisonPredicate const& comparison,
                                  FunctionRef<std::vector<RecordKey>(Value const&)> keysOf) {
    auto const& constant = comparison.rightExpression()->constantValue();
    if (comparison.predicateOperatorType() == NSPredicateOperatorType::EqualTo) return keysOf(constant);
    std::vector<RecordKey> all;
    auto const add = [&](Value const& member) {
        auto const keys = keysOf(member);
        all.insert(all.end(), keys.begin(), keys.end());
        return !keys.empty();
    };
    bool const areRecords = std::ranges::all_of(constant.list(), add) && std::ranges::all_of(constant.set(), add);
    if (!areRecords) return {};
    std::ranges::sort(all); // each once
    all.erase(std::ranges::unique(all).begin(), all.end());
    return all;
}

RowCondition ofLink(NSComparisonPredicate const& comparison, NSRelationshipDescription const& relationship,
                    std::vector<RecordKey> keys) {
    List values;
    for (auto const key : keys) values.push_back(Value(key));
    auto predicate = NSComparisonPredicate::predicateWithLeftExpression(
        comparison.leftExpression(), NSExpression::expressionForConstantValue(std::move(values)), NSPredicateOperatorType::In);
    return {predicate, true, {&relationship, std::move(keys)}};
}

} // namespace

RowCondition rowConditionOf(Ref<NSPredicate> const& predicate, NSEntityDescription const& entity,
                            FunctionRef<std::vector<RecordKey>(Value const&)> keysOf) {
    if (isOfRow(*predicate, entity)) return {predicate, true, {}};
    if (auto const* comparison = predicate->asComparison())
        if (auto const* relationship = comparedLink(*comparison, entity))
            if (auto keys = linkedKeys(*comparison, keysOf); !keys.empty())
                return ofLink(*comparison, *relationship, std::move(keys));
    auto const* compound = predicate->asCompound();
    if (!compound || compound->compoundPredicateType() != NSCompoundPredicateType::And) return {};
    RowCondition all{nullptr, true, {}};
    std::vector<Ref<NSPredicate>> parts;
    for (auto const& part : compound->subpredicates()) {
        auto condition = rowConditionOf(part, entity, keysOf);
        all.isWhole = all.isWhole && condition.isWhole;
        if (condition.link.relationship) all.link = std::move(condition.link);
        if (condition.predicate) parts.push_back(std::const_pointer_cast<NSPredicate>(condition.predicate));
    }
    if (!parts.empty()) all.predicate = NSCompoundPredicate::andPredicateWithSubpredicates(std::move(parts));
    return all;
}

/// Answers as the object of the row would, for the stored attributes; with keys for whom it leads to.
class RowEvaluation::Values : public NSObject {
public:
    Value valueForKey(std::string_view key) override { return storedValue(*row, key); }
    Row const* row = nullptr;
};

RowEvaluation::RowEvaluation(NSPredicate const& condition)
    : condition_(condition), values_(make<Values>()), asValue_(Ref<NSObject>(values_)) {}
RowEvaluation::~RowEvaluation() = default;

bool RowEvaluation::isFulfilledBy(Row const& row) const {
    values_->row = &row;
    return condition_.evaluateWithObject(asValue_);
}

Value storedValue(Row const& row, std::string_view name) {
    auto const* property = row.entity().propertyNamed(name);
    auto const cell = property ? row.layout().cellOf(property->index()) : RowLayout::noCell;
    if (cell == RowLayout::noCell) return {};
    if (property->asRelationship()) return Value(row.reference(static_cast<std::size_t>(cell)));
    return row.value(static_cast<std::size_t>(cell));
}

} // namespace Tessarin
