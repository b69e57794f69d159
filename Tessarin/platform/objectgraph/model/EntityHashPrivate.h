#pragma once
#include "Tessarin/platform/objectgraph/model/ModelDefinition.h"

namespace Tessarin {

/// The version hash of an entity's description: of everything that affects how its objects are stored. The order of the
/// description does not matter.
std::string entityVersionHash(EntityDefinition const& entity);

} // namespace Tessarin
