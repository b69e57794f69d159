#pragma once
#include "Tessarin/platform/objectgraph/context/FetchSortingPrivate.h"
#include "Tessarin/platform/objectgraph/context/UnsavedRecordsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/CommitLogPrivate.h"
#include "Tessarin/platform/objectgraph/query/SearchRankPrivate.h"
#include <algorithm>
#include <cstddef>
#include <optional>
#include <vector>

namespace Tessarin {

/// One fetch of a context: what the store finds, corrected by what is not saved yet. On the context's queue.
class FetchOperation {
public:
    FetchOperation(ContextState& context, NSFetchRequest const& request, NSEntityDescription const& entity)
        : FetchOperation(context, request, entity, nullptr) {}
    /// For what the store has answered before: corrected also by what was committed since the watch began. Only where the watch
    /// says that all of that is known.
    FetchOperation(ContextState& context, NSFetchRequest const& request, NSEntityDescription const& entity,
                   CommitLog::Watch const& since)
        : FetchOperation(context, request, entity, &since) {}

    /// Hands the results on in runs; nothing on an error.
    Ref<NSError> run(FetchedObjectsTaker take);
    Ref<NSError> count(std::size_t& found);
    Ref<NSError> explain(FetchExplanation& explanation);
    void noteQuestion() const {
        if (unsaved_) unsaved_->noteQuestion();
    }
    /// The results as a list.
    Ref<NSError> list(FetchedObjects& list);

    /// What to ask the store beforehand, so that `list` can correct it. The request and the context's coordinator must outlive
    /// it. `surplus`: how many of its first records may turn out to be changed; 0 while nothing has.
    StoreQuery queryBeforehand(std::size_t surplus) const;
    /// The list of what the store answered to that. False when that does not do, and the store must be asked again; `canAsk`: it
    /// is false, too, where asking again makes less work than correcting.
    bool list(StoreQuery const& query, StoreAnswer&& answer, bool canAsk, FetchedObjects& list, Ref<NSError>& error);

    /// Whether `list` ranks, and would ask the store what it knows of the words; it takes what somebody has made of the answer.
    bool wantsRanking() const noexcept { return isRanked_ && !isUntouched(); }
    void setRanking(Ref<SearchRanking const> ranking);

    /// What `list` would otherwise look for on the context's queue; absent where there is nothing.
    std::optional<UnsavedRecords::Preparation> preparation() const {
        return hasUnsaved() ? unsaved_->preparation() : std::nullopt;
    }

private:
    using Objects = FetchSorting::Objects;
    FetchOperation(ContextState& context, NSFetchRequest const& request, NSEntityDescription const& entity,
                   CommitLog::Watch const* since);

    NSPersistentStore* store() const noexcept { return reader_.store(); }
    bool isWanted(NSEntityDescription const& entity) const;
    bool hasUnsaved() const noexcept { return unsaved_ && !unsaved_->empty(); }
    /// Whether the store alone can answer.
    bool isUntouched() const noexcept { return !hasUnsaved() && !mustLookAtAll_; }
    StoreQuery query() const;
    bool keysOfStore(std::vector<RecordKey>& keys, Ref<NSError>& error);
    Ref<NSError> askStore(StoreAnswer& answer);
    Ref<NSError> askForRest(StoreQuery const& query, StoreAnswer& answer);
    Ref<NSError> handOn(StoreAnswer& answer, FetchedObjectsTaker take);
    Ref<NSError> finish(std::span<Ref<NSManagedObject> const> objects);
    void removeUnsaved(std::vector<RowRef>& rows);
    Objects objectsOf(std::vector<RowRef>& rows);
    Objects fittingUnsaved();
    std::size_t countFittingUnsaved();
    void addFitting(std::span<RecordKey const> keys, Objects& objects);
    void addObjectsOf(std::span<RowRef const> rows, Objects& objects);
    bool wasCommitted(RecordKey key) const;
    bool looksAtOthers() const;
    bool isEnough(StoreQuery const& query, std::size_t given, std::size_t left) const;
    bool layOver(StoreQuery const& query, std::vector<RecordKey> keys, bool canAsk, FetchedObjects& list);
    Ref<NSError> prepareRanking();
    FetchSorting sorting() const { return FetchSorting(request_.sortDescriptors(), ranking_.get()); }
    bool fits(NSManagedObject& object) const;
    void filter(Objects& objects) const;
    template <class Results> void cut(Results& results) const {
        auto const offset = std::min(request_.fetchOffset(), results.size());
        results.erase(results.begin(), results.begin() + static_cast<std::ptrdiff_t>(offset));
        if (request_.fetchLimit() != 0 && results.size() > request_.fetchLimit())
            results.erase(results.begin() + static_cast<std::ptrdiff_t>(request_.fetchLimit()), results.end());
    }
    static void add(Ref<NSManagedObject> const& object, FetchedObjects& list);
    void settle(FetchedObjects& list) const;

    ContextState& context_;
    NSFetchRequest const& request_;
    NSEntityDescription const& entity_;
    RecordReader reader_; // before what was committed is asked for: a set leaves the one when it is in the other
    ChangeSets committed_; // since the store was asked
    std::optional<UnsavedRecords> unsaved_; // absent when the request leaves them out
    Ref<SearchRanking const> ranking_; // where this puts records in order that the store has not
    bool isRanked_ = false;
    bool mustLookAtAll_ = false;
    bool showsOld_ = false; // an object of the context does not show what was committed
};

/// The entity that a request asks for; null with an error when it cannot be answered.
NSEntityDescription const* entityOf(ContextState const& context, NSFetchRequest const& request, Ref<NSError>& error);
/// By what the store knows of its texts, as itself: null when the request asks for no ranks.
Ref<NSError> makeRanking(NSPersistentStore* store, NSFetchRequest const& request, NSEntityDescription const& entity,
                         Ref<SearchRanking const>& ranking);
/// What `work` returns, or the error that it throws.
Ref<NSError> caught(FunctionRef<Ref<NSError>()> work);

} // namespace Tessarin
