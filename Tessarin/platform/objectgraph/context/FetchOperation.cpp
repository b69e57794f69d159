#include "Tessarin/platform/objectgraph/context/FetchOperationPrivate.h"

#include "Tessarin/platform/foundation/predicates/NSPredicate.h"
#include "Tessarin/platform/objectgraph/context/FetchRequestProblem.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/PrefetchingPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

#include <algorithm>
#include <iterator>

namespace Tessarin {

FetchOperation::FetchOperation(ContextState& context, NSFetchRequest const& request, NSEntityDescription const& entity,
                               CommitLog::Watch const* since)
    : context_(context),
      request_(request),
      entity_(entity),
      reader_(context),
      committed_(since ? since->sets() : ChangeSets()),
      isRanked_(asksForRank(request.sortDescriptors())) {
    if (!request.includesPendingChanges()) return;
    unsaved_.emplace(context, reader_, request, entity, committed_);
    mustLookAtAll_ = unsaved_->turnsAll();
    if (!since) unsaved_->noteQuestion();
}

bool FetchOperation::isWanted(NSEntityDescription const& entity) const {
    return request_.includesSubentities() ? entity.isKindOf(&entity_) : &entity == &entity_;
}

StoreQuery FetchOperation::query() const {
    StoreQuery query;
    query.entity = &entity_;
    query.includesSubentities = request_.includesSubentities();
    query.predicate = request_.predicate().get();
    query.sortDescriptors = request_.sortDescriptors();
    query.limit = request_.fetchLimit();
    query.offset = request_.fetchOffset();
    return query;
}

Ref<NSError> FetchOperation::run(FetchedObjectsTaker take) {
    StoreAnswer answer;
    if (auto error = askStore(answer)) return error;
    return handOn(answer, take);
}

Ref<NSError> FetchOperation::handOn(StoreAnswer& answer, FetchedObjectsTaker take) {
    if (isUntouched() && answer.complete) {
        auto const total = answer.rows.size();
        Ref<NSError> error;
        objectsWithRows(context_, entity_, answer.rows, [&](std::span<Ref<NSManagedObject>> run) {
            if (!error) error = finish(run);
            if (!error) take(run, total);
        });
        return error;
    }
    auto objects = objectsOf(answer.rows);
    bool const isSorted = answer.complete && !mustLookAtAll_; // which the store does
    if (!isSorted) filter(objects);
    if (auto error = prepareRanking()) return error;
    auto unsaved = hasUnsaved() ? fittingUnsaved() : Objects();
    auto const sorting = this->sorting();
    isSorted ? sorting.merge(objects, std::move(unsaved)) : sorting.sort(objects, std::move(unsaved));
    cut(objects);
    if (auto error = finish(objects)) return error;
    take(objects, objects.size());
    return nullptr;
}

Ref<NSError> makeRanking(NSPersistentStore* store, NSFetchRequest const& request, NSEntityDescription const& entity,
                         Ref<SearchRanking const>& ranking) {
    if (!asksForRank(request.sortDescriptors())) return nullptr;
    auto search = rankedSearchOf(request.predicate().get(), entity);
    SearchStatistics statistics;
    if (auto error = store && search ? store->searchStatistics(*search, statistics) : nullptr) return error;
    if (search) ranking = std::make_shared<SearchRanking const>(*std::move(search), statistics); // or the request was refused
    return nullptr;
}

Ref<NSError> FetchOperation::prepareRanking() {
    if (!isRanked_ || ranking_) return nullptr;
    Ref<SearchRanking const> ranking;
    auto error = makeRanking(store(), request_, entity_, ranking);
    setRanking(std::move(ranking));
    return error;
}

void FetchOperation::setRanking(Ref<SearchRanking const> ranking) {
    ranking_ = std::move(ranking);
    if (unsaved_) unsaved_->setRanking(ranking_);
}

/// The results' keys, in their order; false when the store alone cannot say.
bool FetchOperation::keysOfStore(std::vector<RecordKey>& keys, Ref<NSError>& error) {
    if (!isUntouched() || !store()) return false;
    auto query = this->query();
    query.wantsKeysOnly = true;
    StoreAnswer answer;
    error = store()->fetch(query, answer);
    if (!answer.complete) return false;
    keys = std::move(answer.keys);
    for (auto const& row : answer.rows) keys.push_back(row->key()); // of a store that gives rows anyway
    return true;
}

Ref<NSError> FetchOperation::count(std::size_t& found) {
    if (!mustLookAtAll_ && store()) {
        auto query = this->query();
        std::vector<KeyRange> unsaved;
        if (hasUnsaved()) { // they are counted here, and all is cut at the end
            unsaved = unsaved_->stored();
            query.without = unsaved;
            query.limit = query.offset = 0;
        }
        bool isComplete = true;
        if (auto error = store()->count(query, found, isComplete)) return error;
        if (isComplete && !hasUnsaved()) return nullptr;
        if (isComplete) {
            if (auto error = prepareRanking()) return error;
            found += countFittingUnsaved();
            found -= std::min(found, request_.fetchOffset());
            if (request_.fetchLimit() != 0) found = std::min(found, request_.fetchLimit());
            return nullptr;
        }
    }
    return run([&](std::span<Ref<NSManagedObject>>, std::size_t total) { found = total; });
}

Ref<NSError> FetchOperation::askStore(StoreAnswer& answer) {
    if (!store()) return storeError(StoreErrorCode::ContextWithoutStore, "There is no store to fetch from.");
    auto query = this->query();
    if (isUntouched()) return store()->fetch(query, answer);
    query.offset = 0;
    query.limit = 0;
    if (mustLookAtAll_) query.predicate = nullptr;
    if (mustLookAtAll_ || request_.fetchLimit() == 0) return askForRest(query, answer);
    // Records that the store counts may turn out to be gone or changed. That is seldom so for many of the first.
    auto const wanted = countUpToLast(request_);
    for (std::size_t surplus = 16;; surplus *= 8) {
        answer = {};
        query.limit = wanted + std::min(surplus, unsaved_->count());
        if (auto error = store()->fetch(query, answer)) return error;
        auto const given = answer.rows.size();
        removeUnsaved(answer.rows);
        if (given < query.limit || answer.rows.size() >= wanted || surplus >= unsaved_->count()) return nullptr;
    }
}

Ref<NSError> FetchOperation::askForRest(StoreQuery const& query, StoreAnswer& answer) {
    auto error = store()->fetch(query, answer);
    removeUnsaved(answer.rows);
    return error;
}

void FetchOperation::removeUnsaved(std::vector<RowRef>& rows) {
    if (hasUnsaved()) unsaved_->removeFrom(rows);
}

Ref<NSError> FetchOperation::finish(std::span<Ref<NSManagedObject> const> objects) {
    for (auto const& keyPath : request_.relationshipKeyPathsForPrefetching())
        if (auto error = prefetch(context_, entity_, objects, keyPath)) return error;
    if (!request_.returnsObjectsAsFaults())
        for (auto const& object : objects) GraphAccess::fire(*object);
    return nullptr;
}

FetchSorting::Objects FetchOperation::objectsOf(std::vector<RowRef>& rows) {
    Objects objects;
    objects.reserve(rows.size());
    objectsWithRows(context_, entity_, rows, [&](std::span<Ref<NSManagedObject>> run) {
        objects.insert(objects.end(), std::move_iterator(run.begin()), std::move_iterator(run.end()));
    });
    return objects;
}

FetchSorting::Objects FetchOperation::fittingUnsaved() {
    auto const candidates = unsaved_->candidates();
    Objects objects;
    addObjectsOf(candidates.fitting, objects);
    addFitting(candidates.keys, objects);
    KeySet seen; // sets may know a record by another key
    std::erase_if(objects, [&](auto const& object) { return !seen.add(object->recordKey()); });
    return objects;
}

std::size_t FetchOperation::countFittingUnsaved() {
    auto const candidates = unsaved_->candidates();
    Objects objects;
    addFitting(candidates.keys, objects);
    std::vector<RecordKey> keys;
    for (auto const& row : candidates.fitting) keys.push_back(context_.link->current(row->key()));
    for (auto const& object : objects) keys.push_back(object->recordKey());
    std::ranges::sort(keys);
    return keys.size() - std::ranges::unique(keys).size();
}

/// The objects of those records that fulfil the predicate.
void FetchOperation::addFitting(std::span<RecordKey const> keys, Objects& objects) {
    std::vector<RecordKey> unread;
    std::vector<RowRef> rows;
    Objects asked;
    for (auto const key : keys) {
        auto living = context_.link->find(key);
        bool const isOwn = living && living->hasChanges() && (GraphAccess::state(*living).row || living->isInserted());
        if (isOwn && !wasCommitted(key)) // others may show what an ancestor had before
            asked.push_back(std::move(living));
        else
            unread.push_back(key);
    }
    reader_.rows(entity_, unread, [&](RowRef row) { rows.push_back(std::move(row)); });
    addObjectsOf(rows, asked);
    for (auto& object : asked)
        if (!object->isDeleted() && isWanted(object->entity()) && fits(*object)) objects.push_back(std::move(object));
}

void FetchOperation::addObjectsOf(std::span<RowRef const> rows, Objects& objects) {
    Objects read;
    std::vector<RowRef> given(rows.begin(), rows.end());
    objectsWithRows(context_, entity_, given,
                    [&](std::span<Ref<NSManagedObject>> run) { read.insert(read.end(), run.begin(), run.end()); });
    for (std::size_t at = 0; !committed_.empty() && at < rows.size(); ++at) // one keeps to what it read of an ancestor's values
        showsOld_ = showsOld_ || (!read[at]->hasChanges() && GraphAccess::state(*read[at]).row != rows[at]);
    objects.insert(objects.end(), std::move_iterator(read.begin()), std::move_iterator(read.end()));
}

/// Whether the context may not have heard yet of what was committed.
bool FetchOperation::wasCommitted(RecordKey key) const {
    return std::ranges::any_of(committed_, [&](auto const& set) { return set->find(entity_, key) != nullptr; });
}

bool FetchOperation::fits(NSManagedObject& object) const {
    return !request_.predicate() || request_.predicate()->evaluateWithObject(Value(object.self<NSManagedObject>()));
}

void FetchOperation::filter(Objects& objects) const {
    std::erase_if(objects, [&](auto const& object) { return !fits(*object); });
}

Ref<NSError> FetchOperation::list(FetchedObjects& list) {
    Ref<NSError> failed;
    if (!keysOfStore(list.keys_, failed)) {
        if (failed) return failed;
        failed = run([&](std::span<Ref<NSManagedObject>> run, std::size_t total) {
            list.keys_.reserve(total);
            for (auto const& object : run) add(object, list);
        });
    }
    settle(list);
    return failed;
}

void FetchOperation::add(Ref<NSManagedObject> const& object, FetchedObjects& list) {
    if (object->recordKey() < 0) list.unsaved_.emplace_back(list.keys_.size(), object);
    list.keys_.push_back(object->recordKey());
}

void FetchOperation::settle(FetchedObjects& list) const {
    list.link_ = context_.link;
    list.entity_ = &entity_;
    list.batchSize_ = request_.fetchBatchSize() != 0 ? request_.fetchBatchSize() : std::max<std::size_t>(1, list.keys_.size());
}

NSEntityDescription const* entityOf(ContextState const& context, NSFetchRequest const& request, Ref<NSError>& error) {
    if (!context.link) {
        error = storeError(StoreErrorCode::ContextWithoutStore, "This context has neither a parent nor a coordinator.");
        return nullptr;
    }
    auto const* entity = context.coordinator->managedObjectModel()->entityNamed(request.entityName());
    if (!entity)
        error = storeError(StoreErrorCode::UnknownEntity,
                           "There is no entity named \"" + std::string{request.entityName()} + "\" in this model.");
    if (entity) error = problemWithFetchRequest(request, *entity);
    return error ? nullptr : entity;
}

/// What `work` returns, or the error that it throws.
Ref<NSError> caught(FunctionRef<Ref<NSError>()> work) {
    try {
        return work();
    } catch (ErrorException const& failure) {
        return failure.error();
    }
}

} // namespace Tessarin
