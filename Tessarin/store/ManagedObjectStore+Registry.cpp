// The registry of live worker contexts.
#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/store/ManagedObjectStore.h"

#include <algorithm>

namespace Tessarin {

Ref<NSManagedObjectContext> ManagedObjectStore::ActiveContext::context() const { return context_.get().lock(); }
void ManagedObjectStore::ActiveContext::setContext(Ref<NSManagedObjectContext> context) { context_.set(context); }
void ManagedObjectStore::ActiveContext::modifyContext(FunctionRef<void(Ref<NSManagedObjectContext>&)> change) {
    auto held = context();
    change(held);
    setContext(std::move(held));
}
void ManagedObjectStore::ActiveContext::init(Ref<NSManagedObjectContext> context, Ref<ManagedObjectStore> store) {
    context_.set(context);
    store_ = std::move(store);
}

ManagedObjectStore::ActiveContexts ManagedObjectStore::activeContexts() const { return activeContexts_.get(); }
void ManagedObjectStore::setActiveContexts(ActiveContexts contexts) { activeContexts_.set(std::move(contexts)); }
void ManagedObjectStore::modifyActiveContexts(FunctionRef<void(ActiveContexts&)> change) {
    auto contexts = activeContexts();
    change(contexts);
    setActiveContexts(std::move(contexts));
}

void ManagedObjectStore::changeRegistry(Closure<void(ActiveContexts&)> change) {
    dispatch_async(registry_, [store = self<ManagedObjectStore>(), change = std::move(change)] {
        store->modifyActiveContexts([&](ActiveContexts& contexts) { change(contexts); });
    });
}

void ManagedObjectStore::registerContext(Ref<NSManagedObjectContext> const& context) {
    changeRegistry(
        [weak = WeakRef<NSManagedObjectContext>(context), store = self<ManagedObjectStore>()](ActiveContexts& contexts) {
            if (!store->isClosed()) contexts.push_back(make<ActiveContext>(weak.lock(), store));
        });
}

void ManagedObjectStore::unregisterContext(Ref<NSManagedObjectContext> const& context) {
    changeRegistry([context](ActiveContexts& contexts) {
        std::erase_if(contexts, [&](auto const& entry) {
            auto const held = entry->context();
            return !held || held->isEqual(*context);
        });
    });
}

void ManagedObjectStore::updatedActiveContexts() {
    changeRegistry(
        [](ActiveContexts& contexts) { std::erase_if(contexts, [](auto const& entry) { return !entry->context(); }); });
}

} // namespace Tessarin
