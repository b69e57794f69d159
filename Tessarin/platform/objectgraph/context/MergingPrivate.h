#pragma once
#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"
#include "Tessarin/platform/objectgraph/context/DeletedRecordsPrivate.h"

namespace Tessarin {

/// Bringing the change sets of other contexts to the registered objects of one. On its queue.

/// What children handed up: their values win over this context's unsaved ones of the same properties.
void applyReceived(ContextState& context);
/// What a relative saved: this context's unsaved values stay, and so do records whose deletion it does not see yet.
void mergeSaved(ContextState& context, ContextState const& sender, ChangeSets const& sets);
/// A relative deleted everything at once.
void mergeDeleted(ContextState& context, DeletedRecords const& records);
/// The object shows this row from now on; whom it led to, and leads to now, looks again whom it has.
void showRow(ContextState& context, NSManagedObject& object, RowRef row);
/// Objects have left before they were saved: what children have handed up of their records does not make them records.
void dropHandedUp(ContextState& context, std::span<Ref<NSManagedObject> const> objects);
/// The object's record turned out to be gone; unsaved changes stay until a save finds that.
void noteGone(ContextState& context, NSManagedObject& object);
/// Records that a save left otherwise than it was given them: the context's objects follow, with their unsaved values on
/// top, and so do those of the contexts below, each on its own queue, soon or before what it does next.
void mergeCorrections(ContextState& context, Ref<ChangeSet const> const& set);
/// What a root context itself has changed is in the file: the contexts below follow before what they do next, and soon where
/// somebody is told of it.
void tellSavedAbove(ContextState const& root, Ref<ChangeSet const> const& set);

} // namespace Tessarin
