#include "Tessarin/platform/objectgraph/persistence/stores/NSPersistentStore.h"

#include "Tessarin/platform/objectgraph/persistence/history/HistoryRequest.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/objectgraph/query/FetchExplanation.h"

namespace Tessarin {
namespace {

Ref<NSError> keepsNone(NSPersistentStore const& store) {
    return storeError(StoreErrorCode::HistoryMissing, "A store of the type " + store.type() + " keeps no history.");
}

} // namespace

Ref<NSError> NSPersistentStore::explain(StoreQuery const&, FetchExplanation& explanation) {
    explanation.inMemory.push_back("This store has no SQL: every record of the entity is looked at.");
    return nullptr;
}

Ref<NSError> NSPersistentStore::history(HistoryRequest const&, std::vector<HistoryTransaction>&) { return keepsNone(*this); }
Ref<NSError> NSPersistentStore::newestOfHistory(HistoryToken&) { return keepsNone(*this); }
Ref<NSError> NSPersistentStore::purgeHistory(HistoryToken const&) { return keepsNone(*this); }
Ref<NSError> NSPersistentStore::purgeHistory(NSDate const&) { return keepsNone(*this); }

} // namespace Tessarin
