// Which unsaved records may be among a request's results: asked of the change sets, not of each of their records.
#include "Tessarin/platform/foundation/predicates/NSComparisonPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSCompoundPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/objectgraph/context/UnsavedRecordsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ValueHashPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/IdentityTablePrivate.h"

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
        auto const* property = entity_.propertyNamed(each->key());
        return property && property->asAttribute() && !property->isTransient();
    });
}

/// An index by a value serves all values, and is preferred to what must be found anew for each condition.
std::optional<ChangeQuestion> UnsavedRecords::questionOf() {
    ChangeQuestion question;
    auto const& predicate = request_.predicate();
    if (predicate && (named_ = namedRecords(*predicate, context_.coordinator->identities()))) return {};
    auto const takeAttribute = [&](NSPropertyDescription const& property, Value const& constant) {
        auto const* attribute = property.asAttribute();
        if (attribute && valueHash(constant, attribute->attributeType())) question.equal = attribute;
        return question.equal != nullptr;
    };
    if (predicate && takeEquality(*predicate, entity_, takeAttribute)) return question;
    auto const keysOf = [&](Value const& constant) { return namesOf(recordKeyOf(constant, context_.coordinator->identities())); };
    auto condition = predicate ? rowConditionOf(predicate, entity_, keysOf) : RowCondition{nullptr, true, {}};
    isAnswerWhole_ = condition.isWhole;
    question.entity = &entity_;
    question.condition = std::move(condition.predicate);
    question.link = std::move(condition.link);
    if (isAnswerWhole_ && request_.fetchLimit() != 0 && isSortedByRows()) {
        question.order = request_.sortDescriptors();
        question.count = countUpToLast(request_);
        return question;
    }
    return question.condition ? std::optional(question) : std::nullopt;
}

/// All keys by which a record may stand somewhere.
std::vector<RecordKey> UnsavedRecords::namesOf(RecordKey key) const {
    std::vector<RecordKey> names;
    if (key != 0) names.push_back(key);
    auto const other = key > 0 ? context_.coordinator->promotions().temporaryKey(key) : context_.link->current(key);
    if (other != 0 && other != key) names.push_back(other);
    return names;
}

void UnsavedRecords::noteQuestion() const {
    if (question_ && context_.concurrencyType == NSManagedObjectContextConcurrencyType::MainQueue)
        context_.coordinator->space()->questions().note(*question_);
}

std::optional<UnsavedRecords::Preparation> UnsavedRecords::preparation() const {
    if (!question_ || sets_->empty()) return {};
    return Preparation{*question_, *sets_};
}

bool UnsavedRecords::Preparation::isDone() const {
    auto const& tree = question.tree();
    for (std::size_t at = 0; at < sets.size(); ++at) {
        bool const isReady = sets[at]->changesOf(tree).size() < large || sets[at]->isReadyFor(question);
        if (!isReady || (!question.equal && !sets[at]->knowsMerged(tree, std::span(sets).first(at)))) return false;
    }
    return true;
}

void UnsavedRecords::Preparation::carryOut(std::atomic<bool> const& isGivenUp) const {
    for (std::size_t at = 0; at < sets.size() && !isGivenUp; ++at) {
        sets[at]->makeReadyFor(question, &isGivenUp);
        if (!question.equal) sets[at]->merged(question.tree(), std::span(sets).first(at));
    }
}

UnsavedRecords::Candidates UnsavedRecords::candidates() const {
    Candidates candidates;
    KeySet keys;
    if (named_) {
        addNamed(*named_, keys);
    } else {
        keys = turned_;
        if (!request_.predicate() || !addOwnEqual(*request_.predicate(), keys)) addOwn(keys);
        if (question_ && !question_->equal) addMerged(keys);
        for (auto const& set : *sets_) {
            if (!question_)
                addAll(*set, keys);
            else if (question_->equal)
                addEqual(*set, keys);
            else
                addAnswer(*set, candidates, keys);
        }
    }
    candidates.keys.assign(keys.keys().begin(), keys.keys().end());
    return candidates;
}

void UnsavedRecords::addNamed(std::span<RecordKey const> named, KeySet& keys) const {
    for (auto const key : named)
        for (auto const name : namesOf(key))
            if (contains(name)) keys.add(name);
}

/// Those that one set alone cannot tell of: changed by several that did not know of each other, or told of by a key that is no
/// longer theirs.
void UnsavedRecords::addMerged(KeySet& keys) const {
    auto const& tree = *entity_.rootEntity();
    auto const& promotions = context_.coordinator->promotions();
    for (std::size_t at = 0; at < sets_->size(); ++at) {
        for (auto const& change : (*sets_)[at]->changesOf(tree)) {
            if (change.key > 0) break; // they are sorted
            if (auto const key = promotions.permanentKey(change.key); key != 0) keys.add(key);
        }
        for (auto const key : *(*sets_)[at]->merged(tree, std::span(*sets_).first(at))) keys.add(key);
    }
}

void UnsavedRecords::addAll(ChangeSet const& set, KeySet& keys) const {
    for (auto const& change : set.changesOf(*entity_.rootEntity()))
        if (change.after && change.changesRow() && isWanted(*change.entity)) keys.add(change.key);
}

/// The value that is seen of a record is in the set that changed it last, whatever else was changed beside it.
void UnsavedRecords::addEqual(ChangeSet const& set, KeySet& keys) const {
    takeEquality(*request_.predicate(), entity_, [&](NSPropertyDescription const& property, Value const& constant) {
        if (&property != question_->equal) return false;
        auto const found = set.keysWith(question_->tree(), *question_->equal, constant);
        if (!found) return false;
        for (auto const key : *found)
            if (contains(key)) keys.add(key);
        return true;
    });
}

/// Whether nothing that the context shows of the record is otherwise than in that change.
bool UnsavedRecords::isSeenSo(RecordChange const& change) const {
    if (turned_.contains(change.key) || !reader_.shows(change)) return false;
    auto const living = context_.link->find(change.key);
    return !living || !GraphAccess::state(*living).row || GraphAccess::state(*living).row == change.after;
}

void UnsavedRecords::addAnswer(ChangeSet const& set, Candidates& candidates, KeySet& keys) const {
    auto const isKnownToFit = [&](RecordChange const& change) {
        if (!isWanted(*change.entity) || isOwn(change.key)) return false;
        if (isAnswerWhole_ && isSeenSo(change)) return true;
        keys.add(change.key); // perhaps changed again, in a set that has it elsewhere in its order
        return false;
    };
    if (question_->count != 0)
        for (auto const* change : set.first(*question_, isKnownToFit)) candidates.fitting.push_back(change->after);
    else
        for (auto const* change : set.matching(*question_))
            if (isKnownToFit(*change)) candidates.fitting.push_back(change->after);
}

bool UnsavedRecords::addOwnEqual(NSPredicate const& predicate, KeySet& keys) const {
    if (ownCount_ == 0) return true;
    auto const found = objectsByEquality(context_, predicate, entity_);
    if (!found) return false;
    auto const add = [&](auto const& objects) {
        for (auto const& object : objects)
            if (object->hasChanges() && isWanted(object->entity())) keys.add(object->recordKey());
    };
    add(*found);
    add(context_.values.changedFaults());
    return true;
}

} // namespace Tessarin
