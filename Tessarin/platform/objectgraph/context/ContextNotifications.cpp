#include "Tessarin/platform/objectgraph/context/ContextNotificationsPrivate.h"

#include "Tessarin/platform/foundation/NSNotificationCenter.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"

namespace Tessarin {
namespace {

ValueSet setOf(std::vector<Ref<NSManagedObject>> const& objects) { return {objects.begin(), objects.end()}; }

} // namespace

void ContextNotification::init(Text name, Ref<NSManagedObjectContext> context) { NSNotification::init(std::move(name), std::move(context), {}); }

Value const& ContextNotification::userInfo() const {
    std::call_once(made_, [this] {
        if (auto const context = std::dynamic_pointer_cast<NSManagedObjectContext>(object())) lazyInfo_ = makeUserInfo(*context);
    });
    return lazyInfo_;
}

Dictionary ContextNotification::makeUserInfo(NSManagedObjectContext& context) const {
    return {{NSInsertedObjectsKey, setOf(context.insertedObjects())},
            {NSUpdatedObjectsKey, setOf(context.updatedObjects())},
            {NSDeletedObjectsKey, setOf(context.deletedObjects())}};
}

void ContextDidSaveNotification::init(Ref<NSManagedObjectContext> context, ChangeSets sets) {
    ContextNotification::init(NSManagedObjectContextDidSaveNotification, std::move(context));
    sets_ = std::move(sets);
}

Dictionary ContextDidSaveNotification::makeUserInfo(NSManagedObjectContext& context) const {
    using Kind = RecordChange::Kind;
    ValueSet inserted, updated, deleted;
    for (auto const& set : sets_)
        for (auto const& change : set->changes()) {
            Value const object{objectWithKey(GraphAccess::state(context), *change.entity, change.key)};
            auto& kind = change.kind == Kind::Insert ? inserted : change.kind == Kind::Update ? updated : deleted;
            kind.insert(object);
        }
    return {{NSInsertedObjectsKey, std::move(inserted)}, {NSUpdatedObjectsKey, std::move(updated)}, {NSDeletedObjectsKey, std::move(deleted)}};
}

void postDidSave(NSManagedObjectContext& context, ChangeSets sets) {
    auto const notification = make<ContextDidSaveNotification>(context.self<NSManagedObjectContext>(), std::move(sets));
    NSNotificationCenter::defaultCenter()->postNotification(notification);
}

void postDidChange(NSManagedObjectContext& context) {
    auto const notification =
        make<ContextNotification>(Text(NSManagedObjectContextObjectsDidChangeNotification), context.self<NSManagedObjectContext>());
    NSNotificationCenter::defaultCenter()->postNotification(notification);
}

} // namespace Tessarin
