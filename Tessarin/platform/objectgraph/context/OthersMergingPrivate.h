#pragma once
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"

namespace Tessarin {

/// Has a root context told what others, processes or coordinators, write to its store; the contexts below it learn of it, too. It
/// keeps the context not.
void joinOthers(Ref<NSManagedObjectContext> const& root, ContextState& state);

} // namespace Tessarin
