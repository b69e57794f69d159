#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/runtime/ScopedConnection.h"
#include <memory>
#include <string>

namespace Tessarin {

/// Takes back, step by step, what was changed in a context, and brings it back. A step is all that a turn changed: a block on the
/// context's queue, an event of the main loop; or all between `beginGroup` and the `endGroup` that belongs to it. A context has one
/// from the moment when it is asked for; without, its changes cost nothing more.
///
/// An undo is a change like any other: lists follow it, it is saved with the next save, also where what it takes back was saved
/// long ago. A deleted object comes back under its identity, as the same object, with its values and links and with what was
/// deleted with it; `prepareForDeletion`, `awakeFromInsert` and the delete rules have no part in it.
///
/// Only what was changed here is taken back, and what a child hands up that is `setUndoable`. What others wrote meanwhile stays, by
/// property; what others deleted stays deleted; what concerns records that are gone is passed over. `rollback` and
/// `refreshObject` leave the steps alone: what these took back themselves is passed over. `reset`, `deleteAllData` and the closing
/// of a store empty it.
///
/// On the context's queue. Does not keep the context; can do nothing once that is gone.
///
///     auto const undo = context->undoManager();
///     note->set(Note::title, "Plans");
///     undo->setActionName("Typing");                      // "Undo Typing" in a menu
///     …
///     if (undo->canUndo()) undo->undo();
class TESSARIN_API UndoManager : public NSObject {
public:
    bool canUndo() const;
    bool canRedo() const;
    /// False when nothing was left to take back: there is no step, or others have been at all of it. The step is gone then, too.
    /// Fatal while a group is open. Throws ErrorException when the store cannot be read; the step stays then, and what was done of
    /// it can be redone.
    bool undo();
    bool redo();

    /// Groups may be nested; the outermost ones are steps. What the turn has changed before is a step of its own. A group may stay
    /// open for several turns. Fatal to end one that is not open.
    void beginGroup();
    void endGroup();

    /// Names the step that is being made: the open group's, or this turn's, before or after its changes.
    void setActionName(std::string name);
    /// Of the step that is next; empty for one without a name, and when there is none.
    std::string undoActionName() const;
    std::string redoActionName() const;

    /// How many steps are kept; the oldest go. 0, as at the beginning: all.
    void setLimit(std::size_t count);
    std::size_t limit() const noexcept;
    /// What is kept for undo and redo goes, and what this turn has changed so far.
    void removeAll();
    /// The same for a context's undo manager, if it has one.
    static void removeAllOf(NSManagedObjectContext& context);
    /// What `work` changes belongs to no step. What it leaves otherwise than a step did is not taken back by that step.
    void withoutRegistration(FunctionRef<void()> work);

    /// Calls `told` at the end of a turn in which the answers above have become others, for a menu.
    ScopedConnection observe(Closure<void()> told);

    ~UndoManager() override;

protected:
    UndoManager();
    using NSObject::init;
    virtual void init(Ref<NSManagedObjectContext> context);

private:
    friend class NSManagedObjectContext;
    class Inside;
    std::unique_ptr<Inside> inside_;
};

} // namespace Tessarin
