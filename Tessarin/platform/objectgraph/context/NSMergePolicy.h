#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/objectgraph/context/NSMergeConflict.h"
#include <vector>

namespace Tessarin {

// The types by their own names.
inline constexpr auto NSErrorMergePolicyType = NSMergePolicyType::Error;
inline constexpr auto NSMergeByPropertyStoreTrumpMergePolicyType = NSMergePolicyType::MergeByPropertyStoreTrump;
inline constexpr auto NSMergeByPropertyObjectTrumpMergePolicyType = NSMergePolicyType::MergeByPropertyObjectTrump;
inline constexpr auto NSOverwriteMergePolicyType = NSMergePolicyType::Overwrite;
inline constexpr auto NSRollbackMergePolicyType = NSMergePolicyType::Rollback;

/// What a context's save does with records that somebody else saved since they were read: another context of the same
/// parent, or, where the root context writes, another coordinator or process. Properties here are attributes and to-ones.
///
/// | type | both changed it | deleted elsewhere, changed here | changed elsewhere, deleted here |
/// |---|---|---|---|
/// | Error | the save fails | the save fails | the save fails |
/// | MergeByPropertyStoreTrump | property by property; of those that both changed, theirs | stays deleted | their record stays |
/// | MergeByPropertyObjectTrump | property by property; of those that both changed, ours | inserted again | deleted |
/// | Overwrite | every property ours, changed or not | inserted again | deleted |
/// | Rollback | every property theirs | stays deleted | their record stays |
///
/// A record that is inserted again has its properties and what this save added to its to-many relationships. To-many
/// relationships are no conflict: what each side added and removed counts. What an application did not set it gets as Error.
/// After a save that failed so, nothing has changed: set another policy, or refresh the objects (which then win over what they
/// were refreshed with), and save again.
///
/// The same policy decides about a new object with values that must be unique and that another record has, where the object is
/// saved: a record in the store, one that was saved one level up, or an older unsaved object of the same context.
///
/// | type | a new object with the values of an existing record |
/// |---|---|
/// | Error | the save fails, with 133021 |
/// | MergeByPropertyStoreTrump | the existing record stays, and takes only what it lacks |
/// | MergeByPropertyObjectTrump | the existing record takes the values that were set |
/// | Overwrite | the existing record takes every value |
/// | Rollback | the existing record stays as it is |
///
/// Where the existing record stays, the new object is deleted in its context, its links go to the record, and who led to it
/// leads to the record. An object that was changed to the values of another keeps its old ones under StoreTrump and Rollback;
/// under the other types the save fails, with 133021, because neither of two saved records can take the other's place.
///
/// A subclass decides itself, per conflict, and leaves the rest to its base:
///
///     bool resolveConflicts(std::vector<Ref<NSMergeConflict>> const& conflicts, Ref<NSError>& error) override {
///         if (!NSMergePolicy::resolveConflicts(conflicts, error)) return false;
///         for (auto const& each : conflicts) each->setResolvedValue(sumOf(*each), "count");
///         return true;
///     }
class TESSARIN_API NSMergePolicy : public NSObject {
public:
    NSMergePolicyType mergeType() const noexcept { return mergeType_; }

    /// Called on the queue of the context that saves, once for all conflicts of the save; nothing is written when it gives
    /// false, with an error or without. Where the root context saves, other processes wait meanwhile: it must not save.
    virtual bool resolveConflicts(std::vector<Ref<NSMergeConflict>> const& conflicts, Ref<NSError>& error);

protected:
    NSMergePolicy() = default;
    using NSObject::init;
    virtual void init(NSMergePolicyType mergeType) { mergeType_ = mergeType; }

private:
    NSMergePolicyType mergeType_ = NSMergePolicyType::Error;
};

// One shared policy of each type.
TESSARIN_API Ref<NSMergePolicy> const& NSErrorMergePolicy();
TESSARIN_API Ref<NSMergePolicy> const& NSMergeByPropertyStoreTrumpMergePolicy();
TESSARIN_API Ref<NSMergePolicy> const& NSMergeByPropertyObjectTrumpMergePolicy();
TESSARIN_API Ref<NSMergePolicy> const& NSOverwriteMergePolicy();
TESSARIN_API Ref<NSMergePolicy> const& NSRollbackMergePolicy();

/// The code of the error of a save that was refused because of conflicts; its userInfo holds them under NSConflictListKey.
inline constexpr std::int64_t NSManagedObjectMergeError = 133020;
inline constexpr char const* NSConflictListKey = "conflictList";

} // namespace Tessarin
