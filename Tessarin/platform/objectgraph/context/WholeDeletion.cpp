#include "Tessarin/platform/objectgraph/context/WholeDeletionPrivate.h"

#include "Tessarin/platform/objectgraph/context/ContextNotificationsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSPersistentStore.h"

#include <algorithm>

namespace Tessarin {
namespace {

std::vector<BatchTarget> everythingOf(NSManagedObjectModel const& model, Ref<ChangeOrigin const> const& origin) {
    std::vector<BatchTarget> targets; // in the order of the indexes, as the runs shall be
    for (auto const& entity : model.entities())
        if (!entity->superentity())
            targets.push_back(
                {.query = {.entity = entity.get(), .sortDescriptors = {}}, .names = BatchTarget::Names::Runs, .origin = origin});
    std::ranges::sort(targets, {}, [](BatchTarget const& target) { return target.query.entity->index(); });
    return targets;
}

bool saysNothingToItsDeletion(ContextLink& link, NSEntityDescription const& entity) {
    static constexpr auto hooks = NSManagedObject::prepareForDeletionHook | NSManagedObject::willSaveHook;
    return (link.classOfObjects(entity).ownHooks() & hooks) == 0;
}

} // namespace

bool deletesEverything(NSManagedObjectContext& context, Ref<NSError>& error) {
    auto& state = GraphAccess::state(context);
    auto* const store = state.coordinator ? state.coordinator->store() : nullptr;
    if (!store || state.parent) return false;
    auto const& model = *state.coordinator->managedObjectModel();
    auto const saysNothing = [&](auto const& entity) { return saysNothingToItsDeletion(*state.link, *entity); };
    if (!std::ranges::all_of(model.entities(), saysNothing)) return false;
    if (!context.save(error) || context.hasChanges() || state.link->count() != 0) return false; // a save writes metadata, too
    BatchOutcome outcome;
    error = store->deleteInBatch(everythingOf(model, originOf(state)), outcome);
    state.coordinator->space()->commits().noteGap();
    if (!error) postDidSave(context, {}, DeletedRecords(std::move(outcome.runs)));
    return true;
}

} // namespace Tessarin
