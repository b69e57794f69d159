#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"

#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/objectgraph/context/ContextNotificationsPrivate.h"
#include "Tessarin/platform/objectgraph/context/MergingPrivate.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/OthersMergingPrivate.h"
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"
#include "Tessarin/platform/objectgraph/context/RefreshingPrivate.h"
#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"
#include "Tessarin/platform/objectgraph/context/SaveOperationPrivate.h"
#include "Tessarin/platform/objectgraph/context/QueueRequirementPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/queues/Dispatch.h"
#include "Tessarin/platform/runtime/Fatal.h"

namespace Tessarin {
namespace {

void joinCoordinator(ContextState& context, Ref<NSManagedObjectContext> const& owner,
                     Ref<NSPersistentStoreCoordinator> coordinator) {
    context.coordinator = std::move(coordinator);
    context.link = ContextLinkRef{new ContextLink(owner, context, context.coordinator)};
    context.promotionsSeen = context.coordinator->promotions().join();
}

/// One block on the context's queue; it ends also when it throws.
void runBlock(NSManagedObjectContext& context, ContextState& state, FunctionRef<void()> block) {
    struct Open {
        explicit Open(ContextNews& opened) : news(opened) { ++news.openBlocks; }
        ~Open() { --news.openBlocks; }
        ContextNews& news;
    };
    {
        Open const open(state.news);
        applyReceived(state);
        block();
    }
    context.processPendingChanges();
}

Ref<NSError> noCoordinator() {
    return storeError(StoreErrorCode::ContextWithoutStore, "This context has neither a parent nor a coordinator.");
}

std::vector<Ref<NSManagedObject>> changedWhere(ContextState const& context, FunctionRef<bool(NSManagedObject const&)> fits) {
    std::vector<Ref<NSManagedObject>> result;
    for (auto const& object : context.changed)
        if (fits(*object)) result.push_back(object);
    return result;
}

} // namespace

void processChanges(NSManagedObjectContext& context, ContextState& state) {
    applyReceived(state);
    showUnsaved(state);
    postDidChange(context);
}

NSManagedObjectContext::NSManagedObjectContext() : state_(std::make_unique<ContextState>()) {}

NSManagedObjectContext::~NSManagedObjectContext() {
    if (state_->parent) state_->parent->state_->children.fetch_sub(1, std::memory_order_relaxed);
    if (!state_->link) return;
    state_->link->contextIsGone();
    state_->coordinator->promotions().leave(state_->promotionsSeen);
}

void NSManagedObjectContext::init(ConcurrencyType concurrencyType) {
    state_->concurrencyType = concurrencyType;
    state_->queue = concurrencyType == ConcurrencyType::MainQueue ? dispatch_get_main_queue()
                                                                  : dispatch_queue_create("NSManagedObjectContext", {});
}

NSManagedObjectContextConcurrencyType NSManagedObjectContext::concurrencyType() const noexcept { return state_->concurrencyType; }
dispatch_queue_t const& NSManagedObjectContext::queue() const noexcept { return state_->queue; }
Ref<NSManagedObjectContext> const& NSManagedObjectContext::parentContext() const noexcept { return state_->parent; }
Ref<NSPersistentStoreCoordinator> NSManagedObjectContext::persistentStoreCoordinator() const { return state_->coordinator; }
Ref<NSMergePolicy> NSManagedObjectContext::mergePolicy() const {
    auto policy = state_->mergePolicy.get();
    return policy ? policy : NSErrorMergePolicy();
}
void NSManagedObjectContext::setMergePolicy(Ref<NSMergePolicy> policy) { state_->mergePolicy.set(std::move(policy)); }
std::string NSManagedObjectContext::name() const { return state_->name.get(); }
void NSManagedObjectContext::setName(std::string name) { state_->name.set(std::move(name)); }

void NSManagedObjectContext::setParentContext(Ref<NSManagedObjectContext> parent) {
    if (state_->link || state_->parent) fatal("a context's parent cannot be set once it has a parent or a coordinator");
    state_->parent = std::move(parent);
    if (state_->parent) {
        state_->parent->state_->children.fetch_add(1, std::memory_order_relaxed);
        state_->parent->state_->published.addReader(self<NSManagedObjectContext>());
    }
    if (!state_->parent || !state_->parent->state_->coordinator) return;
    joinCoordinator(*state_, self<NSManagedObjectContext>(), state_->parent->state_->coordinator);
}

void NSManagedObjectContext::setPersistentStoreCoordinator(Ref<NSPersistentStoreCoordinator> coordinator) {
    if (state_->link || state_->parent) fatal("a context's coordinator cannot be set once it has a parent or a coordinator");
    joinCoordinator(*state_, self<NSManagedObjectContext>(), std::move(coordinator));
    joinOthers(self<NSManagedObjectContext>(), *state_);
}

void NSManagedObjectContext::performBlock(Closure<void()> block) {
    dispatch_async(state_->queue, [context = self<NSManagedObjectContext>(), block = std::move(block)] {
        runBlock(*context, *context->state_, block);
    });
}

void NSManagedObjectContext::performBlockAndWait(FunctionRef<void()> block) {
    if (queueIsHeld(state_->queue)) return runBlock(*this, *state_, block);
    dispatch_sync(state_->queue, [&] { runBlock(*this, *state_, block); });
}

Ref<NSManagedObject> NSManagedObjectContext::insertNewObject(std::string_view entityName) {
    requireQueue(*this, "insertNewObject");
    if (!state_->link) fatal("an object cannot be made in a context without a coordinator");
    auto const* entity = state_->coordinator->managedObjectModel()->entityNamed(entityName);
    if (!entity) fatal("there is no entity named \"" + std::string{entityName} + "\" in this model");
    if (entity->isAbstract()) fatal("the entity \"" + entity->name() + "\" is abstract: no object of it can be made");
    auto object = state_->link->makeObject(*entity, NSPersistentStoreCoordinator::temporaryKey());
    auto& state = GraphAccess::state(*object);
    state_->link->add(*object, state.key);
    auto const& defaults = state_->rules.of(*entity).defaults;
    for (auto const* attribute : defaults)
        state.more().values.emplace_back(static_cast<std::uint32_t>(attribute->index()), attribute->defaultValue());
    markChanged(*object, ObjectState::Inserted);
    if (auto* recorder = recorderOf(*object)) recorder->noteInsertion(*object);
    try {
        object->awakeFromInsert();
    } catch (...) { // nobody gets it, so nobody should find it in the store
        deleteObject(*object);
        throw;
    }
    return object;
}

Ref<NSManagedObject> NSManagedObjectContext::objectWithID(NSManagedObjectID const& id) {
    requireQueue(*this, "objectWithID");
    if (!state_->link || !id.isIn(state_->coordinator->identities())) return nullptr;
    return objectWithKey(*state_, id.entity(), id.recordKey());
}

Ref<NSManagedObject> NSManagedObjectContext::existingObjectWithID(NSManagedObjectID const& id, Ref<NSError>& error) {
    requireQueue(*this, "existingObjectWithID");
    error = nullptr;
    Ref<NSManagedObject> object;
    try {
        object = objectWithID(id);
        if (object) GraphAccess::fire(*object);
    } catch (ErrorException const& failure) {
        error = failure.error();
        return nullptr;
    }
    if (object && !GraphAccess::state(*object).has(ObjectState::Gone)) return object;
    error = storeError(StoreErrorCode::ObjectMissing, "There is no record " + id.description() + ".");
    return nullptr;
}

Ref<NSManagedObject> NSManagedObjectContext::objectRegisteredForID(NSManagedObjectID const& id) {
    requireQueue(*this, "objectRegisteredForID");
    if (!state_->link || !id.isIn(state_->coordinator->identities())) return nullptr;
    return state_->link->find(id.recordKey());
}

std::vector<Ref<NSManagedObject>> NSManagedObjectContext::registeredObjects() const {
    requireQueue(*this, "registeredObjects");
    return state_->link ? state_->link->all() : std::vector<Ref<NSManagedObject>>{};
}
std::vector<Ref<NSManagedObject>> NSManagedObjectContext::registeredObjects(NSEntityDescription const& entity) const {
    requireQueue(*this, "registeredObjects");
    return state_->link ? state_->link->all(&entity) : std::vector<Ref<NSManagedObject>>{};
}
std::vector<Ref<NSManagedObject>> NSManagedObjectContext::insertedObjects() const {
    requireQueue(*this, "insertedObjects");
    return changedWhere(*state_, [](NSManagedObject const& object) { return object.isInserted() && !object.isDeleted(); });
}
std::vector<Ref<NSManagedObject>> NSManagedObjectContext::updatedObjects() const {
    requireQueue(*this, "updatedObjects");
    return changedWhere(*state_, [](NSManagedObject const& object) { return object.isUpdated(); });
}
std::vector<Ref<NSManagedObject>> NSManagedObjectContext::deletedObjects() const {
    requireQueue(*this, "deletedObjects");
    return changedWhere(*state_, [](NSManagedObject const& object) { return object.isDeleted(); });
}

std::size_t NSManagedObjectContext::pendingSaves() const { return state_->published.count(); }
bool NSManagedObjectContext::hasChanges() const {
    requireQueue(*this, "hasChanges");
    return !state_->changed.empty() || !state_->published.empty();
}

bool NSManagedObjectContext::save(Ref<NSError>& error) {
    requireQueue(*this, "save");
    error = state_->link ? SaveOperation(*this, *state_).run() : noCoordinator();
    return !error;
}

bool NSManagedObjectContext::saveThrough(Ref<NSError>& error) {
    requireQueue(*this, "saveThrough");
    auto root = self<NSManagedObjectContext>();
    while (root->parentContext()) root = root->parentContext();
    auto const seen = root->state_->refused.count();
    ChangeSets handed;
    error = state_->link ? SaveOperation(*this, *state_).run(&handed) : noCoordinator();
    for (auto ancestor = parentContext(); ancestor && !error; ancestor = ancestor->parentContext())
        ancestor->performBlockAndWait([&] { ancestor->save(error); });
    if (!error) root->performBlockAndWait([&] { error = root->state_->refused.reasonFor(handed, seen); });
    return !error;
}

void NSManagedObjectContext::refreshObject(NSManagedObject& object, bool mergeChanges) {
    requireQueue(*this, "refreshObject");
    auto& state = GraphAccess::state(object);
    if (state.link() != state_->link.get() || state.has(ObjectState::Inserted))
        return; // what was never saved cannot be read again
    if (mergeChanges) {
        auto const living = object.self<NSManagedObject>();
        return refreshObjects(*state_, {&living, 1});
    }
    noteNews(*state_, object, ContextNews::Refreshed);
    undoLinks(*state_, object);
    unmarkChanged(*state_, object);
    state.flags = ObjectState::Fault | (state.flags & ObjectState::Unshown);
    if (state.extras) {
        if (!state.extras->toMany.empty()) state_->mustShowAnew = true;
        state.extras->values.clear();
        state.extras->toMany.clear();
    }
    state.row = {};
    state.batch = state_->link->lone();
}

void NSManagedObjectContext::refreshAllObjects() {
    requireQueue(*this, "refreshAllObjects");
    refreshObjects(*state_, registeredObjects());
}

void NSManagedObjectContext::rollback() {
    requireQueue(*this, "rollback");
    std::vector<Ref<NSManagedObject>> unsaved;
    for (auto const& object : std::exchange(state_->changed, {})) {
        auto& state = GraphAccess::state(*object);
        if (state.has(ObjectState::Inserted)) unsaved.push_back(object);
        auto const leaves = state.has(ObjectState::Inserted) || (state.extras && state.extras->isRecordGone);
        noteNews(*state_, *object, leaves ? ContextNews::Deleted : ContextNews::Refreshed);
        state.flags &= ObjectState::Unshown;
        if (state.extras) {
            state.extras->values.clear();
            state.extras->toMany.clear();
        }
        if (!leaves) {
            if (!state.row) state.set(ObjectState::Fault);
            continue;
        }
        state_->link->remove(*object, state.key);
        state.set(ObjectState::Deleted);
        state.set(ObjectState::Gone);
    }
    if (!unsaved.empty()) dropHandedUp(*state_, unsaved);
    if (state_->link) state_->link->forgetAliases();
    state_->published.setUnsaved({});
    dropRefused(*state_);
}

std::vector<Ref<NSError>> NSManagedObjectContext::refusalReasons() const {
    requireQueue(*this, "refusalReasons");
    std::vector<Ref<NSError>> reasons;
    for (auto const& refusal : state_->refused.all()) reasons.push_back(refusal.reason);
    return reasons;
}

void NSManagedObjectContext::dropRefusedChanges() {
    requireQueue(*this, "dropRefusedChanges");
    dropRefused(*state_);
}

void NSManagedObjectContext::reset() {
    requireQueue(*this, "reset");
    rollback();
    for (auto const& object : registeredObjects()) {
        auto& state = GraphAccess::state(*object);
        noteNews(*state_, *object, ContextNews::Invalidated);
        state_->link->remove(*object, state.key);
        state.set(ObjectState::Deleted);
        state.set(ObjectState::Gone);
        state.batch = state_->link->lone();
    }
    if (state_->recorder) state_->recorder->forgetAll();
}

void NSManagedObjectContext::setUndoable(std::optional<std::string> actionName) {
    state_->undoStep = actionName ? std::make_shared<std::string const>(*std::move(actionName)) : nullptr;
}

void NSManagedObjectContext::processPendingChanges() {
    requireQueue(*this, "processPendingChanges");
    processChanges(*this, *state_);
    if (state_->news.openBlocks == 0) state_->feed.tell(*state_);
}

void NSManagedObjectContext::mergeChangesFromContextDidSaveNotification(NSNotification const& notification) {
    requireQueue(*this, "mergeChangesFromContextDidSaveNotification");
    auto const* saved = dynamic_cast<ContextDidSaveNotification const*>(&notification);
    auto const sender = std::dynamic_pointer_cast<NSManagedObjectContext>(notification.object());
    if (!saved || !sender || sender.get() == this || sender->state_->coordinator != state_->coordinator) return;
    mergeSaved(*state_, *sender->state_, saved->sets());
    mergeDeleted(*state_, saved->deleted());
    if (state_->news.openBlocks == 0) processPendingChanges();
}

} // namespace Tessarin
