#include "Tessarin/platform/objectgraph/context/AsynchronousFetchPrivate.h"
#include "Tessarin/platform/objectgraph/context/PredicateIdentitiesPrivate.h"
#include "Tessarin/platform/objectgraph/context/QueueRequirementPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/queues/Dispatch.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <utility>

// What the store answers is as old as its transaction, and the context goes on meanwhile. Whatever is changed through this
// coordinator stands, at every moment, in the sets of a context on its way to the file or in the log of what was committed, which
// is watched since before the store was asked; a set is noted there before it leaves the other. So the records that may be
// otherwise than they were answered are known on delivery: they are taken out, asked anew, and put in their places, just as a
// fetch does with what is unsaved. What is written past the contexts (batch requests, other processes) is a gap in the log: then
// the store is asked again.
//
// Beside that, a predicate is evaluated for each record of the sets on their way where the store is asked, not on the context's
// queue: the sets remember what came of it. Large ones that have come or were folded meanwhile are worth another round.
namespace Tessarin {
namespace {

Ref<NSFetchRequest> copyOf(NSFetchRequest const& request) {
    auto copy = make<NSFetchRequest>(request.entityName());
    copy->setPredicate(request.predicate());
    copy->setSortDescriptors(request.sortDescriptors());
    copy->setFetchLimit(request.fetchLimit());
    copy->setFetchOffset(request.fetchOffset());
    copy->setFetchBatchSize(request.fetchBatchSize());
    copy->setIncludesSubentities(request.includesSubentities());
    copy->setIncludesPendingChanges(request.includesPendingChanges());
    copy->setReturnsObjectsAsFaults(request.returnsObjectsAsFaults());
    copy->setRelationshipKeyPathsForPrefetching(request.relationshipKeyPathsForPrefetching());
    return copy;
}

} // namespace

AsynchronousFetch::AsynchronousFetch(NSManagedObjectContext& context, NSFetchRequest const& request, FetchCompletion completion)
    : context_(context.self<NSManagedObjectContext>()),
      queue_(context.queue()),
      coordinator_(context.persistentStoreCoordinator()),
      request_(copyOf(request)),
      completion_(std::move(completion)) {}

void AsynchronousFetch::start(NSManagedObjectContext& context) {
    processChanges(context, GraphAccess::state(context));
    entity_ = entityOf(GraphAccess::state(context), *request_, error_);
    if (entity_ && !coordinator_->store())
        error_ = storeError(StoreErrorCode::ContextWithoutStore, "There is no store to fetch from.");
    if (!error_) request_->setPredicate(withIdentities(request_->predicate())); // it is not too deep
    error_ ? goBack() : ask(context);
}

/// On the context's queue.
void AsynchronousFetch::ask(NSManagedObjectContext& context) {
    ++rounds_;
    answer_ = {};
    watch_.emplace(coordinator_->space());
    error_ = caught([&]() -> Ref<NSError> {
        FetchOperation const fetch(GraphAccess::state(context), *request_, *entity_, *watch_);
        if (rounds_ + preparations_ == 1) fetch.noteQuestion();
        preparation_ = fetch.preparation();
        ranking_ = nullptr;
        wantsRanking_ = fetch.wantsRanking();
        query_ = fetch.queryBeforehand(surplus_);
        return nullptr;
    });
    if (error_) return goBack();
    query_.isGivenUp = &isCancelled_;
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_USER_INITIATED, 0), [self = shared_from_this()] { self->askStore(); });
}

/// On a thread of its own.
void AsynchronousFetch::askStore() {
    if (!isCancelled_.load(std::memory_order_relaxed))
        error_ = caught([&] {
            auto error = coordinator_->store()->fetch(query_, answer_);
            if (!error && wantsRanking_) error = makeRanking(coordinator_->store(), *request_, *entity_, ranking_);
            if (!error && preparation_) preparation_->carryOut(ranking_, isCancelled_);
            return error;
        });
    goBack();
}

void AsynchronousFetch::goBack() {
    if (auto const context = context_.lock())
        return context->performBlock([self = shared_from_this(), context] { self->deliver(*context); });
    dispatch_async(queue_, [self = shared_from_this()] {
        self->finish({}, storeError(StoreErrorCode::ContextWithoutStore, "The context of this fetch is gone."));
    });
}

void AsynchronousFetch::deliver(NSManagedObjectContext& context) {
    if (isCancelled_.load(std::memory_order_relaxed))
        return finish({}, storeError(StoreErrorCode::FetchCancelled, "This fetch was cancelled."));
    std::optional<FetchedObjects> list;
    auto error = error_;
    if (!error) error = caught([&] { return resultIn(context, list); });
    if (error) return finish({}, error);
    if (list) return finish(std::move(*list), nullptr);
    if (std::exchange(isUnprepared_, false)) {
        --rounds_;
        ++preparations_;
        return ask(context);
    }
    if (rounds_ < mostRounds) {
        surplus_ = (surplus_ + 16) * 8;
        return ask(context);
    }
    auto found = context.fetchObjects(*request_, error);
    finish(std::move(found), error);
}

Ref<NSError> AsynchronousFetch::resultIn(NSManagedObjectContext& context, std::optional<FetchedObjects>& list) {
    processChanges(context, GraphAccess::state(context));
    FetchOperation fetch(GraphAccess::state(context), *request_, *entity_, *watch_);
    if (watch_->hasGaps()) return nullptr;
    if (ranking_) fetch.setRanking(ranking_);
    preparation_ = fetch.preparation();
    bool const isPrepared = (!fetch.wantsRanking() || ranking_) && (!preparation_ || preparation_->isDone());
    isUnprepared_ = !isPrepared && preparations_ < mostPreparations;
    if (isUnprepared_) return nullptr;
    FetchedObjects found;
    Ref<NSError> error;
    if (fetch.list(query_, std::move(answer_), rounds_ < mostRounds, found, error) && !error) list = std::move(found);
    return error;
}

void AsynchronousFetch::finish(FetchedObjects list, Ref<NSError> const& error) {
    watch_.reset();
    answer_ = {};
    preparation_.reset();
    ranking_ = nullptr;
    isDone_.store(true, std::memory_order_release);
    auto const completion = std::exchange(completion_, nullptr);
    if (completion) completion(std::move(list), error);
}

void NSAsynchronousFetchRequest::init(Ref<NSFetchRequest> fetchRequest, FetchCompletion completion) {
    fetchRequest_ = std::move(fetchRequest);
    completion_ = std::move(completion);
}

void NSAsynchronousFetch::init(Ref<AsynchronousFetch> fetch) { fetch_ = std::move(fetch); }
void NSAsynchronousFetch::cancel() noexcept { fetch_->cancel(); }
bool NSAsynchronousFetch::isDone() const noexcept { return fetch_->isDone(); }

Ref<NSAsynchronousFetch> NSManagedObjectContext::fetchAsync(NSFetchRequest const& request, FetchCompletion completion) {
    requireQueue(*this, "fetchAsync");
    auto const fetch = std::make_shared<AsynchronousFetch>(*this, request, std::move(completion));
    fetch->start(*this);
    return make<NSAsynchronousFetch>(fetch);
}

Ref<NSAsynchronousFetch> NSManagedObjectContext::executeRequest(NSAsynchronousFetchRequest& request) {
    if (!request.completion_) fatal("NSAsynchronousFetchRequest: it was executed already");
    return fetchAsync(*request.fetchRequest(), std::exchange(request.completion_, nullptr));
}

} // namespace Tessarin
