// Deleting objects: the delete rules work at once, so that the graph never shows a half-deleted state.
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"

#include <algorithm>

namespace Tessarin {
namespace {

std::vector<Ref<NSManagedObject>> destinationsOf(NSManagedObject& object, NSRelationshipDescription const& relationship) {
    if (relationship.isToMany()) return GraphAccess::destinations(object, relationship);
    auto const key = referenceOf(object, relationship);
    auto* context = GraphAccess::state(object).link()->contextState();
    if (key == 0 || !context) return {};
    return {objectWithKey(*context, *relationship.destinationEntity(), key)};
}

/// What one relationship of an object that goes means for its destinations.
void applyRule(NSManagedObject& object, NSRelationshipDescription const& relationship, std::vector<Ref<NSManagedObject>>& alsoDeleted) {
    auto const rule = relationship.deleteRule();
    if (rule == NSDeleteRule::NoAction) return;
    for (auto const& destination : destinationsOf(object, relationship)) {
        if (destination->isDeleted()) continue;
        if (rule == NSDeleteRule::Cascade)
            alsoDeleted.push_back(destination);
        else if (rule == NSDeleteRule::Deny) // whether it stands in the way shows at save: it may be deleted until then
            GraphAccess::state(object).more().denied.emplace_back(static_cast<std::uint32_t>(relationship.index()), destination->recordKey());
        else
            letGoAtOtherEnd(object, relationship, *destination);
    }
}

/// An object that was never saved just leaves.
void forgetInserted(ContextState& context, NSManagedObject& object) {
    auto& state = GraphAccess::state(object);
    std::erase_if(context.changed, [&](auto const& each) { return each.get() == &object; });
    context.link->remove(object, state.key);
    state.clear(ObjectState::Inserted);
    state.clear(ObjectState::Changed);
    state.set(ObjectState::Gone);
}

} // namespace

void NSManagedObjectContext::deleteObject(NSManagedObject& first) {
    std::vector<Ref<NSManagedObject>> doomed{first.self<NSManagedObject>()};
    std::vector<Ref<NSManagedObject>> unsaved;
    while (!doomed.empty()) {
        auto const object = std::move(doomed.back());
        doomed.pop_back();
        auto& state = GraphAccess::state(*object);
        if (state.has(ObjectState::Deleted) || state.link() != state_->link.get()) continue;
        object->prepareForDeletion();
        GraphAccess::fire(*object);
        markChanged(*object, ObjectState::Deleted);
        for (auto const* relationship : object->entity().relationships()) applyRule(*object, *relationship, doomed);
        if (state.has(ObjectState::Inserted)) unsaved.push_back(object);
    }
    for (auto const& object : unsaved) forgetInserted(*state_, *object);
}

} // namespace Tessarin
