#pragma once
// Contexts, and short ways to fill, save and read them.
#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/foundation/predicates/NSPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include <algorithm>
#include <gtest/gtest.h>

namespace Tessarin::tests {

using Objects = std::vector<Ref<NSManagedObject>>;

inline Ref<NSPersistentStoreCoordinator> coordinatorOver(Ref<NSManagedObjectModel> model,
                                                         std::string_view storeType = NSInMemoryStoreType,
                                                         NSURL const& file = NSURL::fileURLWithPath("/nowhere")) {
    auto coordinator = make<NSPersistentStoreCoordinator>(std::move(model));
    Ref<NSError> error;
    EXPECT_TRUE(coordinator->addPersistentStoreWithType(storeType, {}, file, {}, error)) << error->description();
    return coordinator;
}
inline Ref<NSManagedObjectContext> contextOver(Ref<NSPersistentStoreCoordinator> const& coordinator) {
    auto context = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    context->setPersistentStoreCoordinator(coordinator);
    return context;
}
inline Ref<NSManagedObjectContext> childOf(Ref<NSManagedObjectContext> const& parent) {
    auto context = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    context->setParentContext(parent);
    return context;
}

/// What follows asks a context on its queue: blocks that the library itself put there, to tell of other contexts, ran before.
inline Ref<NSManagedObject> inserted(NSManagedObjectContext& context, char const* entity, Dictionary const& values) {
    Ref<NSManagedObject> object;
    context.performBlockAndWait([&] {
        object = context.insertNewObject(entity);
        for (auto const& [key, value] : values) object->setValueForKey(value, key);
    });
    return object;
}

inline Ref<NSManagedObject> toOne(Ref<NSManagedObject> const& object, char const* key) {
    return object->valueForKey(key).objectAs<NSManagedObject>();
}

/// Tells `block` of every notification of that name from the sender (null: from any), for as long as what it returns is kept.
inline std::shared_ptr<void> listening(Ref<NSObject> const& sender, std::string_view name, NSNotificationCenter::Block block) {
    auto token = NSNotificationCenter::defaultCenter()->addObserverForName(name, sender, nullptr, std::move(block));
    return {token.get(), [token](void*) { NSNotificationCenter::defaultCenter()->removeObserver(*token); }};
}

inline ::testing::AssertionResult saves(NSManagedObjectContext& context) {
    Ref<NSError> error;
    bool isSaved = false;
    context.performBlockAndWait([&] { isSaved = context.save(error); });
    if (isSaved) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << error->description();
}

/// The code of what kept a save from succeeding; 0 when nothing did.
inline std::int64_t codeOfSave(NSManagedObjectContext& context) {
    Ref<NSError> error;
    context.performBlockAndWait([&] { context.save(error); });
    return error ? error->code() : 0;
}

inline Objects fetched(NSManagedObjectContext& context, char const* entity, Ref<NSPredicate> predicate = nullptr,
                       std::vector<Ref<NSSortDescriptor>> sort = {}, std::size_t limit = 0, std::size_t offset = 0) {
    auto request = make<NSFetchRequest>(entity);
    request->setPredicate(std::move(predicate));
    request->setSortDescriptors(std::move(sort));
    request->setFetchLimit(limit);
    request->setFetchOffset(offset);
    Ref<NSError> error;
    Objects objects;
    context.performBlockAndWait([&] { objects = context.executeFetchRequest(*request, error); });
    EXPECT_FALSE(error) << error->description();
    return objects;
}

template <class... Arguments> Ref<NSPredicate> where(char const* format, Arguments const&... arguments) {
    return NSPredicate::predicateWithFormat(format, arguments...);
}
inline Ref<NSSortDescriptor> by(char const* key, SortOptions options = {}) {
    return NSSortDescriptor::sortDescriptorWithKey(key, options);
}

/// The values of one key, joined: "A,B".
inline std::string listed(Objects const& objects, char const* key) {
    std::string text;
    for (auto const& object : objects) text += (text.empty() ? "" : ",") + object->valueForKey(key).description();
    return text;
}

/// The same of a to-many relationship; sorted unless it is ordered.
inline std::string members(NSManagedObject& object, char const* relationship, char const* key = "title") {
    std::string text;
    object.managedObjectContext()->performBlockAndWait([&] {
        auto objects = object.mutableSetValueForKey(relationship).allObjects();
        if (!object.entity().propertyNamed(relationship)->asRelationship()->isOrdered())
            std::ranges::sort(objects, {}, [&](auto const& each) { return each->valueForKey(key).description(); });
        text = listed(objects, key);
    });
    return text;
}
/// One value.
inline Value shown(NSManagedObject& object, char const* key) {
    Value value;
    object.managedObjectContext()->performBlockAndWait([&] { value = object.valueForKey(key); });
    return value;
}
inline void change(NSManagedObject& object, Value value, char const* key) {
    object.managedObjectContext()->performBlockAndWait([&] { object.setValueForKey(std::move(value), key); });
}

} // namespace Tessarin::tests
