#pragma once
#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"

namespace Tessarin {

/// Reads what a key path of relationships leads to, for all the objects together, and keeps it while they live. An error for
/// a path that the entity does not have; throws when the store cannot be read.
Ref<NSError> prefetch(ContextState& context, NSEntityDescription const& entity, std::span<Ref<NSManagedObject> const> objects,
                      std::string_view keyPath);

} // namespace Tessarin
