#include "Tessarin/store/FetchAwaitable.h"

#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/runtime/Cell.h"

namespace Tessarin {
namespace {

/// Passes a cancel on to the fetch, which may be known only afterwards.
class AwaitedFetch final : public Awaited {
public:
    void isUnderWay(Ref<NSAsynchronousFetch> const& fetch) {
        fetch_.set(fetch);
        if (isCancelled_.get()) fetch->cancel();
    }
    void cancel() noexcept override {
        isCancelled_.set(true);
        if (auto const fetch = fetch_.get()) fetch->cancel();
    }

private:
    Cell<Ref<NSAsynchronousFetch>> fetch_;
    Cell<bool> isCancelled_;
};

} // namespace

void FetchAwaitable::begin(Coroutine& coroutine) {
    auto const awaited = Retained<AwaitedFetch>::adopt(new AwaitedFetch);
    auto const context = context_; // this may be gone before the fetch returns
    auto const request = request_;
    if (!coroutine.wait(Retained<Awaited>{awaited.get()})) return coroutine.goOn();
    awaited->isUnderWay(context->fetchAsync(*request, [this, &coroutine](FetchedObjects objects, Ref<NSError> const& error) {
        result_ = {std::move(objects), error};
        coroutine.goOn();
    }));
}

} // namespace Tessarin
