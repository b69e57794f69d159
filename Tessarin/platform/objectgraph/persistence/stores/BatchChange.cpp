#include "Tessarin/platform/objectgraph/persistence/stores/BatchChangePrivate.h"

#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

#include <fmt/format.h>

namespace Tessarin {

Ref<NSError> missingDestination(NSRelationshipDescription const& relationship, RecordKey key) {
    return storeError(StoreErrorCode::ObjectMissing,
                      fmt::format("{} cannot lead to {} p{}: there is no such record.", relationship.description(),
                                  relationship.destinationEntity()->name(), key));
}

} // namespace Tessarin
