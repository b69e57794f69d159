#pragma once
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowBlockWriterPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowBuilderPrivate.h"

namespace Tessarin {

/// Packs what changed in a context into one immutable set, without changing anything. On the context's queue.
class ChangePacker {
public:
    enum class Purpose { Save, Show };
    explicit ChangePacker(ContextState& context, Purpose purpose = Purpose::Save) : context_(context), purpose_(purpose) {}

    /// Null when nothing differs from what was read.
    Ref<ChangeSet const> pack();
    /// Only the objects that constraints bind.
    Ref<ChangeSet const> pack(UniqueConstraints const& constraints);
    /// One object's changes, without those of its relationships unless asked; absent when nothing differs.
    std::optional<RecordChange> packed(NSManagedObject& object, bool withRelationships);
    /// The members of an ordered relationship that was changed, in their order.
    std::vector<RecordKey> order(NSManagedObject& object, NSRelationshipDescription const& relationship) const;
    /// The rows that the last `pack` gave the changed objects, in their order.
    std::vector<RowRef> const& rows() const noexcept { return rows_; }
    /// The key that a record has now, for one that it may have had before it was given its permanent one.
    RecordKey current(RecordKey key) const;

private:
    Ref<UndoableStep const> undoableStep() const;
    RecordChange packedChange(NSManagedObject& object, bool withRelationships = true);
    RowRef basisOf(NSManagedObject& object);
    RowRef packedRow(NSManagedObject& object, RowRef const& basis);
    void packRelationships(NSManagedObject& object, RecordChange& change);
    std::vector<RecordKey> current(std::span<RecordKey const> keys) const;

    /// Whether it is the key of an unsaved record of a context above, of which nobody here may keep an object.
    bool isAncestors(RecordKey key) const;

    ContextState& context_;
    Purpose const purpose_;
    mutable std::unique_ptr<RecordReader> above_; // made when first needed
    RowBuilder builder_;
    RowBlockWriter blocks_;
    std::vector<RowRef> rows_;
};

} // namespace Tessarin
