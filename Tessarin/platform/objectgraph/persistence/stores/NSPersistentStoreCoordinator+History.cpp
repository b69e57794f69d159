#include "Tessarin/platform/objectgraph/persistence/history/HistoryRequest.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSPersistentStoreCoordinator.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

namespace Tessarin {
namespace {

Ref<NSError> noStore() { return storeError(StoreErrorCode::ContextWithoutStore, "There is no history without a store."); }

} // namespace

std::vector<HistoryTransaction> NSPersistentStoreCoordinator::fetchHistory(HistoryRequest const& request,
                                                                           Ref<NSError>& error) const {
    std::vector<HistoryTransaction> found;
    error = store() ? store()->history(request, found) : noStore();
    if (error) found.clear();
    return found;
}

std::optional<HistoryToken> NSPersistentStoreCoordinator::currentHistoryToken(Ref<NSError>& error) const {
    HistoryToken token;
    error = store() ? store()->newestOfHistory(token) : noStore();
    return error ? std::nullopt : std::optional(token);
}

bool NSPersistentStoreCoordinator::purgeHistory(HistoryToken const& upTo, Ref<NSError>& error) {
    error = store() ? store()->purgeHistory(upTo) : noStore();
    return !error;
}

bool NSPersistentStoreCoordinator::purgeHistory(NSDate const& before, Ref<NSError>& error) {
    error = store() ? store()->purgeHistory(before) : noStore();
    return !error;
}

} // namespace Tessarin
