// Fetching: what the store finds, corrected by what is not saved yet.
#include "Tessarin/platform/foundation/predicates/NSPredicate.h"
#include "Tessarin/platform/objectgraph/context/FetchOperationPrivate.h"
#include "Tessarin/platform/objectgraph/context/QueueRequirementPrivate.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace Tessarin {

std::vector<Ref<NSManagedObject>> NSManagedObjectContext::executeFetchRequest(NSFetchRequest const& request,
                                                                              Ref<NSError>& error) {
    requireQueue(*this, "executeFetchRequest");
    std::vector<Ref<NSManagedObject>> objects;
    executeFetchRequest(request, error, [&](std::span<Ref<NSManagedObject>> run, std::size_t total) {
        objects.reserve(total);
        objects.insert(objects.end(), std::move_iterator(run.begin()), std::move_iterator(run.end()));
    });
    if (error) objects.clear();
    return objects;
}

void NSManagedObjectContext::executeFetchRequest(NSFetchRequest const& request, Ref<NSError>& error, FetchedObjectsTaker take) {
    requireQueue(*this, "executeFetchRequest");
    error = nullptr;
    processChanges(*this, *state_);
    auto const* entity = entityOf(*state_, request, error);
    if (entity) error = caught([&] { return FetchOperation(*state_, request, *entity).run(take); });
}

FetchedObjects NSManagedObjectContext::fetchObjects(NSFetchRequest const& request, Ref<NSError>& error) {
    requireQueue(*this, "fetchObjects");
    error = nullptr;
    processChanges(*this, *state_);
    auto const* entity = entityOf(*state_, request, error);
    if (!entity) return {};
    FetchedObjects list;
    error = caught([&] { return FetchOperation(*state_, request, *entity).list(list); });
    if (error) return {};
    return list;
}

Ref<NSManagedObject> NSManagedObjectContext::loadedObject(NSEntityDescription const& entity, NSPredicate const* predicate) {
    requireQueue(*this, "loadedObject");
    if (!state_->link) return nullptr;
    auto const fits = [&](Ref<NSManagedObject> const& object) {
        return &object->entity() == &entity && !object->isFault() && (!predicate || predicate->evaluateWithObject(object));
    };
    auto const known = predicate ? objectsByEquality(*state_, *predicate, entity) : std::nullopt;
    auto const objects = known ? *known : registeredObjects(entity);
    auto const found = std::ranges::find_if(objects, fits);
    return found == objects.end() ? nullptr : *found;
}

std::int64_t NSManagedObjectContext::countForFetchRequest(NSFetchRequest const& request, Ref<NSError>& error) {
    requireQueue(*this, "countForFetchRequest");
    error = nullptr;
    processChanges(*this, *state_);
    auto const* entity = entityOf(*state_, request, error);
    if (!entity) return NSNotFound;
    std::size_t found = 0;
    error = caught([&] { return FetchOperation(*state_, request, *entity).count(found); });
    return error ? NSNotFound : static_cast<std::int64_t>(found);
}

} // namespace Tessarin
