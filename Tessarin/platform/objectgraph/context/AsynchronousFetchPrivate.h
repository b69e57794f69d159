#pragma once
#include "Tessarin/platform/objectgraph/context/FetchOperationPrivate.h"
#include "Tessarin/platform/objectgraph/context/NSAsynchronousFetchRequest.h"
#include <atomic>
#include <memory>
#include <optional>

namespace Tessarin {

/// A fetch that goes from the context's queue, where it is asked, to a reader of the store, and back to the context's queue,
/// where what it has found is corrected by what has happened meanwhile. At one place at a time, but for the flags.
class AsynchronousFetch : public std::enable_shared_from_this<AsynchronousFetch> {
public:
    AsynchronousFetch(NSManagedObjectContext& context, NSFetchRequest const& request, FetchCompletion completion);

    /// On the context's queue.
    void start(NSManagedObjectContext& context);
    void cancel() noexcept { isCancelled_.store(true, std::memory_order_relaxed); }
    bool isDone() const noexcept { return isDone_.load(std::memory_order_acquire); }

private:
    static constexpr int mostRounds = 3;
    static constexpr int mostPreparations = 8; // further rounds, each because large change sets have come meanwhile

    void ask(NSManagedObjectContext& context);
    void askStore();
    void goBack();
    void deliver(NSManagedObjectContext& context);
    Ref<NSError> resultIn(NSManagedObjectContext& context, std::optional<FetchedObjects>& list);
    void finish(FetchedObjects list, Ref<NSError> const& error);

    WeakRef<NSManagedObjectContext> const context_;
    dispatch_queue_t const queue_; // the context's
    Ref<NSPersistentStoreCoordinator> const coordinator_;
    Ref<NSFetchRequest> const request_; // nobody else's
    FetchCompletion completion_;
    std::atomic<bool> isCancelled_{false};
    std::atomic<bool> isDone_{false};

    NSEntityDescription const* entity_ = nullptr;
    std::optional<CommitLog::Watch> watch_; // since before the store was asked
    StoreQuery query_;
    StoreAnswer answer_;
    std::optional<UnsavedRecords::Preparation> preparation_; // beside the store's answer
    bool wantsRanking_ = false; // and so is this
    Ref<SearchRanking const> ranking_;
    Ref<NSError> error_;
    int rounds_ = 0;
    int preparations_ = 0;
    bool isUnprepared_ = false;
    std::size_t surplus_ = 0; // to be asked for beyond what is wanted; more from round to round
};

} // namespace Tessarin
