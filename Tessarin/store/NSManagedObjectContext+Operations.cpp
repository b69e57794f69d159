#include "Tessarin/store/NSManagedObjectContext+Operations.h"

#include "Tessarin/platform/objectgraph/context/FetchRequestProblem.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/platform/runtime/OneLinePrivate.h"

namespace Tessarin {
namespace {

/// The opening parenthesis is never closed; readers of logs know the line like that.
void printFetchError(NSError const& error, NSFetchRequest const& request) {
    printLine("Error (" + error.description() + " executing fetch request: " + request.description());
}

NSEntityDescription const* entityNamed(NSManagedObjectContext const& context, std::string_view name) {
    auto const coordinator = context.persistentStoreCoordinator();
    return coordinator ? coordinator->managedObjectModel()->entityNamed(name) : nullptr;
}

bool isAnswerable(NSManagedObjectContext const& context, NSFetchRequest const& request) {
    auto const* entity = entityNamed(context, request.entityName());
    return entity && !problemWithFetchRequest(request, *entity);
}

/// Saves the ancestors, nearest first. One that fails keeps its changes, and those above it are saved all the same.
void saveAncestors(NSManagedObjectContext const& context) {
    for (auto ancestor = context.parentContext(); ancestor; ancestor = ancestor->parentContext())
        ancestor->performBlockAndWait([&] {
            Ref<NSError> ignored;
            ancestor->save(ignored);
        });
}

/// On the context's queue.
void saveHere(NSManagedObjectContext& context, SaveOptions const& options) {
    Ref<NSError> error;
    if (!context.save(error))
        printLine("Error while saving context: " + error->description());
    else if (options.toDisk)
        saveAncestors(context);
    if (options.completion) options.completion(error);
}

} // namespace

NSManagedObjectContext& NSManagedObjectContextOperations::home() noexcept { return static_cast<NSManagedObjectContext&>(*this); }

Ref<NSFetchRequest> NSManagedObjectContextOperations::fetchRequest(std::string_view entityName) {
    return make<NSFetchRequest>(entityName);
}

Ref<NSManagedObject> NSManagedObjectContextOperations::insertEntityNamed(std::string_view entityName) {
    return home().insertNewObject(entityName);
}

Ref<NSManagedObject> NSManagedObjectContextOperations::insertObjectNamed(std::string_view entityName) {
    return home().insertNewObject(entityName);
}

std::int64_t NSManagedObjectContextOperations::count(std::string_view entityName, Ref<NSPredicate> predicate) {
    auto const request = fetchRequest(entityName);
    request->setPredicate(std::move(predicate));
    Ref<NSError> error;
    auto const count = home().countForFetchRequest(*request, error);
    if (error) printLine("Error while counting fetch request for " + std::string{entityName} + ": " + error->description());
    return count;
}

std::vector<Ref<NSManagedObject>> NSManagedObjectContextOperations::allObjects(std::string_view entityName,
                                                                               FetchOptions options) {
    std::vector<Ref<NSManagedObject>> objects;
    bool const isWhole = takeObjects(entityName, std::move(options), [&](std::span<Ref<NSManagedObject>> run, std::size_t total) {
        objects.reserve(total);
        objects.insert(objects.end(), std::move_iterator(run.begin()), std::move_iterator(run.end()));
    });
    if (!isWhole) objects.clear();
    return objects;
}

FetchAwaitable NSManagedObjectContextOperations::fetchAsync(NSFetchRequest const& request) {
    auto kept = std::static_pointer_cast<NSFetchRequest const>(request.shared_from_this());
    return {home().self<NSManagedObjectContext>(), std::move(kept)};
}

bool NSManagedObjectContextOperations::takeObjects(std::string_view entityName, FetchOptions options,
                                                   FunctionRef<void(std::span<Ref<NSManagedObject>>, std::size_t)> take) {
    auto const request = fetchRequest(entityName);
    if (options.predicate) request->setPredicate(std::move(options.predicate));
    if (!options.sortedBy.empty()) request->setSortDescriptors(std::move(options.sortedBy));
    Ref<NSError> error;
    home().executeFetchRequest(*request, error, take);
    if (error) printFetchError(*error, *request);
    return !error;
}

Ref<NSManagedObject> NSManagedObjectContextOperations::anyObjectNamed(std::string_view entityName, AnyObjectOptions options) {
    auto const request = fetchRequest(entityName);
    if (options.predicate) request->setPredicate(std::move(options.predicate));
    request->setFetchLimit(1);
    if (!options.sortBy.empty()) {
        request->setSortDescriptors(std::move(options.sortBy));
    } else if (isAnswerable(home(), *request)) { // else the fetch says why it is not
        if (auto object = objectInMemory(entityName, request->predicate().get())) return object;
    }
    Ref<NSError> error;
    auto const objects = home().executeFetchRequest(*request, error);
    if (error) printFetchError(*error, *request);
    return error || objects.empty() ? nullptr : objects.front();
}

Ref<NSManagedObject> NSManagedObjectContextOperations::objectInMemory(std::string_view entityName, NSPredicate const* predicate) {
    auto const* entity = entityNamed(home(), entityName);
    return entity ? home().loadedObject(*entity, predicate) : nullptr;
}

bool NSManagedObjectContextOperations::deleteRecords(std::string_view entityName, DeleteOptions options) {
    auto const request = fetchRequest(entityName);
    request->setPredicate(std::move(options.matching).get());
    if (options.singleRecord) request->setFetchLimit(1);
    Ref<NSError> error;
    auto const objects = home().executeFetchRequest(*request, error);
    if (error) throw ErrorException(error);
    for (auto const& object : objects) home().deleteObject(*object);
    return !objects.empty();
}

void NSManagedObjectContextOperations::saveAndWait(SaveOptions options) {
    auto& context = home();
    if (options.wait) return context.performBlockAndWait([&] { saveHere(context, options); });
    // The block itself keeps the context until it has run.
    context.performBlock([&context, options = std::move(options)] { saveHere(context, options); });
}

void NSManagedObjectContextOperations::saveToDisk(SaveToDiskOptions options) {
    auto& context = home();
    auto const save = [&context](SaveToDiskOptions const& how) {
        Ref<NSError> error;
        context.saveThrough(error);
        if (how.completion) how.completion(error);
    };
    if (options.wait) return context.performBlockAndWait([&] { save(options); });
    context.performBlock([save, options = std::move(options)] { save(options); });
}

void NSManagedObjectContextOperations::refreshAllFaults() {
    auto faults = home().registeredObjects();
    std::erase_if(faults, [](auto const& object) { return !object->isFault(); });
    for (auto const& object : faults) home().refreshObject(*object, true);
}

Ref<NSManagedObject> NSManagedObjectContextOperations::objectOf(NSManagedObjectHelpers::ThreadsafeToken const& token) {
    return home().objectWithID(*token.objectID());
}

Ref<NSManagedObject> NSManagedObjectContextOperations::objectLike(NSManagedObject const& object) {
    return home().objectWithID(*object.objectID());
}

} // namespace Tessarin
