#pragma once
#include "Tessarin/platform/objectgraph/context/ChangePackerPrivate.h"
#include "Tessarin/platform/objectgraph/context/OverruledChangesPrivate.h"

namespace Tessarin {

/// One save of a context, step by step: check, give permanent keys, pack what changed into one immutable set, hand it on,
/// and only then let the objects forget that they had changed. Nothing is lost when a step fails.
class SaveOperation {
public:
    SaveOperation(NSManagedObjectContext& owner, ContextState& context) : owner_(owner), context_(context) {}

    /// Null when everything was handed on; `handed`, if present, is then what.
    Ref<NSError> run(ChangeSets* handed = nullptr);

private:
    Ref<NSError> runSteps(ChangeSets* handed);
    Ref<NSError> handOn();
    Ref<NSError> whyNothingCanBeSaved(bool isClosed) const;
    Ref<NSError> announce();
    Ref<NSError> validate();
    template <class Ask> Ref<NSError> askObjects(Ask ask);
    Ref<NSError> prepare();
    bool isStillFree(std::uint64_t arrivals, std::uint64_t& looked);
    Ref<NSError> givePermanentKeys();
    Ref<NSError> promotePublished();
    Ref<NSError> promoteReferences();
    Ref<NSError> promoteFresh(std::span<NSManagedObject* const> fresh);
    Ref<NSError> deliver();
    Ref<NSError> write(NSPersistentStore& store);
    void takeApart(std::vector<RefusedSet> const& found);
    Ref<NSError> handUp(NSManagedObjectContext& parent);
    bool fitsAbove(ContextState& parent) const;
    Ref<NSError> decide(std::span<RowConflict> conflicts);
    void tellOverruled(bool isSaved);
    void settle();
    void noteCommitted() const;
    void setAside();
    void settleObjects();
    void settle(NSManagedObject& object, RowRef const& row);
    bool wasSetToWhatItWas(NSManagedObject& object, RowRef const& row) const;
    void showWhatOthersMade(std::span<Ref<NSManagedObject> const> objects);
    void correct(NSManagedObject& object, RecordChange const& correction);

    NSManagedObjectContext& owner_;
    ContextState& context_;
    ChangePacker packer_{context_};
    ChangeSets sets_;          // what is handed on: what children handed up, then the own changes
    std::vector<RefusedChanges::Refusal> refusals_; // of those, what a store will never take
    Ref<NSError> ownRefusal_;  // the same of the own changes, which stay unsaved then
    ChangeSets handed_;        // the same as it was taken
    Ref<ChangeSet const> own_; // null when there are none
    std::uint64_t lookedHere_ = 0, lookedAbove_ = 0; // arrivals at the look for unique values, at this context and its parent
    bool mustLookAgain_ = false; // somebody who came later is in the way
    SaveOutcome outcome_;
    Ref<ChangeSet const> corrections_; // null when there are none
    DecidedConflicts decided_, decidedUnique_; // where somebody observes what is overruled; the latter are in the objects already
};

} // namespace Tessarin
