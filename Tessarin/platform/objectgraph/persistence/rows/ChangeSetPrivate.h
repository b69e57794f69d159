#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeIndexPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/Row.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowCachePrivate.h"
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
    RowRef after; // none for a deletion; for an update equal to `before` when only to-many relationships changed
    std::vector<RelationshipChange> relationships;

    /// False when only to-many relationships changed, which leave the row as it is.
    bool changesRow() const noexcept { return kind != Kind::Update || after != before; }
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

    /// How many records of exactly this entity have changed rows.
    std::size_t changedRowsOf(NSEntityDescription const& entity) const noexcept { return changedRows_[entity.index()]; }
    bool changesRelationships() const noexcept { return changesRelationships_; }
    /// The records of that tree of entities whose attribute has this value after the change, and perhaps a few others; absent
    /// where that is not known without a look at each.
    std::optional<std::vector<RecordKey>> keysWith(NSEntityDescription const& rootEntity, NSAttributeDescription const& attribute,
                                                   Value const& value) const;

    /// The records that have these values of a constraint after the change.
    std::vector<RecordKey> keysWith(UniqueConstraint const& constraint, std::string const& values) const;

private:
    Ref<RowSpace> space_;
    std::vector<RecordChange> changes_;
    std::vector<std::size_t> changedRows_; // by index of the entity
    bool changesRelationships_ = false;
    ChangeIndex index_;
};

} // namespace Tessarin
