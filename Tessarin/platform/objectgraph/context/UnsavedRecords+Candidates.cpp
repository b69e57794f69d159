// Which unsaved records may be among a request's results: asked of the change sets, not of each of their records.
#include "Tessarin/platform/objectgraph/context/UnsavedRecordsPrivate.h"

#include <algorithm>

namespace Tessarin {

/// All keys by which a record may stand somewhere.
std::vector<RecordKey> UnsavedRecords::namesOf(RecordKey key) const {
    std::vector<RecordKey> names;
    if (key != 0) names.push_back(key);
    auto const other = key > 0 ? context_.coordinator->promotions().temporaryKey(key) : context_.link->current(key);
    if (other != 0 && other != key) names.push_back(other);
    return names;
}

UnsavedRecords::Candidates UnsavedRecords::candidates() const {
    Candidates candidates;
    KeySet keys;
    if (named_) {
        addNamed(*named_, keys);
    } else {
        keys = turned_;
        if (!request_.predicate() || !addOwnEqual(*request_.predicate(), keys)) addOwn(keys);
        bool const isOfFewEqual = question_ && Preparation{*question_, *sets_}.isOfFewEqual();
        if (question_ && !isOfFewEqual) addMerged(keys);
        for (auto const& set : *sets_) {
            if (!question_)
                addAll(*set, keys);
            else if (isOfFewEqual)
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
    auto const found = set.keysWith(question_->tree(), *question_->equal, question_->equalTo);
    for (auto const key : found ? *found : std::vector<RecordKey>())
        if (contains(key)) keys.add(key);
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
    auto found = objectsByEquality(context_, predicate, entity_);
    if (!found && question_ && question_->link.relationship && ownCount_ > ChangeQuestion::few)
        found = context_.values.find(context_, *question_->link.relationship, question_->link.keys);
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
