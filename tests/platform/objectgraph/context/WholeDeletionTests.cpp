#include "Tessarin/platform/objectgraph/context/WholeDeletionPrivate.h"
#include "tests/platform/objectgraph/context/Library.h"

namespace Tessarin::tests {
namespace {

struct Watched : NSManagedObject {
protected:
    void prepareForDeletion() override {}
};
struct Heir : Watched {};
struct Partner : NSManagedObject {
protected:
    void prepareForDeletion() override {
        for (auto const& object : {toOne(self<NSManagedObject>(), "partner"), self<NSManagedObject>()})
            managedObjectContext()->deleteObject(*object);
    }
};
struct Plain : NSManagedObject {
    void awakeFromFetch() override {}
};

bool isEmptiedAtOnce(NSManagedObjectContext& context) {
    bool isDone = false;
    Ref<NSError> error;
    context.performBlockAndWait([&] { isDone = deletesEverything(context, error); });
    EXPECT_FALSE(error) << error->description();
    return isDone;
}

class WholeDeletion : public LibraryTest {};
INSTANTIATE_TEST_SUITE_P(Stores, WholeDeletion, bothStores, storeName);

TEST_P(WholeDeletion, EmptiesTheStoreAndTellsOthersWhatIsGone) {
    auto const other = contextOver(library.coordinator);
    Objects books;
    for (auto const* entity : {"Book", "Novel", "Book"}) books.push_back(inserted(*other, entity, {{"title", entity}}));
    auto const author = inserted(*other, "Author", {{"name", "Ann"}});
    inserted(*other, "Award", {{"winner", Value(author)}}); // keeps the author from being deleted alone
    auto const tag = inserted(*other, "Tag", {});
    for (auto const& book : books) {
        book->setValueForKey(author, "author");
        book->mutableSetValueForKey("tags").addObject(tag);
    }
    ASSERT_TRUE(saves(*other));
    change(*books[2], "mine", "title");
    inserted(*root, "Icon", {{"name", "unsaved"}});
    std::size_t told = 0;
    auto const listening = tests::listening(root, NSManagedObjectContextDidSaveNotification, [&](auto const& note) {
        told += note->userInfo().dictionary()[NSDeletedObjectsKey].set().size();
        other->performBlockAndWait([&] { other->mergeChangesFromContextDidSaveNotification(*note); });
    });
    EXPECT_TRUE(isEmptiedAtOnce(*root));
    EXPECT_EQ(told, 7u);
    for (auto const* entity : {"Author", "Book", "Tag", "Icon", "Award"})
        EXPECT_EQ(fetched(*contextOver(library.coordinator), entity).size(), 0u) << entity;
    EXPECT_EQ(library.coordinator->verify(error), std::vector<std::string>());
    EXPECT_FALSE(books[0]->managedObjectContext());
    EXPECT_EQ(shown(*books[2], "title"), Value("mine")) << "what is unsaved stays until a save finds the record gone";
    EXPECT_EQ(codeOfSave(*other), NSManagedObjectMergeError);
}

TEST_P(WholeDeletion, LeavesObjectsThatTheContextKnowsToTheLongWay) {
    auto const book = inserted(*root, "Book", {});
    EXPECT_FALSE(isEmptiedAtOnce(*root));
    EXPECT_EQ(fetched(*root, "Book"), Objects{book});
}

TEST(DeletionHooks, OfAClassOrItsBaseAreKnown) {
    struct {
        std::string className;
        bool isAtOnce;
    } const rows[] = {{registerClass<Watched, NSManagedObject>().name(), false},
                      {registerClass<Heir, Watched>().name(), false},
                      {registerClass<Plain, NSManagedObject>().name(), true},
                      {"Nobody", true}};
    for (auto const& [name, isAtOnce] : rows) {
        auto const model = ModelBuilder().entity("Thing", {.className = name}).build();
        EXPECT_EQ(isEmptiedAtOnce(*contextOver(coordinatorOver(model))), isAtOnce) << name;
    }
}

TEST(Deletion, ThoseThatDeleteEachOtherAndThemselvesGoOnce) {
    auto const name = registerClass<Partner, NSManagedObject>().name();
    auto const model =
        ModelBuilder().entity("Partner", {.className = name}).toOne("partner", "Partner", {.inverse = "partner"}).build();
    auto const context = contextOver(coordinatorOver(model));
    auto const first = inserted(*context, "Partner", {}), second = inserted(*context, "Partner", {{"partner", Value(first)}});
    ASSERT_TRUE(saves(*context));
    context->performBlockAndWait([&] { context->deleteObject(*first); });
    EXPECT_EQ(context->deletedObjects().size(), 2U);
    EXPECT_TRUE(saves(*context));
    EXPECT_TRUE(fetched(*context, "Partner").empty());
}

} // namespace
} // namespace Tessarin::tests
