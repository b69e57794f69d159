#pragma once
#include "Tessarin/platform/objectgraph/context/ChangePackerPrivate.h"

namespace Tessarin {

/// One save of a context, step by step: check, give permanent keys, pack what changed into one immutable set, hand it on,
/// and only then let the objects forget that they had changed. Nothing is lost when a step fails.
class SaveOperation {
public:
    SaveOperation(NSManagedObjectContext& owner, ContextState& context) : owner_(owner), context_(context) {}

    /// Null when everything was handed on.
    Ref<NSError> run();

private:
    Ref<NSError> validate();
    Ref<NSError> givePermanentKeys();
    Ref<NSError> promotePublished();
    Ref<NSError> promoteReferences();
    Ref<NSError> promoteFresh(std::span<NSManagedObject* const> fresh);
    Ref<NSError> deliver();
    Ref<NSError> handUp(NSManagedObjectContext& parent);
    bool fitsAbove(ContextState& parent) const;
    Ref<NSError> decide(std::span<RowConflict> conflicts);
    void settle();
    void settle(NSManagedObject& object, RowRef const& row);
    void correct(NSManagedObject& object, RecordChange const& correction);

    NSManagedObjectContext& owner_;
    ContextState& context_;
    ChangePacker packer_{context_};
    ChangeSets sets_;          // what is handed on: what children handed up, then the own changes
    ChangeSets handed_;        // the same as it was taken
    Ref<ChangeSet const> own_; // null when there are none
    SaveOutcome outcome_;
    Ref<ChangeSet const> corrections_; // null when there are none
};

} // namespace Tessarin
