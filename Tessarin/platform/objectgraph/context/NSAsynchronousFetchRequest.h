#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/objectgraph/context/FetchedObjects.h"
#include "Tessarin/platform/objectgraph/query/NSFetchRequest.h"
#include "Tessarin/platform/runtime/Closure.h"

namespace Tessarin {

class AsynchronousFetch;

/// What is told at the end of an asynchronous fetch: the results, or an error and none.
using FetchCompletion = Closure<void(FetchedObjects results, Ref<NSError> const& error)>;

/// A fetch request whose store query runs on another thread. Executed once.
///
///     auto const request = make<NSAsynchronousFetchRequest>(books, [](FetchedObjects found, Ref<NSError> const& error) { … });
///     auto const fetch = context->executeRequest(*request);
class TESSARIN_API NSAsynchronousFetchRequest : public NSObject {
public:
    Ref<NSFetchRequest> const& fetchRequest() const noexcept { return fetchRequest_; }

protected:
    NSAsynchronousFetchRequest() = default;
    using NSObject::init;
    virtual void init(Ref<NSFetchRequest> fetchRequest, FetchCompletion completion);

private:
    friend class NSManagedObjectContext;
    Ref<NSFetchRequest> fetchRequest_;
    FetchCompletion completion_; // empty once it was executed
};

/// An asynchronous fetch that is under way. It goes on when this is dropped. Any thread.
class TESSARIN_API NSAsynchronousFetch : public NSObject {
public:
    /// Gives it up, also inside the store's statement: the completion is then called once, soon, with an error of the code
    /// FetchCancelled (134062) and no results. Called on the context's queue it is certain that no results come any more. Nothing
    /// once the completion runs.
    void cancel() noexcept;
    /// Whether the completion has been called.
    bool isDone() const noexcept;

protected:
    NSAsynchronousFetch() = default;
    using NSObject::init;
    virtual void init(Ref<AsynchronousFetch> fetch);

private:
    Ref<AsynchronousFetch> fetch_;
};

} // namespace Tessarin
