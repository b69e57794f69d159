#include "Tessarin/platform/objectgraph/context/FetchedObjects.h"

#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/QueueRequirementPrivate.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>
#include <span>

namespace Tessarin {
namespace {

constexpr std::size_t mostBatches = 16; // that are made together for whoever reads on

/// The nearest entity of which both are; null when they are of different trees.
NSEntityDescription const* commonEntity(NSEntityDescription const* one, NSEntityDescription const& other) {
    while (one && !other.isKindOf(one)) one = one->superentity();
    return one;
}

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

FetchedObjects NSManagedObjectContext::objectsWithIDs(std::span<Ref<NSManagedObjectID> const> ids, std::size_t batchSize) {
    requireQueue(*this, "objectsWithIDs");
    FetchedObjects list;
    if (!state_->link) return list;
    list.link_ = state_->link;
    for (auto const& id : ids) {
        if (!id || !id->isIn(state_->coordinator->identities())) continue;
        auto const* entity = list.entity_ ? commonEntity(list.entity_, id->entity()) : &id->entity();
        if (entity) list.entity_ = entity;
        auto const key = id->recordKey();
        // What has no permanent key yet, and what is of another tree, cannot be made with the others.
        if (!entity || key < 0) list.unsaved_.emplace_back(list.keys_.size(), objectWithID(*id));
        list.keys_.push_back(entity ? key : 0);
    }
    list.batchSize_ = batchSize != 0 ? batchSize : std::max<std::size_t>(1, list.keys_.size());
    return list;
}

} // namespace Tessarin
