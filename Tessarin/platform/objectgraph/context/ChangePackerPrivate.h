#pragma once
#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/RowBlockWriter.h"
#include "Tessarin/platform/objectgraph/persistence/RowBuilder.h"

namespace Tessarin {

/// Packs what changed in a context into one immutable set, without changing anything. On the context's queue.
class ChangePacker {
public:
    explicit ChangePacker(ContextState& context) : context_(context) {}

    /// Null when nothing differs from what was read.
    Ref<ChangeSet const> pack();
    /// Only the objects that constraints bind.
    Ref<ChangeSet const> pack(UniqueConstraints const& constraints);
    /// The rows that the last `pack` gave the changed objects, in their order.
    std::vector<RowRef> const& rows() const noexcept { return rows_; }
    /// The key that a record has now, for one that it may have had before it was given its permanent one.
    RecordKey current(RecordKey key) const;

private:
    RecordChange packedChange(NSManagedObject& object);
    RowRef basisOf(NSManagedObject& object);
    RowRef packedRow(NSManagedObject& object, RowRef const& basis);
    void packRelationships(NSManagedObject& object, RecordChange& change);
    std::vector<RecordKey> current(std::span<RecordKey const> keys) const;

    ContextState& context_;
    RowBuilder builder_;
    RowBlockWriter blocks_;
    std::vector<RowRef> rows_;
};

} // namespace Tessarin
