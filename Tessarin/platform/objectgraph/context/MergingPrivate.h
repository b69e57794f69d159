#pragma once
#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"

namespace Tessarin {

/// Bringing the change sets of other contexts to the registered objects of one. On its queue.

/// What children handed up: their values win over this context's unsaved ones of the same properties.
void applyReceived(ContextState& context);
/// What a relative saved: this context's unsaved values stay.
void mergeSaved(ContextState& context, ChangeSets const& sets);
/// The records that a save left with other values than it was given, as a change set; the context's objects follow.
Ref<ChangeSet const> correctionsOf(ContextState& context, std::vector<RowRef> const& corrected);

} // namespace Tessarin
