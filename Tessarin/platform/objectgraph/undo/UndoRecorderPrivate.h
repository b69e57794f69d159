#pragma once
#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"
#include "Tessarin/platform/objectgraph/undo/UndoManager.h"
#include "Tessarin/platform/objectgraph/undo/UndoStepPrivate.h"
#include <deque>
#include <map>
#include <unordered_map>
#include <unordered_set>

namespace Tessarin {

/// Writes steps down, keeps them, and has them taken back (UndoApplication). The step that is open belongs to the open group, or
/// to this turn.
class UndoManager::Inside : public ChangeRecorder, public ContextFollower {
public:
    using Steps = std::deque<Ref<UndoStep>>;
    using Told = Closure<void()>;

    Inside(UndoManager& owner, ContextLinkRef context) : owner_(owner), link_(std::move(context)) {}

    UndoManager& owner() const noexcept { return owner_; }
    ContextState* context() const noexcept { return link_->contextState(); }
    Steps const& undoSteps() const noexcept { return undo_; }
    Steps const& redoSteps() const noexcept { return redo_; }
    UndoStep const* openStep() const noexcept { return hasChanges() ? &open_->step : nullptr; }

    void beginGroup();
    void endGroup();
    void setName(std::string name);
    void setLimit(std::size_t count);
    std::size_t limit() const noexcept { return limit_; }
    bool takeBack(Steps& from, Steps& to);
    bool undo() { return takeBack(undo_, redo_); }
    bool redo() { return takeBack(redo_, undo_); }
    ScopedConnection observe(Told told);
    /// The key that a record has now, for one that it had when it was written down.
    RecordKey current(RecordKey key) const;
    bool isLost(RecordKey key) const { return lost_.contains(key); }

    void noteInsertion(NSManagedObject& object) override;
    void noteDeletion(NSManagedObject& object) override;
    void noteValue(NSManagedObject& object, NSPropertyDescription const& property, Value before, Value const& now) override;
    void noteMember(NSManagedObject& owner, NSRelationshipDescription const& relationship, RecordKey member,
                    bool isMember) override;
    void noteOrder(NSManagedObject& owner, NSRelationshipDescription const& relationship) override;
    void noteNewKey(RecordKey before, RecordKey now) override;
    void noteArrival(ChangeSet const& set) override;
    void noteLoss(NSManagedObject const& object) override;
    void forgetAll() override;
    void follow(ContextTurn const& turn) override;

private:
    struct Order {
        Ref<NSManagedObject> owner;
        std::vector<RecordKey> before;
    };
    struct Open {
        UndoStep step;
        RecordKey firstNew; // temporary keys below it are of objects that were made since; deleting them takes all back
        std::unordered_set<RecordKey> gone; // of those that have been deleted again
        std::map<std::pair<NSManagedObject const*, NSRelationshipDescription const*>, Order> orders;
    };
    /// What a menu shows.
    struct Answers {
        bool canUndo = false, canRedo = false;
        std::string undoName, redoName;
        bool operator==(Answers const&) const = default;
    };

    bool hasChanges() const noexcept { return open_ && (!open_->step.empty() || !open_->orders.empty()); }
    Open& open(RecordKey firstNew = 0);
    bool isNew(NSManagedObject const& object) const;
    bool isNewKey(RecordKey key) const;
    /// The step that is open is over; null when nothing has happened in it.
    Ref<UndoStep> close();
    void closeIntoUndo();
    void noteOrdersWith(NSManagedObject& object);
    void finishOrders(Open& open);
    void push(Steps& steps, Ref<UndoStep> step);
    void beginImport(Ref<std::string const> const& import, UndoStep step);
    void joinImport(Ref<UndoStep> const& step, UndoStep more);
    void add(RecordChange const& change, UndoableStep const& told, UndoStep& step) const;
    void awaitEndOfTurn();
    Answers answers() const;
    void tell();

    UndoManager& owner_; // which owns this
    ContextLinkRef link_;
    Steps undo_, redo_;
    std::unique_ptr<Open> open_;
    int groups_ = 0;
    bool isTakingBack_ = false;
    std::string nextName_; // of the step that is opened next in this turn
    std::size_t limit_ = 0;
    KeyAliases aliases_;
    std::unordered_set<RecordKey> lost_; // of records that somebody else has deleted
    std::unordered_map<std::string const*, WeakRef<UndoStep>> imports_;
    std::vector<WeakRef<Told>> observers_;
    Answers told_;
};

} // namespace Tessarin
