#pragma once
#include "Tessarin/platform/objectgraph/context/ChangeRecorderPrivate.h"
#include "Tessarin/platform/objectgraph/context/ChangedObjectsPrivate.h"
#include "Tessarin/platform/objectgraph/context/ContextFeedPrivate.h"
#include "Tessarin/platform/objectgraph/context/ContextNewsPrivate.h"
#include "Tessarin/platform/objectgraph/context/EntityRulesPrivate.h"
#include "Tessarin/platform/objectgraph/context/GoneRecordsPrivate.h"
#include "Tessarin/platform/objectgraph/context/KeySetPrivate.h"
#include "Tessarin/platform/objectgraph/context/LoadedMembersPrivate.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/context/ObjectExtrasPrivate.h"
#include "Tessarin/platform/objectgraph/context/ObjectObserversPrivate.h"
#include "Tessarin/platform/objectgraph/context/PublishedChangesPrivate.h"
#include "Tessarin/platform/objectgraph/context/RefusedChangesPrivate.h"
#include "Tessarin/platform/objectgraph/context/ShownChangesPrivate.h"
#include "Tessarin/platform/objectgraph/context/ValuesInMemoryPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowConflictsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/KeyPromotionsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreQueryPrivate.h"
#include "Tessarin/platform/runtime/Cell.h"

namespace Tessarin {

/// The inside of a context. Belongs to its queue but for what is constant after set-up, `published` and the cells.
class ContextState {
public:
    NSManagedObjectContextConcurrencyType concurrencyType = NSManagedObjectContextConcurrencyType::PrivateQueue;
    dispatch_queue_t queue;
    Ref<NSManagedObjectContext> parent;
    Ref<NSPersistentStoreCoordinator> coordinator; // of the whole line of contexts
    ContextLinkRef link;                           // present once there is a coordinator
    EntityRulesTable rules;

    ChangedObjects changed; // every object with unsaved changes
    ValuesInMemory values;
    GoneRecords gone; // as far as it has come to this context
    std::uint32_t unsavedAbove = 1; // how often what ancestors show as unsaved had changed when this context last looked
    ContextNews news;
    ContextFeed feed;
    Ref<ObjectObservers> observers; // null while no object was ever observed
    Ref<ChangeRecorder> recorder;   // null while nobody asked for an undo manager
    Ref<std::string const> undoStep; // the name of the step that this context's saves are for its parent; null: none
    PublishedChanges published;                // what children handed up, not yet handed on; any thread
    RefusedChanges refused;                    // of a root context
    std::atomic<int> children{0};              // contexts whose parent this is; any thread
    bool isShowingUnsaved = false;             // had a child when it last processed its changes
    Unshown unshown;                           // what is unsaved and not shown to children yet
    bool mustShowAnew = false; // what is shown to children cannot be kept: it has keys that changed, or links that were undone
    std::size_t promotionsSeen = 0;            // of the coordinator's log
    bool knowsForeignTemporaries = false;      // has objects for unsaved records of an ancestor
    KeySet foreignTemporaries;                 // of objects that were made for those since the last save of them
    LoadedMembers loadedMembers;
    std::vector<Ref<NSManagedObject>>* touched = nullptr; // of whoever wants to know whose changes are others now

    Cell<Ref<NSMergePolicy>> mergePolicy;
    Cell<std::string> name, transactionAuthor;
    Ref<OthersChangesTaker> othersTaker; // of a root context
};

/// Who its changes are of; null where that has no name.
Ref<ChangeOrigin const> originOf(ContextState const& context);
/// What a context does before it answers: brings what has come to its objects, shows its children what is unsaved, announces.
void processChanges(NSManagedObjectContext& context, ContextState& state);

/// How the files of this room reach the insides of objects and contexts.
class GraphAccess {
public:
    static ObjectState& state(NSManagedObject& object) noexcept { return object.state_; }
    static ObjectState const& state(NSManagedObject const& object) noexcept { return object.state_; }
    static ContextState& state(NSManagedObjectContext& context) noexcept { return *context.state_; }
    static ContextState const& state(NSManagedObjectContext const& context) noexcept { return *context.state_; }
    static void fire(NSManagedObject& object) { object.fire(); }
    static std::vector<Ref<NSManagedObject>> destinations(NSManagedObject& object,
                                                          NSRelationshipDescription const& relationship) {
        return object.destinations(relationship);
    }
};

} // namespace Tessarin
