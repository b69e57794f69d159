#pragma once
#include "Tessarin/platform/objectgraph/model/ModelDefinition.h"
#include "Tessarin/platform/objectgraph/model/NSPropertyDescription.h"
#include <span>

namespace Tessarin {

/// The version hash of an entity's description: of everything that affects how its objects are stored. The order of the
/// description does not matter. `entity` is without its properties.
std::string entityVersionHash(EntityDefinition const& entity, std::span<Ref<NSPropertyDescription> const> properties);

} // namespace Tessarin
