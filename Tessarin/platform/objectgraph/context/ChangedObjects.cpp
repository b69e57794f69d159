#include "Tessarin/platform/objectgraph/context/ChangedObjectsPrivate.h"

#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"

namespace Tessarin {

void ChangedObjects::add(Ref<NSManagedObject> object) {
    GraphAccess::state(*object).changedPlace = static_cast<std::uint32_t>(objects_.size());
    auto const entity = object->entity().index();
    if (counts_.size() <= entity) counts_.resize(entity + 1);
    ++counts_[entity];
    objects_.push_back(std::move(object));
}

void ChangedObjects::remove(NSManagedObject& object) {
    auto const place = GraphAccess::state(object).changedPlace;
    if (place >= objects_.size() || objects_[place].get() != &object) return;
    auto const kept = std::move(objects_[place]); // what its end runs may look at this list
    ++gaps_;
    --counts_[object.entity().index()];
}

std::size_t ChangedObjects::countOf(NSEntityDescription const& entity, bool includesSubentities) const noexcept {
    auto count = entity.index() < counts_.size() ? counts_[entity.index()] : 0;
    if (includesSubentities)
        for (auto const* child : entity.subentities()) count += countOf(*child, true);
    return count;
}

void ChangedObjects::closeGaps() const {
    std::erase(objects_, nullptr);
    gaps_ = 0;
    for (std::uint32_t place = 0; place < objects_.size(); ++place) GraphAccess::state(*objects_[place]).changedPlace = place;
}

} // namespace Tessarin
