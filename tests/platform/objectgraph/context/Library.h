#pragma once
#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "tests/support/TemporaryFolder.h"
#include <gtest/gtest.h>

namespace Tessarin::tests {

using Objects = std::vector<Ref<NSManagedObject>>;

/// One model for all, so that identities of different coordinators have but their coordinator to differ in.
inline Ref<NSManagedObjectModel> const& libraryModel() {
    using Type = NSAttributeType;
    static auto const& shared = *new Ref<NSManagedObjectModel>(ModelBuilder()
        .entity("Author")
        .attribute("name", Type::String, {.optional = false, .indexed = true})
        .attribute("rating", Type::Double, {.minimum = 0, .maximum = 10})
        .toMany("books", "Book", {.inverse = "author", .deleteRule = NSDeleteRule::Nullify})
        .toMany("awards", "Award", {.inverse = "winner", .deleteRule = NSDeleteRule::Deny})
        .entity("Book")
        .attribute("title", Type::String)
        .attribute("year", Type::Integer16, {.defaultValue = 1900})
        .attribute("draft", Type::String, {.transient = true})
        .attribute("cover", Type::Transformable)
        .toOne("author", "Author", {.inverse = "books"})
        .toMany("tags", "Tag", {.inverse = "books"})
        .toMany("chapters", "Chapter", {.inverse = "book", .deleteRule = NSDeleteRule::Cascade, .ordered = true})
        .toMany("related", "Book", {.inverse = "related"})
        .entity("Novel", {.parent = "Book"})
        .attribute("genre", Type::String)
        .entity("Tag")
        .attribute("name", Type::String)
        .toMany("books", "Book", {.inverse = "tags"})
        .toOne("icon", "Icon", {.inverse = "tag", .deleteRule = NSDeleteRule::Cascade})
        .entity("Icon")
        .attribute("name", Type::String)
        .unique({"name"})
        .toOne("tag", "Tag", {.inverse = "icon"})
        .entity("Chapter")
        .attribute("title", Type::String)
        .toOne("book", "Book", {.inverse = "chapters"})
        .entity("Award")
        .attribute("name", Type::String)
        .toOne("winner", "Author", {.inverse = "awards"})
        .build());
    return shared;
}

/// A root context over a fresh store of either type; or over the file of another library.
class Library {
public:
    explicit Library(char const* storeType, Library const* other = nullptr)
        : folder(other ? other->folder : std::make_shared<TemporaryFolder>()) {
        Ref<NSError> error;
        coordinator = make<NSPersistentStoreCoordinator>(libraryModel());
        store = coordinator->addPersistentStoreWithType(storeType, {}, NSURL::fileURLWithPath(file()), {}, error);
        EXPECT_TRUE(store) << (error ? error->description() : "");
        root = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
        root->setPersistentStoreCoordinator(coordinator);
    }

    std::string file() const { return folder->path("library.db"); }
    Ref<NSManagedObjectContext> worker() const { return childOf(root); }
    static Ref<NSManagedObjectContext> childOf(Ref<NSManagedObjectContext> const& parent) {
        auto context = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
        context->setParentContext(parent);
        return context;
    }

    std::shared_ptr<TemporaryFolder> folder;
    Ref<NSPersistentStoreCoordinator> coordinator;
    Ref<NSPersistentStore> store;
    Ref<NSManagedObjectContext> root;
};

/// What a test asks of either kind of store: INSTANTIATE_TEST_SUITE_P(Stores, MyTest, bothStores, storeName).
class LibraryTest : public ::testing::TestWithParam<char const*> {
protected:
    Library library{GetParam()};
    Ref<NSManagedObjectContext> const root = library.root;
    Ref<NSError> error;
};
inline auto const bothStores = ::testing::Values("InMemory", "SQLite");
inline std::string storeName(::testing::TestParamInfo<char const*> const& each) { return each.param; }

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

/// Tells `block` of every notification of that name from the context, for as long as what it returns is kept.
inline std::shared_ptr<void> listening(Ref<NSManagedObjectContext> const& context, std::string_view name,
                                       NSNotificationCenter::Block block) {
    auto const& center = NSNotificationCenter::defaultCenter();
    auto token = center->addObserverForName(name, context, nullptr, std::move(block));
    return {token.get(), [token](void*) { NSNotificationCenter::defaultCenter()->removeObserver(*token); }};
}

inline ::testing::AssertionResult saves(NSManagedObjectContext& context) {
    Ref<NSError> error;
    bool isSaved = false;
    context.performBlockAndWait([&] { isSaved = context.save(error); });
    if (isSaved) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << error->description();
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

/// The values of one key, joined: "A,B".
inline std::string listed(Objects const& objects, char const* key) {
    std::string text;
    for (auto const& object : objects) text += (text.empty() ? "" : ",") + object->valueForKey(key).description();
    return text;
}

/// The same of a to-many relationship; sorted unless it is ordered.
inline std::string members(NSManagedObject& object, char const* relationship, char const* key = "title") {
    auto objects = object.mutableSetValueForKey(relationship).allObjects();
    if (!object.entity().propertyNamed(relationship)->asRelationship()->isOrdered())
        std::ranges::sort(objects, {}, [&](auto const& each) { return each->valueForKey(key).description(); });
    return listed(objects, key);
}

} // namespace Tessarin::tests
