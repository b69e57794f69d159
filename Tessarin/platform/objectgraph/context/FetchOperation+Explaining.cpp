// How a request would be answered.
#include "Tessarin/platform/foundation/predicates/NSPredicate.h"
#include "Tessarin/platform/objectgraph/context/FetchOperationPrivate.h"
#include "Tessarin/platform/objectgraph/context/QueueRequirementPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

namespace Tessarin {

FetchExplanation NSManagedObjectContext::explain(NSFetchRequest const& request, Ref<NSError>& error) {
    requireQueue(*this, "explain");
    error = nullptr;
    processChanges(*this, *state_);
    FetchExplanation explanation;
    auto const* entity = entityOf(*state_, request, error);
    if (entity) error = caught([&] { return FetchOperation(*state_, request, *entity).explain(explanation); });
    return error ? FetchExplanation() : explanation;
}

Ref<NSError> FetchOperation::explain(FetchExplanation& explanation) {
    if (!store()) return storeError(StoreErrorCode::ContextWithoutStore, "There is no store to fetch from.");
    auto query = this->query();
    auto const wasCut = query.limit != 0 || query.offset != 0;
    if (mustLookAtAll_) query.predicate = nullptr;
    if (!isUntouched()) {
        query.offset = 0;
        if (mustLookAtAll_) query.limit = 0;
    }
    if (auto error = store()->explain(query, explanation)) return error;
    auto& left = explanation.inMemory;
    if (mustLookAtAll_)
        left.push_back(
            "Filtered by the whole predicate, over every record: unsaved changes may alter what it says of any of them.");
    if (hasUnsaved())
        left.push_back("Laid over the answer: " + std::to_string(unsaved_->count()) +
                       " unsaved records of this context and those above it, filtered and sorted.");
    if (!isUntouched() && wasCut) left.push_back("Cut by limit and offset, once that is done.");
    for (auto const& keyPath : request_.relationshipKeyPathsForPrefetching())
        left.push_back("Read with the results, for all at once: " + keyPath + ".");
    return nullptr;
}

} // namespace Tessarin
