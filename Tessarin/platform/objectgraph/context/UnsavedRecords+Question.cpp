// What a request asks of change sets, as far as its predicate and order say it to them.
#include "Tessarin/platform/foundation/predicates/NSComparisonPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSCompoundPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/objectgraph/context/UnsavedRecordsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ValueHashPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/IdentityTablePrivate.h"
#include "Tessarin/platform/objectgraph/query/SearchRankPrivate.h"

#include <algorithm>

namespace Tessarin {
namespace {

using Operator = NSPredicateOperatorType;
using ComparisonTaker = FunctionRef<bool(NSComparisonPredicate const& comparison)>;

/// Hands the comparisons on that each result must fulfil, until one is taken; false when none was.
bool takeComparison(NSPredicate const& predicate, ComparisonTaker take) {
    if (auto const* compound = predicate.asCompound())
        return compound->compoundPredicateType() == NSCompoundPredicateType::And &&
               std::ranges::any_of(compound->subpredicates(), [&](auto const& each) { return takeComparison(*each, take); });
    auto const* comparison = predicate.asComparison();
    bool const isPlain = comparison && comparison->comparisonPredicateModifier() == NSComparisonPredicateModifier::Direct &&
                         comparison->options() == TextOptions::None;
    return isPlain && take(*comparison);
}

/// The property of which a comparison says that it equals a constant; null when it says something else.
NSPropertyDescription const* comparedProperty(NSComparisonPredicate const& comparison, NSEntityDescription const& entity) {
    auto const& left = *comparison.leftExpression();
    bool const isEquality = comparison.predicateOperatorType() == Operator::EqualTo &&
                            left.expressionType() == NSExpressionType::KeyPath && !left.operand() &&
                            comparison.rightExpression()->expressionType() == NSExpressionType::ConstantValue;
    auto const* property = isEquality ? entity.propertyNamed(left.keyPath().text()) : nullptr;
    return property && !property->isTransient() ? property : nullptr;
}

/// Hands the equalities of stored properties on that each result must fulfil, until one is taken; false when none was.
bool takeEquality(NSPredicate const& predicate, NSEntityDescription const& entity,
                  FunctionRef<bool(NSPropertyDescription const& property, Value const& constant)> take) {
    return takeComparison(predicate, [&](NSComparisonPredicate const& comparison) {
        auto const* property = comparedProperty(comparison, entity);
        return property && take(*property, comparison.rightExpression()->constantValue());
    });
}

/// The records that a predicate allows by their identities; absent when it does not speak of them.
std::optional<std::vector<RecordKey>> namedRecords(NSPredicate const& predicate, IdentityTable const& table) {
    std::optional<std::vector<RecordKey>> keys;
    takeComparison(predicate, [&](NSComparisonPredicate const& comparison) {
        bool const isOne = comparison.predicateOperatorType() == Operator::EqualTo;
        bool const isOfSelf = comparison.leftExpression()->expressionType() == NSExpressionType::EvaluatedObject &&
                              comparison.rightExpression()->isConstant();
        if (!isOfSelf || (!isOne && comparison.predicateOperatorType() != Operator::In)) return false;
        auto const value = comparison.rightExpression()->expressionValueWithObject({});
        if (!isOne && value.kind() != Value::Kind::List && value.kind() != Value::Kind::Set) return false;
        keys.emplace();
        forEachMember(value, [&](Value const& each) {
            if (auto const key = recordKeyOf(each, table); key != 0) keys->push_back(key);
            return true;
        });
        return true;
    });
    return keys;
}

constexpr std::size_t large = 1024; // changes: smaller sets are looked through wherever they are met

} // namespace

std::size_t countUpToLast(NSFetchRequest const& request) {
    static constexpr std::size_t most = SIZE_MAX / 4;
    return std::min(request.fetchLimit(), most) + std::min(request.fetchOffset(), most);
}

std::optional<std::vector<Ref<NSManagedObject>>> objectsByEquality(ContextState& context, NSPredicate const& predicate,
                                                                   NSEntityDescription const& entity) {
    std::optional<std::vector<Ref<NSManagedObject>>> found;
    takeEquality(predicate, entity, [&](NSPropertyDescription const& property, Value const& constant) {
        if (property.asAttribute()) found = context.values.find(context, *property.asAttribute(), constant);
        return found.has_value();
    });
    return found;
}

bool UnsavedRecords::isSortedByRows() const {
    return std::ranges::all_of(request_.sortDescriptors(), [&](Ref<NSSortDescriptor> const& each) {
        if (each->key() == searchRankKey) return true; // of the predicate's words, which are in the rows
        auto const* property = entity_.propertyNamed(each->key());
        return property && property->asAttribute() && !property->isTransient();
    });
}

/// An index by a value serves all values. Where many have it, it is a part of the condition, and the first in an order are found.
/// Of a look-up that nobody has to answer now, no more than what is noted of it.
std::optional<ChangeQuestion> UnsavedRecords::questionOf(bool isAsked) {
    ChangeQuestion question;
    auto const& predicate = request_.predicate();
    if (predicate && (named_ = namedRecords(*predicate, context_.coordinator->identities()))) return {};
    auto const takeAttribute = [&](NSPropertyDescription const& property, Value const& constant) {
        auto const* attribute = property.asAttribute();
        if (!attribute || !valueHash(constant, attribute->attributeType())) return false;
        question.equal = attribute;
        question.equalTo = constant;
        return true;
    };
    if (predicate) takeEquality(*predicate, entity_, takeAttribute);
    if (!isAsked && question.equal && request_.sortDescriptors().empty()) return question;
    auto const keysOf = [&](Value const& constant) { return namesOf(recordKeyOf(constant, context_.coordinator->identities())); };
    auto condition = predicate ? rowConditionOf(predicate, entity_, keysOf) : RowCondition{nullptr, true, {}};
    isAnswerWhole_ = condition.isWhole;
    question.entity = &entity_;
    question.condition = std::move(condition.predicate);
    question.link = std::move(condition.link);
    if (isAnswerWhole_ && request_.fetchLimit() != 0 && isSortedByRows()) {
        question.order = request_.sortDescriptors();
        question.count = countUpToLast(request_);
        if (asksForRank(question.order))
            if (auto search = rankedSearchOf(question.condition.get(), entity_))
                question.search = std::make_shared<RankedSearch const>(*std::move(search));
        return question;
    }
    return question.condition ? std::optional(std::move(question)) : std::nullopt;
}

void UnsavedRecords::noteQuestion() const {
    if (question_ && context_.concurrencyType == NSManagedObjectContextConcurrencyType::MainQueue)
        context_.coordinator->space()->questions().note(*question_);
}

std::optional<UnsavedRecords::Preparation> UnsavedRecords::preparation() const {
    if (!question_ || sets_->empty()) return {};
    return Preparation{*question_, *sets_};
}

bool UnsavedRecords::Preparation::isOfFewEqual() const {
    if (!question.equal) return false;
    std::size_t count = 0;
    for (auto const& set : sets) count += set->countWith(question.tree(), *question.equal, question.equalTo);
    return count <= ChangeQuestion::few;
}

bool UnsavedRecords::Preparation::isDone() const {
    auto const& tree = question.tree();
    bool const isReady = std::ranges::all_of(
        sets, [&](auto const& set) { return set->changesOf(tree).size() < large || set->isReadyFor(question); });
    if (!isReady || isOfFewEqual()) return isReady;
    for (std::size_t at = 0; at < sets.size(); ++at)
        if (!sets[at]->knowsMerged(tree, std::span(sets).first(at))) return false;
    return true;
}

void UnsavedRecords::Preparation::carryOut(Ref<SearchRanking const> const& ranking, std::atomic<bool> const& isGivenUp) {
    if (question.search) question.ranking = ranking;
    for (auto const& set : sets)
        if (!isGivenUp) set->makeReadyFor(question, &isGivenUp);
    if (isGivenUp || isOfFewEqual()) return;
    for (std::size_t at = 0; at < sets.size() && !isGivenUp; ++at) sets[at]->merged(question.tree(), std::span(sets).first(at));
}

} // namespace Tessarin
