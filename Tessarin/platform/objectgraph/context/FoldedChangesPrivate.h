#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"

namespace Tessarin {

using ChangeSets = std::vector<Ref<ChangeSet const>>;

/// What several sets do to one record, one after the other.
struct RowChange {
    bool isThere = false; // in one of them
    RecordChange::Kind kind = RecordChange::Kind::Update;
    RowRef before, after;
    bool changesRelationships = false;
};
RowChange rowChangeIn(ChangeSets const& sets, NSEntityDescription const& entity, RecordKey key);

/// One set that reads as the two after one another; null where no set can say it: a record that was deleted and inserted
/// again, or a change that was not made on the one before it. For readers only: a save writes each set by itself.
Ref<ChangeSet const> folded(ChangeSet const& older, ChangeSet const& newer);

/// Appends a set to a list that is kept for readers, and folds it into its neighbours while they are not much longer: of
/// n sets stay a few more than their logarithm, and every change is copied about as often.
void addFolded(ChangeSets& list, Ref<ChangeSet const> set);

} // namespace Tessarin
