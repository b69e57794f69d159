#include "Tessarin/platform/objectgraph/model/NSRelationshipDescription.h"

#include <algorithm>

namespace Tessarin {

void NSRelationshipDescription::init(RelationshipDefinition definition) {
    NSObject::init();
    definition_ = std::move(definition);
    auto& options = definition_.options;
    if (!definition_.toMany) {
        options.ordered = false; // some documents say so of a to-one
        options.minCount = std::min<std::size_t>(options.minCount, 1);
        options.maxCount = 1;
    }
    if (options.renamingIdentifier.empty()) options.renamingIdentifier = definition_.name;
    isOptional_ = options.optional;
    isTransient_ = options.transient;
}

NSRelationshipDescription::NSRelationshipDescription() {
    name_ = &definition_.name;
    relationship_ = this;
}

} // namespace Tessarin
