#include "Tessarin/platform/objectgraph/context/UnsavedRecordsPrivate.h"

#include "Tessarin/platform/objectgraph/context/TurnedRecordsPrivate.h"

#include <algorithm>

namespace Tessarin {

UnsavedRecords::UnsavedRecords(ContextState& context, RecordReader const& reader, NSFetchRequest const& request,
                               NSEntityDescription const& entity, ChangeSets const& committed)
    : context_(context),
      reader_(reader),
      request_(request),
      entity_(entity),
      sets_(&reader.sets()),
      ownCount_(context.changed.countOf(entity, request.includesSubentities())) {
    bool const isNoted = context.concurrencyType == NSManagedObjectContextConcurrencyType::MainQueue;
    bool const isAsked = !context.changed.empty() || !sets_->empty() || !committed.empty();
    if (isNoted || isAsked) question_ = questionOf(isAsked);
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

std::vector<KeyRange> UnsavedRecords::stored() const {
    std::vector<RecordKey> keys(turned_.keys().begin(), turned_.keys().end());
    if (ownCount_ != 0)
        for (auto const& object : context_.changed)
            if (isWanted(object->entity())) keys.push_back(object->recordKey());
    auto ranges = rangesOf(std::move(keys));
    for (auto const& set : *sets_)
        for (auto const& each : set->keysOfRows(*entity_.rootEntity())) ranges.push_back(each);
    return joined(std::move(ranges));
}

} // namespace Tessarin
