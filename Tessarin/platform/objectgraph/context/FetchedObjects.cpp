#include "Tessarin/platform/objectgraph/context/FetchedObjects.h"

#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>
#include <span>

namespace Tessarin {
namespace {

constexpr std::size_t mostBatches = 16; // that are made together for whoever reads on

} // namespace

Ref<NSManagedObject> FetchedObjects::operator[](std::size_t at) const {
    if (at >= keys_.size())
        fatal("FetchedObjects: there is no object " + std::to_string(at) + " among " + std::to_string(keys_.size()));
    auto* context = link_->contextState();
    if (!context) fatal("FetchedObjects: its context is gone");
    auto const unsaved = std::ranges::lower_bound(unsaved_, at, {}, [](auto const& each) { return each.first; });
    if (unsaved != unsaved_.end() && unsaved->first == at) return unsaved->second;
    if (at < first_ || at - first_ >= batch_.size()) {
        bool const goesOn = !batch_.empty() && at == first_ + batch_.size();
        batches_ = goesOn ? std::min(batches_ * 2, mostBatches) : 1;
        first_ = at / batchSize_ * batchSize_;
        auto const most = std::max(batchSize_, FaultBatch::mostMembers);
        auto const length = std::min({batchSize_ * batches_, most, keys_.size() - first_});
        auto const keys = std::span(keys_).subspan(first_, length);
        bool const readsValues = goesOn && !batch_.back()->isFault();
        batch_.clear(); // whoever reads on needs no two of them at a time
        batch_ = readsValues ? filledObjects(*context, *entity_, keys) : objectsWithKeys(*context, *entity_, keys);
    }
    return batch_[at - first_];
}

} // namespace Tessarin
