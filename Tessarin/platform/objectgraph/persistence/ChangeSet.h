#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/persistence/Row.h"
#include "Tessarin/platform/objectgraph/persistence/RowCache.h"
#include <optional>
#include <span>
#include <vector>

namespace Tessarin {

/// What changed in one to-many relationship of one record. The other side's to-one or to-many has its own change.
struct RelationshipChange {
    NSRelationshipDescription const* relationship = nullptr;
    std::vector<RecordKey> added;
    std::vector<RecordKey> removed;
    std::optional<std::vector<RecordKey>> order; // ordered relationships: the whole list as it is now
};

/// What happened to one record.
struct RecordChange {
    enum class Kind : std::uint8_t { Insert, Update, Delete };

    Kind kind = Kind::Insert;
    RecordKey key = 0;                           // permanent
    NSEntityDescription const* entity = nullptr; // the record's own, never an ancestor of it
    RowRef before;                               // the row that the change was made on; none for an insertion
    RowRef after;                                // none for a deletion; for an update equal to `before` when only to-many relationships changed
    std::vector<RelationshipChange> relationships;
};

/// The changes of one save: immutable, shared by the contexts above and the store. Any thread.
class TESSARIN_API ChangeSet {
public:
    ChangeSet(Ref<RowSpace> space, std::vector<RecordChange> changes);

    Ref<RowSpace> const& sharedSpace() const noexcept { return space_; }
    /// All changes, sorted by the index of the record's root entity, then by key.
    std::span<RecordChange const> changes() const noexcept { return changes_; }
    std::span<RecordChange const> changesOf(NSEntityDescription const& rootEntity) const noexcept;
    RecordChange const* find(NSEntityDescription const& entity, RecordKey key) const noexcept;
    bool empty() const noexcept { return changes_.empty(); }

private:
    Ref<RowSpace> space_;
    std::vector<RecordChange> changes_;
};

} // namespace Tessarin
