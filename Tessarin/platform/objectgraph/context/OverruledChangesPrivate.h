#pragma once
#include "Tessarin/platform/objectgraph/context/ContextNotificationsPrivate.h"
#include "Tessarin/platform/objectgraph/context/OverruledChanges.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowConflictsPrivate.h"
#include "Tessarin/platform/runtime/FunctionRef.h"

namespace Tessarin {

/// A conflict that a policy has decided.
struct DecidedConflict {
    RowConflict conflict;
    bool hasOtherRecord = false; // `stored` is another record, which has the unique values and stays as it is
};
using DecidedConflicts = std::vector<DecidedConflict>;

bool hasOverruleObservers();
/// Whether values were given up at all.
bool isOverruled(DecidedConflict const& decided);

/// Carries what was decided in one save.
class ContextOverruleNotification : public ContextNotification {
protected:
    ContextOverruleNotification() = default;
    using ContextNotification::init;
    virtual void init(Ref<NSManagedObjectContext> context, DecidedConflicts decided);
    Dictionary makeUserInfo(NSManagedObjectContext& context) const override;

private:
    DecidedConflicts decided_;
};

/// `areOwn`: the context's own changes are among them.
void postDidOverrule(NSManagedObjectContext& context, DecidedConflicts decided, bool areOwn);

} // namespace Tessarin
