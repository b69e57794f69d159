#include "Tessarin/platform/objectgraph/context/FetchedObjects.h"

#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>

namespace Tessarin {

Ref<NSManagedObject> FetchedObjects::operator[](std::size_t at) const {
    if (at >= keys_.size())
        fatal("FetchedObjects: there is no object " + std::to_string(at) + " among " + std::to_string(keys_.size()));
    auto* context = link_->contextState();
    if (!context) fatal("FetchedObjects: its context is gone");
    auto const unsaved = std::ranges::lower_bound(unsaved_, at, {}, [](auto const& each) { return each.first; });
    if (unsaved != unsaved_.end() && unsaved->first == at) return unsaved->second;
    if (at < first_ || at - first_ >= batch_.size()) {
        first_ = at / batchSize_ * batchSize_;
        batch_ =
            objectsWithKeys(*context, *entity_, std::span(keys_).subspan(first_, std::min(batchSize_, keys_.size() - first_)));
    }
    return batch_[at - first_];
}

} // namespace Tessarin
