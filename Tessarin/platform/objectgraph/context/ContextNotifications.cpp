#include "Tessarin/platform/objectgraph/context/ContextNotificationsPrivate.h"

#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/foundation/notifications/NSNotificationChannel.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/queues/Dispatch.h"

namespace Tessarin {
namespace {

Ref<NSNotificationChannel> const& changeChannel() {
    static auto const& channel =
        *new auto(NSNotificationCenter::defaultCenter()->channelForName(NSManagedObjectContextObjectsDidChangeNotification));
    return channel;
}

Dictionary objectsOf(NSManagedObjectContext& context, ChangeSets const& sets, DeletedRecords const& records = {}) {
    using Kind = RecordChange::Kind;
    ValueSet inserted, updated, deleted;
    for (auto const& set : sets)
        for (auto const& change : set->changes()) {
            Value const object{objectWithKey(GraphAccess::state(context), *change.entity, change.key)};
            auto& kind = change.kind == Kind::Insert ? inserted : change.kind == Kind::Update ? updated : deleted;
            kind.insert(object);
        }
    for (auto const& run : records.runs())
        for (auto key = run.first; key <= run.last; ++key) {
            auto const object = GraphAccess::state(context).link->makeObject(*run.entity, key);
            GraphAccess::state(*object).set(ObjectState::Deleted);
            GraphAccess::state(*object).set(ObjectState::Gone);
            deleted.insert(Value(object));
        }
    return {{NSInsertedObjectsKey, std::move(inserted)},
            {NSUpdatedObjectsKey, std::move(updated)},
            {NSDeletedObjectsKey, std::move(deleted)}};
}

} // namespace

void ContextNotification::init(Text name, Ref<NSManagedObjectContext> context) {
    NSNotification::init(std::move(name), std::move(context), {});
}

Value const& ContextNotification::userInfo() const {
    std::call_once(made_, [this] {
        if (auto const context = std::dynamic_pointer_cast<NSManagedObjectContext>(object())) lazyInfo_ = makeUserInfo(*context);
    });
    return lazyInfo_;
}

void ContextDidSaveNotification::init(Ref<NSManagedObjectContext> context, ChangeSets sets, DeletedRecords deleted) {
    ContextNotification::init(NSManagedObjectContextDidSaveNotification, std::move(context));
    sets_ = std::move(sets);
    deleted_ = std::move(deleted);
}

Dictionary ContextDidSaveNotification::makeUserInfo(NSManagedObjectContext& context) const {
    return objectsOf(context, sets_, deleted_);
}

void ContextRefusalNotification::init(Ref<NSManagedObjectContext> context, ChangeSets sets, Ref<NSError> reason) {
    ContextNotification::init(NSManagedObjectContextDidRefuseChangesNotification, std::move(context));
    sets_ = std::move(sets);
    reason_ = std::move(reason);
}

Dictionary ContextRefusalNotification::makeUserInfo(NSManagedObjectContext& context) const {
    auto info = objectsOf(context, sets_);
    info.set(NSRefusalErrorKey, Value(reason_));
    return info;
}

void postDidSave(NSManagedObjectContext& context, ChangeSets sets, DeletedRecords deleted) {
    auto const notification =
        make<ContextDidSaveNotification>(context.self<NSManagedObjectContext>(), std::move(sets), std::move(deleted));
    NSNotificationCenter::defaultCenter()->postNotification(notification);
}

void ContextDidChangeNotification::init(Ref<NSManagedObjectContext> context, ContextNews::Entries entries) {
    ContextNotification::init(NSManagedObjectContextObjectsDidChangeNotification, std::move(context));
    entries_ = std::move(entries);
}

Dictionary ContextDidChangeNotification::makeUserInfo(NSManagedObjectContext&) const {
    ValueSet inserted, updated, deleted, refreshed, invalidated;
    for (auto const& [key, entry] : entries_) {
        Value const object{entry.object};
        auto const has = [&](ContextNews::Kind kind) { return (entry.kinds & kind) != 0; };
        if (has(ContextNews::Invalidated)) invalidated.insert(object);
        if (has(ContextNews::Deleted)) {
            if (!has(ContextNews::Inserted)) deleted.insert(object);
            continue;
        }
        if (has(ContextNews::Inserted))
            inserted.insert(object);
        else if (has(ContextNews::Updated))
            updated.insert(object);
        if (has(ContextNews::Refreshed)) refreshed.insert(object);
    }
    return {{NSInsertedObjectsKey, std::move(inserted)},
            {NSUpdatedObjectsKey, std::move(updated)},
            {NSDeletedObjectsKey, std::move(deleted)},
            {NSRefreshedObjectsKey, std::move(refreshed)},
            {NSInvalidatedObjectsKey, std::move(invalidated)}};
}

bool hasChangeObservers() { return changeChannel()->hasObservers(); }

namespace {

void keepNews(ContextState& context, NSManagedObject& object, ContextNews::Kind kind) {
    auto& news = context.news;
    auto& entry = news.entries[&object];
    if (!entry.object) entry.object = object.self<NSManagedObject>();
    entry.kinds |= kind;
    bool const endsWithABlock =
        news.openBlocks != 0 || context.concurrencyType != NSManagedObjectContextConcurrencyType::MainQueue;
    if (endsWithABlock || std::exchange(news.isScheduled, true)) return;
    dispatch_async(context.queue, [context = WeakRef<NSManagedObjectContext>(context.link->context())] {
        auto const living = context.lock();
        if (!living) return;
        GraphAccess::state(*living).news.isScheduled = false;
        living->processPendingChanges();
    });
}

} // namespace

void noteNews(ContextState& context, NSManagedObject& object, ContextNews::Kind kind) {
    context.feed.note(context, object);
    if (hasChangeObservers()) keepNews(context, object, kind);
}

void postDidRefuse(NSManagedObjectContext& context, ChangeSets sets, Ref<NSError> reason) {
    auto const notification =
        make<ContextRefusalNotification>(context.self<NSManagedObjectContext>(), std::move(sets), std::move(reason));
    NSNotificationCenter::defaultCenter()->postNotification(notification);
}

void postDidChange(NSManagedObjectContext& context) {
    if (GraphAccess::state(context).news.entries.empty()) return;
    auto entries = std::exchange(GraphAccess::state(context).news.entries, {});
    if (hasChangeObservers())
        changeChannel()->post(make<ContextDidChangeNotification>(context.self<NSManagedObjectContext>(), std::move(entries)));
}

} // namespace Tessarin
