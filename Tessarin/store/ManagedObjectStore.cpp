#include "Tessarin/store/ManagedObjectStore.h"

#include "Tessarin/platform/foundation/files/NSFileManager.h"
#include "Tessarin/platform/objectgraph/context/WholeDeletionPrivate.h"
#include "Tessarin/platform/objectgraph/undo/UndoManager.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/store/ImportGatePrivate.h"
#include "Tessarin/store/StoreClosingPrivate.h"

#include <memory>

namespace Tessarin {

SelectorTable ManagedObjectStore::selectors() { return {{"contextDidSave:"_sel, &ManagedObjectStore::contextDidSave}}; }

Ref<NSManagedObjectContext> ManagedObjectStore::mainThreadContext() const { return mainThreadContext_.get(); }
void ManagedObjectStore::setMainThreadContext(Ref<NSManagedObjectContext> context) { mainThreadContext_.set(std::move(context)); }
void ManagedObjectStore::modifyMainThreadContext(FunctionRef<void(Ref<NSManagedObjectContext>&)> change) {
    auto context = mainThreadContext();
    change(context);
    setMainThreadContext(std::move(context));
}

Ref<NSManagedObjectContext> ManagedObjectStore::newContext(NSManagedObjectContextConcurrencyType type) const {
    return make<NSManagedObjectContext>(type);
}

void ManagedObjectStore::setupMainThreadContext() {
    auto const context = newContext(NSManagedObjectContextConcurrencyType::MainQueue);
    setMainThreadContext(context);
    context->setParentContext(privateContext_);
    context->setMergePolicy(mergePolicyOfALevel());
    context->setName("Main Thread Context");
}

Ref<NSManagedObjectContext> ManagedObjectStore::createWorkerContext(std::string name) {
    updatedActiveContexts();
    auto context = newContext(NSManagedObjectContextConcurrencyType::PrivateQueue);
    if (auto parent = mainThreadContext()) context->setParentContext(std::move(parent));
    context->setName(std::move(name));
    context->setMergePolicy(mergePolicyOfALevel());
    registerContext(context);
    return context;
}

void ManagedObjectStore::importBlock(Closure<void(Ref<NSManagedObjectContext> const&)> block) {
    runInBackground(std::move(block), nullptr);
}

/// `ended` is called when the worker has saved, or failed to, on its queue.
void ManagedObjectStore::runInBackground(Closure<void(Ref<NSManagedObjectContext> const&)> block,
                                         Closure<void(Ref<NSError>)> ended) {
    auto const worker = createWorkerContext();
    imports_->add([store = self<ManagedObjectStore>(), worker, block = std::move(block), ended = std::move(ended)]() mutable {
        worker->performBlock([store = std::move(store), worker, block = std::move(block), ended = std::move(ended)]() mutable {
            block(worker);
            auto hasEnded = [store, ended = std::move(ended)](Ref<NSError> const& error) {
                store->imports_->hasEnded();
                if (ended) ended(error);
            };
            worker->saveAndWait({.wait = false, .completion = std::move(hasEnded)});
        });
    });
}

void detail::runInBackground(ManagedObjectStore& store, Closure<void(Ref<NSManagedObjectContext> const&)> block,
                             Closure<void()> ended) {
    store.runInBackground(std::move(block), [ended = std::move(ended)](Ref<NSError> const&) { ended(); });
}

void detail::dropChanges(NSManagedObjectContext& context) { context.rollback(); }

void ManagedObjectStore::contextDidSave(Ref<NSNotification> const& notification) {
    auto const saved = std::dynamic_pointer_cast<NSManagedObjectContext>(notification->object());
    if (!saved) return;
    if (saved != privateContext_ && saved->parentContext()) climb(*saved);
    if (saved == privateContext_) imports_->rootHasSaved();
    for (auto const& entry : activeContexts()) {
        auto const context = entry->context();
        if (!context || context->isEqual(*saved)) continue;
        context->performBlock([context, notification] { context->mergeChangesFromContextDidSaveNotification(*notification); });
    }
}

void ManagedObjectStore::climb(NSManagedObjectContext& saved) {
    dispatch_group_enter(saveDispatchGroup_);
    // What it climbs to later climbs by this store, too: it stays until then.
    saved.parentContext()->saveAndWait(
        {.wait = false, .completion = [store = self<ManagedObjectStore>()](Ref<NSError> const& error) {
             if (error) store->imports_->saveHasFailed();
             dispatch_group_leave(store->saveDispatchGroup_);
         }});
}

void ManagedObjectStore::close(Closure<void(Ref<NSError> const& error)> completion, WhenUnsaved whenUnsaved) {
    static_cast<void>(onlyStore());
    dispatch_async(registry_, [store = self<ManagedObjectStore>(), completion = std::move(completion), whenUnsaved]() mutable {
        if (!store->closing_) store->closing_ = std::make_shared<StoreClosing>(*store);
        store->closing_->add(std::move(completion), whenUnsaved);
    });
}

NSPersistentStore& ManagedObjectStore::onlyStore() const {
    auto* store = coordinator_ ? coordinator_->store() : nullptr;
    if (!store) fatal("the coordinator of a ManagedObjectStore has no store");
    return *store;
}

Value ManagedObjectStore::metadata(std::string const& key) const {
    auto const all = onlyStore().metadata();
    auto const* value = all.find(key);
    return value ? *value : Value();
}

void ManagedObjectStore::setMetadata(std::string const& key, Value value) {
    auto& store = onlyStore();
    auto all = store.metadata();
    if (value.isAbsent())
        all.erase(key);
    else
        all.set(key, std::move(value));
    store.setMetadata(std::move(all));
}

void ManagedObjectStore::modifyMetadata(std::string const& key, FunctionRef<void(Value&)> change) {
    auto value = metadata(key);
    change(value);
    setMetadata(key, std::move(value));
}

namespace {

void deleteAll(NSManagedObjectContext& context, NSEntityDescription const& entity) {
    if (entity.name().empty()) fatal("an entity without a name cannot be deleted");
    auto const request = make<NSFetchRequest>(entity.name());
    request->setPredicate(NSPredicate::predicateWithValue(true));
    request->setReturnsObjectsAsFaults(true);
    Ref<NSError> ignored; // an entity that cannot be fetched is left as it is
    for (auto const& object : context.executeFetchRequest(*request, ignored)) object->deleteFromContext(false);
}

} // namespace

void ManagedObjectStore::deleteAllData(std::optional<std::vector<Ref<NSEntityDescription>>> entities,
                                       Closure<void()> completion) {
    privateContext_->performBlockAndWait([&] {
        Ref<NSError> ignored;
        if (!entities && deletesEverything(*privateContext_, ignored)) return;
        try {
            for (auto const& entity : entities ? *entities : model_->entities()) deleteAll(*privateContext_, *entity);
        } catch (ErrorException const&) { // what hangs on an object could not be read
            return privateContext_->rollback();
        }
        privateContext_->save(ignored);
    });
    // The old main context is not reset, and workers keep it as their parent.
    Dispatcher::main()->async([store = self<ManagedObjectStore>(), completion = std::move(completion)] {
        if (auto const before = store->mainThreadContext())
            before->performBlockAndWait([&] { UndoManager::removeAllOf(*before); });
        store->setupMainThreadContext();
        if (completion) completion();
    });
}

} // namespace Tessarin
