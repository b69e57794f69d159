#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/persistence/rows/Row.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSMergePolicyType.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include <optional>
#include <string_view>
#include <vector>

namespace Tessarin {

class NSManagedObject;
class RowSpace;
struct RowConflict;
struct UniqueConstraint;

/// A record that a save changes or deletes although somebody else saved it since it was read; or an object with values that must
/// be unique and that another record has already, see `uniqueProperties`. Snapshots hold attributes as
/// values and to-ones as object identifiers, by name. The snapshots and numbers may be read on any thread.
class TESSARIN_API NSMergeConflict : public NSObject {
public:
    /// The object of the context that saves, with its values as they are there.
    Ref<NSManagedObject> const& sourceObject() const noexcept { return source_; }
    /// What the changes were made on.
    Dictionary objectSnapshot() const;
    /// What this coordinator last knew to be saved; absent when it knows nothing any more.
    std::optional<Dictionary> cachedSnapshot() const;
    /// What the record is where the save goes, in the store or one level up; absent when it was deleted.
    std::optional<Dictionary> persistedSnapshot() const;
    std::uint64_t oldVersionNumber() const noexcept;
    /// 0 when the record was deleted.
    std::uint64_t newVersionNumber() const noexcept;

    /// The properties that must be unique together and that both have the same values of; empty for a record that was changed
    /// on both sides. The persisted snapshot is then that of the other record, the object snapshot what a new object begins
    /// with, or what the changed one was made on.
    std::vector<std::string> uniqueProperties() const;
    /// The other record, as an object of the context that saves; null when `uniqueProperties` is empty.
    Ref<NSManagedObject> const& existingObject() const noexcept { return existing_; }

    // For NSMergePolicy::resolveConflicts:
    /// Decides it as that type does; not for `Error`, which decides nothing. The last call counts. Of two records that have
    /// both been saved neither goes: where an object was changed to values that another has, only the types that let theirs
    /// win decide, and the object keeps its old ones.
    void resolve(NSMergePolicyType type);
    /// After `resolve`: another value for an attribute. Nothing when the record will be deleted; fatal for a name that is no
    /// stored attribute, and for a value of a wrong kind.
    void setResolvedValue(Value const& value, std::string_view attribute);

    /// "Book/p42 (title, year)": the record, and what both sides changed; or "deleted here", "deleted there".
    std::string description() const override;

protected:
    NSMergeConflict() = default;
    using NSObject::init;
    virtual void init(Ref<NSManagedObject> source, Ref<RowSpace> space, RowConflict conflict);
    virtual void init(Ref<NSManagedObject> source, Ref<RowSpace> space, RowConflict conflict, UniqueConstraint const& constraint,
                      Ref<NSManagedObject> existing);

private:
    friend class NSMergePolicy;
    friend class SaveOperation;
    friend class UniqueValuesLook;
    RowRef resolvedUnique(NSMergePolicyType type) const;
    std::optional<Dictionary> snapshotOf(RowRef const& row) const;

    Ref<NSManagedObject> source_; // constant after init, as what follows up to cached_
    Ref<RowSpace> space_;
    RowRef cached_;
    Ref<RowConflict> conflict_; // the resolver's own
    UniqueConstraint const* constraint_ = nullptr; // constant after init, as the next
    Ref<NSManagedObject> existing_;
    bool isResolved_ = false;
};

} // namespace Tessarin
