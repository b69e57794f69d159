#include "Tessarin/platform/objectgraph/persistence/stores/StoreOpening.h"

#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

#include <utility>

namespace Tessarin {

void StoreOpening::init(Told told) {
    NSObject::init();
    told_ = std::move(told);
}

void StoreOpening::tell(StoreProgress progress) {
    progress_.set(progress);
    if (told_) told_(progress);
}

Ref<NSError> StoreOpening::cancellation() const {
    return storeError(StoreErrorCode::StoreOpeningCancelled, "The opening of the store was cancelled.");
}

} // namespace Tessarin
