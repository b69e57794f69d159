#pragma once
#include "Tessarin/platform/objectgraph/model/ModelDefinition.h"

namespace Tessarin {

/// What is wrong with a name in a model, as a sentence that names entity and property; empty where all are of use. No predicate and
/// no key path reaches a property with a dot in its name, or with "@" in front, and no file keeps control characters or what is
/// not UTF-8. That a name is missing, or taken, is not looked at here.
std::string problemWithNames(ModelDefinition const& definition);

} // namespace Tessarin
