#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/RowConflictsPrivate.h"

namespace Tessarin {

/// Members that sets give a record and that do not exist: a store leaves such links out, so whoever took the sets for what is there
/// is told to look again. Each such owner becomes a correction, or a part of the one that it has already; its row is as the
/// sets say.
TESSARIN_API void addCutMembers(std::span<Ref<ChangeSet const> const> sets,
                                FunctionRef<bool(NSEntityDescription const& entity, RecordKey key)> isMissing,
                                SaveOutcome& outcome);

} // namespace Tessarin
