#include "Tessarin/platform/objectgraph/context/UnsavedRecordsPrivate.h"

#include "Tessarin/platform/foundation/predicates/NSComparisonPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSCompoundPredicate.h"
#include "Tessarin/platform/objectgraph/context/TurnedRecordsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ValueHashPrivate.h"

#include <algorithm>

namespace Tessarin {
namespace {

/// The attribute of which a comparison says that it equals a constant; null when it says something else.
NSAttributeDescription const* comparedAttribute(NSComparisonPredicate const& comparison, NSEntityDescription const& entity) {
    auto const& left = *comparison.leftExpression();
    bool const isEquality = comparison.predicateOperatorType() == NSPredicateOperatorType::EqualTo &&
                            comparison.options() == TextOptions::None &&
                            comparison.comparisonPredicateModifier() == NSComparisonPredicateModifier::Direct;
    if (!isEquality || left.expressionType() != NSExpressionType::KeyPath || left.operand()) return nullptr;
    if (comparison.rightExpression()->expressionType() != NSExpressionType::ConstantValue) return nullptr;
    auto const* property = entity.propertyNamed(left.keyPath().text());
    return property ? property->asAttribute() : nullptr;
}

using EqualityTaker = FunctionRef<bool(NSAttributeDescription const& attribute, Value const& constant)>;

/// Hands the equalities on that the predicate asks for, until one is taken; false when none was.
bool takeEquality(NSPredicate const& predicate, NSEntityDescription const& entity, EqualityTaker take) {
    if (auto const* compound = predicate.asCompound())
        return compound->compoundPredicateType() == NSCompoundPredicateType::And &&
               std::ranges::any_of(compound->subpredicates(),
                                   [&](auto const& each) { return takeEquality(*each, entity, take); });
    auto const* comparison = predicate.asComparison();
    auto const* attribute = comparison ? comparedAttribute(*comparison, entity) : nullptr;
    return attribute && take(*attribute, comparison->rightExpression()->constantValue());
}

} // namespace

std::optional<std::vector<Ref<NSManagedObject>>> objectsByEquality(ContextState& context, NSPredicate const& predicate,
                                                                   NSEntityDescription const& entity) {
    std::optional<std::vector<Ref<NSManagedObject>>> found;
    takeEquality(predicate, entity, [&](NSAttributeDescription const& attribute, Value const& constant) {
        if (!attribute.isTransient()) found = context.values.find(context, attribute, constant);
        return found.has_value();
    });
    return found;
}

UnsavedRecords::UnsavedRecords(ContextState& context, RecordReader const& reader, NSFetchRequest const& request,
                               NSEntityDescription const& entity, ChangeSets const& committed)
    : context_(context),
      reader_(reader),
      request_(request),
      entity_(entity),
      sets_(&reader.sets()),
      ownCount_(context.changed.countOf(entity, request.includesSubentities())) {
    if (context.concurrencyType == NSManagedObjectContextConcurrencyType::MainQueue) noteQuestion();
    if (!committed.empty()) {
        withCommitted_ = committed;
        withCommitted_.insert(withCommitted_.end(), sets_->begin(), sets_->end());
        sets_ = &withCommitted_;
    }
    if (context.changed.empty() && sets_->empty()) return;
    for (auto const& set : *sets_) note(*set, entity);
    turnsAll_ = !addTurnedRecords(context, reader, *sets_, request, entity, turned_);
    count_ += ownCount_ + turned_.size();
}

/// What is asked now will be asked again beside the next save.
void UnsavedRecords::noteQuestion() const {
    auto& questions = context_.coordinator->space()->questions();
    if (listsFirst()) return questions.note(*entity_.rootEntity(), request_.sortDescriptors());
    if (!request_.predicate()) return;
    takeEquality(*request_.predicate(), entity_, [&](NSAttributeDescription const& attribute, Value const& constant) {
        if (attribute.isTransient() || !valueHash(constant, attribute.attributeType())) return false;
        questions.note(attribute);
        return true;
    });
}

bool UnsavedRecords::listsFirst() const {
    auto const isStored = [&](Ref<NSSortDescriptor> const& each) {
        auto const* property = entity_.propertyNamed(each->key());
        return property && property->asAttribute() && !property->isTransient();
    };
    return request_.fetchLimit() != 0 && !request_.predicate() && std::ranges::all_of(request_.sortDescriptors(), isStored);
}

void UnsavedRecords::note(ChangeSet const& set, NSEntityDescription const& entity) {
    count_ += set.changedRowsOf(entity);
    if (!request_.includesSubentities()) return;
    for (auto const* child : entity.subentities()) note(set, *child);
}

bool UnsavedRecords::isOwn(RecordKey key) const {
    if (ownCount_ == 0) return false;
    if (own_) return own_->contains(key);
    auto const living = context_.link->find(key);
    return living && living->hasChanges();
}

bool UnsavedRecords::contains(RecordKey key) const {
    if (turned_.contains(key) || isOwn(key)) return true;
    return std::ranges::any_of(*sets_, [&](auto const& set) {
        auto const* change = set->find(entity_, key);
        return change && change->changesRow() && isWanted(*change->entity);
    });
}

void UnsavedRecords::removeFrom(std::vector<RowRef>& rows) {
    if (rows.size() > ownCount_ && !own_) addOwn(own_.emplace());
    std::erase_if(rows, [&](RowRef const& row) { return contains(row->key()); });
}

void UnsavedRecords::addOwn(KeySet& keys) const {
    if (ownCount_ == 0) return;
    for (auto const& object : context_.changed)
        if (isWanted(object->entity())) keys.add(object->recordKey());
}

void UnsavedRecords::addOf(ChangeSet const& set, KeySet& keys) const {
    for (auto const& change : set.changesOf(*entity_.rootEntity()))
        if (change.changesRow() && isWanted(*change.entity)) keys.add(change.key);
}

std::vector<KeyRange> UnsavedRecords::stored() const {
    std::vector<RecordKey> keys(turned_.keys().begin(), turned_.keys().end());
    for (auto const& set : *sets_)
        for (auto const& change : set->changesOf(*entity_.rootEntity()))
            if (change.changesRow() && isWanted(*change.entity)) keys.push_back(change.key);
    if (ownCount_ != 0)
        for (auto const& object : context_.changed)
            if (isWanted(object->entity())) keys.push_back(object->recordKey());
    return rangesOf(std::move(keys));
}

std::vector<RecordKey> UnsavedRecords::firstCandidates(std::size_t count) const {
    auto keys = turned_;
    addOwn(keys);
    auto const& tree = *entity_.rootEntity();
    for (auto const& set : *sets_) {
        for (auto const* update : set->updates())
            if (update->entity->rootEntity() == &tree && isWanted(*update->entity)) keys.add(update->key);
        auto const first = set->firstInserted(tree, request_.sortDescriptors(), count, [&](RecordChange const& change) {
            if (!isWanted(*change.entity) || isOwn(change.key)) return false;
            if (reader_.row(*change.entity, change.key) == change.after) return true;
            keys.add(change.key); // changed again, in a set that has it elsewhere in its order
            return false;
        });
        for (auto const key : first) keys.add(key);
    }
    return {keys.keys().begin(), keys.keys().end()};
}

std::vector<RecordKey> UnsavedRecords::candidates() const {
    auto const* predicate = request_.predicate().get();
    auto keys = turned_;
    if (!predicate || !addOwnEqual(*predicate, keys)) addOwn(keys);
    for (auto const& set : *sets_)
        if (!predicate || !addEqual(*set, *predicate, keys)) addOf(*set, keys);
    return {keys.keys().begin(), keys.keys().end()};
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

bool UnsavedRecords::addEqual(ChangeSet const& set, NSPredicate const& predicate, KeySet& keys) const {
    return takeEquality(predicate, entity_, [&](NSAttributeDescription const& attribute, Value const& constant) {
        auto const found = set.keysWith(*entity_.rootEntity(), attribute, constant);
        if (!found) return false;
        for (auto const key : *found)
            if (contains(key)) keys.add(key);
        return true;
    });
}

} // namespace Tessarin
