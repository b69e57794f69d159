#include "fuzz/campaigns/Shelf.h"

#include <sqlite3.h>

namespace Tessarin::campaigns {

using Type = NSAttributeType;

Ref<NSManagedObjectModel> const& shelfModel() {
    static auto const model =
        ModelBuilder()
            .entity("Batch")
            .attribute("number", Type::Integer64, {.indexed = true})
            .toMany("items", "Item", {.inverse = "batch", .deleteRule = NSDeleteRule::Cascade, .ordered = true})
            .entity("Item")
            .attribute("label", Type::String)
            .attribute("value", Type::Integer32, {.optional = false, .defaultValue = 0})
            .attribute("weight", Type::Double)
            .attribute("made", Type::Date)
            .attribute("picture", Type::BinaryData)
            .toOne("batch", "Batch", {.inverse = "items"})
            .toMany("peers", "Item", {.inverse = "peers"})
            .build();
    return model;
}

Ref<NSManagedObjectModel> const& laterShelfModel() {
    static auto const model = ModelBuilder()
                                  .entity("Batch")
                                  .attribute("number", Type::Integer64, {.indexed = true})
                                  .attribute("title", Type::String, {.optional = false, .defaultValue = "untitled"})
                                  .toMany("items", "Item", {.inverse = "batches", .ordered = true})
                                  .entity("Item")
                                  .attribute("name", Type::String, {.indexed = true, .renamingIdentifier = "label"})
                                  .attribute("value", Type::Integer64, {.optional = false, .defaultValue = 0})
                                  .attribute("weight", Type::Double)
                                  .attribute("made", Type::Date)
                                  .toMany("batches", "Batch", {.inverse = "items", .renamingIdentifier = "batch"})
                                  .toMany("peers", "Item", {.inverse = "peers"})
                                  .build();
    return model;
}

Shelf::Shelf(std::string const& file, Ref<NSManagedObjectModel> const& model, Inference inference, Synchronous synchronous) {
    coordinator = make<NSPersistentStoreCoordinator>(model);
    Ref<NSError> error;
    char const* const modes[] = {"OFF", "NORMAL", "FULL"};
    Dictionary const pragmas{{"synchronous", modes[static_cast<int>(synchronous)]}};
    Dictionary const options{{"NSInferMappingModelAutomaticallyOption", inference == Inference::Allowed},
                             {NSSQLitePragmasOption, pragmas}};
    if (!coordinator->addPersistentStoreWithType(NSSQLiteStoreType, {}, NSURL::fileURLWithPath(file), options, error))
        throw ErrorException(error);
    root = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    root->setPersistentStoreCoordinator(coordinator);
    root->setMergePolicy(make<NSMergePolicy>(NSMergePolicyType(1)));
    main = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::MainQueue);
    main->setParentContext(root);
    main->setMergePolicy(make<NSMergePolicy>(NSMergePolicyType(1)));
}

Ref<NSManagedObjectContext> Shelf::worker() const {
    auto worker = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    worker->setParentContext(main);
    worker->setMergePolicy(make<NSMergePolicy>(NSMergePolicyType(1)));
    return worker;
}

void Shelf::saveToDisk(NSManagedObjectContext& worker) const {
    for (auto* context : {&worker, main.get(), root.get()}) {
        Ref<NSError> error;
        context->performBlockAndWait([&] { context->save(error); }); // nothing is thrown out of another thread's queue
        if (error) throw ErrorException(error);
    }
}

void checkpoint(std::string const& file) {
    sqlite3* handle = nullptr;
    // The pragma, not the function: that one does nothing over a connection that has not read the file yet.
    if (sqlite3_open(file.c_str(), &handle) == SQLITE_OK)
        sqlite3_exec(handle, "PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr);
    sqlite3_close(handle);
}

void onQueueOf(NSManagedObjectContext& context, FunctionRef<void()> work) {
    std::exception_ptr failure;
    context.performBlockAndWait([&] {
        try {
            work();
        } catch (...) {
            failure = std::current_exception();
        }
    });
    if (failure) std::rethrow_exception(failure);
}

void saveOrThrow(NSManagedObjectContext& context) {
    Ref<NSError> error;
    if (!context.save(error)) throw ErrorException(error);
}

Objects fetched(NSManagedObjectContext& context, char const* entity, Ref<NSPredicate> predicate) {
    auto const request = make<NSFetchRequest>(entity);
    request->setPredicate(std::move(predicate));
    Ref<NSError> error;
    auto objects = context.executeFetchRequest(*request, error);
    if (error) throw ErrorException(error);
    return objects;
}

void requireIntegrity(std::string const& file) {
    sqlite3* handle = nullptr;
    std::string answer;
    auto const take = [](void* to, int, char** values, char**) { return static_cast<std::string*>(to)->assign(values[0]), 0; };
    // Whoever has just closed the file may still be moving the log into it.
    if (sqlite3_open(file.c_str(), &handle) != SQLITE_OK || sqlite3_busy_timeout(handle, 30'000) != SQLITE_OK ||
        sqlite3_exec(handle, "PRAGMA integrity_check", take, &answer, nullptr) != SQLITE_OK)
        answer = sqlite3_errmsg(handle);
    sqlite3_close(handle);
    require(answer == "ok", "the file is damaged: {}", answer);
}

} // namespace Tessarin::campaigns
