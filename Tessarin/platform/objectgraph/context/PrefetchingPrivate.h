#pragma once
#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"

namespace Tessarin {

/// Reads what a key path of relationships leads to, for all the objects together, and keeps it while they live. An error for
/// a path that the entity does not have; throws when the store cannot be read.
Ref<NSError> prefetch(ContextState& context, NSEntityDescription const& entity, std::span<Ref<NSManagedObject> const> objects,
                      std::string_view keyPath);

/// Where the to-many relationships of objects that came together are read one after the other: reads those of the next ones along
/// with this one's, twice as many each time, and fills their destinations together. False when it did nothing: then `owner` is
/// to be read alone.
bool readMembersAhead(ContextState& context, NSManagedObject& owner, NSRelationshipDescription const& relationship);

} // namespace Tessarin
