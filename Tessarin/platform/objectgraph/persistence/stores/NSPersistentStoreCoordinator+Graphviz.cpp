// The model with what is stored.
#include "Tessarin/platform/objectgraph/persistence/stores/NSPersistentStoreCoordinator.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreQueryPrivate.h"

namespace Tessarin {

std::string NSPersistentStoreCoordinator::graphvizText(Ref<NSError>& error) const {
    error = store() ? nullptr : storeError(StoreErrorCode::ContextWithoutStore, "This coordinator has no store.");
    std::map<std::string, std::string, std::less<>> notes;
    for (auto const& entity : model_->entities()) {
        if (error) return {};
        if (entity->isAbstract()) continue;
        std::size_t count = 0;
        bool isComplete = false;
        error = store()->count({.entity = entity.get(), .includesSubentities = false, .sortDescriptors = {}}, count, isComplete);
        notes[entity->name()] = std::to_string(count) + (count == 1 ? " record" : " records");
    }
    return error ? std::string() : model_->graphvizText(notes);
}

} // namespace Tessarin
