#pragma once
#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"
#include <span>

namespace Tessarin {

/// Reads the records of objects again, in one go for each tree of entities; unsaved values stay. One without unsaved changes
/// whose record is gone becomes a deleted one. Nothing for what was never saved, and for objects of other contexts. Throws
/// ErrorException, before any has changed, where the store cannot be read. On the context's queue.
void refreshObjects(ContextState& context, std::span<Ref<NSManagedObject> const> objects);

} // namespace Tessarin
