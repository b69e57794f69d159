#pragma once
#include "Tessarin/dispatch/Deferred.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"

namespace Tessarin {

/// A deferred value that is fetched inside a context: its block runs on the context's queue, from whichever thread it is
/// fulfilled. Objects of the context stay bound to that queue.
///
///     auto const count =
///         make<DeferredIn<std::int64_t>>(context, [](auto const& in) { return in->countForFetchRequest(request); });
template <class T> class DeferredIn : public Deferred<T> {
public:
    using Fetch = Closure<std::optional<T>(Ref<NSManagedObjectContext> const&)>;

    virtual void init(Ref<NSManagedObjectContext> context, Fetch fetch) {
        materializeInContextBlock_ = std::move(fetch);
        context_ = std::move(context);
        Deferred<T>::init();
    }

    void materialize() override {
        context_->performBlockAndWait([&] { this->setActual(materializeInContextBlock_(context_)); });
    }

    Fetch const& materializeInContextBlock() const { return materializeInContextBlock_; }
    Ref<NSManagedObjectContext> const& context() const { return context_; }

protected:
    DeferredIn() = default;

private:
    using Deferred<T>::init; // without a context there is nothing to fetch from
    Fetch materializeInContextBlock_; // constant after init, as is the context
    Ref<NSManagedObjectContext> context_;
};

} // namespace Tessarin
