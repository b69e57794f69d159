#include "Tessarin/platform/objectgraph/context/NSMergePolicy.h"

#include "Tessarin/platform/objectgraph/persistence/rows/RowConflictsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/objectgraph/persistence/stores/UniqueConstraintsPrivate.h"

namespace Tessarin {
namespace {

Ref<NSError> errorOf(std::vector<Ref<NSMergeConflict>> const& conflicts, UniqueConstraint const* constraint) {
    Dictionary const list{{NSConflictListKey, Value(List(conflicts.begin(), conflicts.end()))}};
    if (constraint) return constraint->violation(list);
    std::string text = "Changed elsewhere since it was read:";
    for (auto const& conflict : conflicts) text += (conflict == conflicts.front() ? " " : "; ") + conflict->description();
    return storeError(StoreErrorCode::MergeConflict, text, list);
}

/// Made on first use, never destroyed: contexts may outlive everything else.
template <NSMergePolicyType type> Ref<NSMergePolicy> const& shared() {
    static auto const& policy = *new Ref<NSMergePolicy>(make<NSMergePolicy>(type));
    return policy;
}

} // namespace

bool NSMergePolicy::resolveConflicts(std::vector<Ref<NSMergeConflict>> const& conflicts, Ref<NSError>& error) {
    if (conflicts.empty()) return true;
    if (mergeType_ == NSMergePolicyType::Error) {
        error = errorOf(conflicts, conflicts.front()->constraint_);
        return false;
    }
    for (auto const& conflict : conflicts) conflict->resolve(mergeType_);
    return true;
}

Ref<NSMergePolicy> const& NSErrorMergePolicy() { return shared<NSErrorMergePolicyType>(); }
Ref<NSMergePolicy> const& NSMergeByPropertyStoreTrumpMergePolicy() {
    return shared<NSMergeByPropertyStoreTrumpMergePolicyType>();
}
Ref<NSMergePolicy> const& NSMergeByPropertyObjectTrumpMergePolicy() {
    return shared<NSMergeByPropertyObjectTrumpMergePolicyType>();
}
Ref<NSMergePolicy> const& NSOverwriteMergePolicy() { return shared<NSOverwriteMergePolicyType>(); }
Ref<NSMergePolicy> const& NSRollbackMergePolicy() { return shared<NSRollbackMergePolicyType>(); }

} // namespace Tessarin
