// Deleting objects: the delete rules work at once, so that the graph never shows a half-deleted state.
#include "Tessarin/platform/objectgraph/context/MergingPrivate.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"
#include "Tessarin/platform/objectgraph/context/QueueRequirementPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

#include <algorithm>
#include <iterator>

namespace Tessarin {
namespace {

Ref<NSManagedObject> destinationOf(NSManagedObject& object, NSRelationshipDescription const& toOne) {
    auto const key = referenceOf(object, toOne);
    auto* context = GraphAccess::state(object).link()->contextState();
    return key == 0 || !context ? nullptr : objectWithKey(*context, *toOne.destinationEntity(), key);
}

std::vector<Ref<NSManagedObject>> destinationsOf(NSManagedObject& object, NSRelationshipDescription const& relationship) {
    if (relationship.isToMany()) return GraphAccess::destinations(object, relationship);
    auto destination = destinationOf(object, relationship);
    if (!destination) return {};
    return {std::move(destination)};
}

/// Whoever it leads to and who stays.
void letGoAtOtherEnds(NSManagedObject& object, NSRelationshipDescription const& relationship) {
    auto const letGo = [&](Ref<NSManagedObject> const& destination) {
        if (destination && !destination->isDeleted()) letGoAtOtherEnd(object, relationship, *destination);
    };
    if (!relationship.isToMany()) return letGo(destinationOf(object, relationship));
    for (auto const& destination : GraphAccess::destinations(object, relationship)) letGo(destination);
}

/// What one relationship of an object that goes means for its destinations.
void applyRule(NSManagedObject& object, NSRelationshipDescription const& relationship,
               std::vector<Ref<NSManagedObject>>& alsoDeleted) {
    auto const rule = relationship.deleteRule();
    if (rule == NSDeleteRule::NoAction || rule == NSDeleteRule::Deny) return; // what denies shows at save
    for (auto const& destination : destinationsOf(object, relationship)) {
        if (destination->isDeleted()) continue;
        if (rule == NSDeleteRule::Cascade)
            alsoDeleted.push_back(destination);
        else
            letGoAtOtherEnd(object, relationship, *destination);
    }
}

bool isThere(NSManagedObject& object) {
    GraphAccess::fire(object);
    return !object.isDeleted() && !GraphAccess::state(object).has(ObjectState::Gone);
}

/// The objects whose hook runs on this thread: who deletes one of them from there asks for what happens anyway.
class Preparation {
public:
    explicit Preparation(NSManagedObject& object) : object_(object), outer_(innermost) { innermost = this; }
    ~Preparation() { innermost = outer_; }
    Preparation(Preparation const&) = delete;
    Preparation& operator=(Preparation const&) = delete;
    static bool isOf(NSManagedObject const& object) {
        auto const* each = innermost;
        while (each && &each->object_ != &object) each = each->outer_;
        return each != nullptr;
    }

private:
    static thread_local Preparation* innermost;
    NSManagedObject& object_;
    Preparation* outer_;
};
thread_local Preparation* Preparation::innermost = nullptr;

/// Objects that were never saved just leave.
void forgetInserted(ContextState& context, std::span<Ref<NSManagedObject> const> objects) {
    for (auto const& object : objects) {
        auto& state = GraphAccess::state(*object);
        unmarkChanged(context, *object);
        context.link->remove(*object, state.key);
        state.clear(ObjectState::Inserted);
        state.set(ObjectState::Gone);
    }
    if (!objects.empty()) dropHandedUp(context, objects);
}

} // namespace

Ref<NSError> denialOf(NSManagedObject& object) {
    for (auto const* relationship : object.entity().relationships()) {
        if (relationship->deleteRule() != NSDeleteRule::Deny) continue;
        if (std::ranges::none_of(destinationsOf(object, *relationship), [](auto const& each) { return isThere(*each); }))
            continue;
        auto const name = object.entity().name() + "." + relationship->name();
        return storeError(StoreErrorCode::RelationshipDenied, name + " denies the deletion while it has a destination.",
                          {{"NSValidationErrorKey", name}});
    }
    return nullptr;
}

void deleteAlone(ContextState& context, std::span<Ref<NSManagedObject> const> objects) {
    for (auto const& object : objects) // lists that are read later do not show who is deleted any more
        for (auto const* relationship : object->entity().relationships())
            if (relationship->isToMany()) memberKeys(*object, *relationship);
    for (auto const& object : objects) {
        GraphAccess::fire(*object);
        if (auto* recorder = recorderOf(*object)) recorder->noteDeletion(*object);
        markChanged(*object, ObjectState::Deleted);
    }
    for (auto const& object : objects)
        for (auto const* relationship : object->entity().relationships()) letGoAtOtherEnds(*object, *relationship);
    std::vector<Ref<NSManagedObject>> unsaved;
    std::ranges::copy_if(objects, std::back_inserter(unsaved), [](auto const& object) { return object->isInserted(); });
    forgetInserted(context, unsaved);
}

void NSManagedObjectContext::deleteObject(NSManagedObject& first) {
    requireQueue(*this, "deleteObject");
    std::vector<Ref<NSManagedObject>> doomed{first.self<NSManagedObject>()};
    std::vector<Ref<NSManagedObject>> unsaved;
    while (!doomed.empty()) {
        auto const object = std::move(doomed.back());
        doomed.pop_back();
        auto& state = GraphAccess::state(*object);
        if (state.has(ObjectState::Deleted) || state.link() != state_->link.get() || Preparation::isOf(*object)) continue;
        {
            Preparation const running(*object);
            object->prepareForDeletion();
        }
        if (state.has(ObjectState::Deleted) || state.link() != state_->link.get()) continue; // rolled back, say
        GraphAccess::fire(*object);
        if (auto* recorder = recorderOf(*object)) recorder->noteDeletion(*object);
        markChanged(*object, ObjectState::Deleted);
        for (auto const* relationship : object->entity().relationships()) applyRule(*object, *relationship, doomed);
        if (state.has(ObjectState::Inserted)) unsaved.push_back(object);
    }
    forgetInserted(*state_, unsaved);
}

} // namespace Tessarin
