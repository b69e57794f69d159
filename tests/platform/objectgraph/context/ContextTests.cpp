// Contexts over both kinds of store: what is saved, seen, merged and refused.
#include "Library.h"
#include <thread>

using namespace Tessarin;
using namespace Tessarin::tests;

namespace {

using Context = LibraryTest;
INSTANTIATE_TEST_SUITE_P(Stores, Context, bothStores, storeName);

NSManagedObjectID const& idOf(Ref<NSManagedObject> const& object) { return *object->objectID(); }

} // namespace

TEST_P(Context, AFailedSaveKeepsEveryChangeAndASecondTrySucceeds) {
    auto const good = inserted(*root, "Author", {{"name", "Eliot"}, {"rating", 9}});
    auto const nameless = inserted(*root, "Author", {{"rating", 11}});
    EXPECT_FALSE(root->save(error));
    ASSERT_TRUE(error);
    EXPECT_NE(error->localizedDescription().find("Author"), std::string::npos);
    EXPECT_TRUE(good->isInserted() && root->hasChanges());
    nameless->setValueForKey("Hardy", "name");
    EXPECT_FALSE(root->save(error)) << "11 is above the maximum";
    EXPECT_NE(error->localizedDescription().find("rating"), std::string::npos);
    nameless->setValueForKey(8, "rating");
    EXPECT_TRUE(root->save(error));
    EXPECT_EQ(fetched(*library.worker(), "Author").size(), 2u);

    auto const book = inserted(*root, "Book", {{"year", 70000}});
    EXPECT_FALSE(root->save(error)) << "wider than 16 bits";
    book->setValueForKey(2000, "year");
    book->setValueForKey("x", "cover");
    EXPECT_FALSE(root->save(error)) << "transformable";
    book->setValueForKey(nullptr, "cover");
    EXPECT_TRUE(root->save(error));
}

TEST_P(Context, MergingShowsWhatOthersSavedAndKeepsWhatIsUnsaved) {
    inserted(*root, "Book", {{"title", "old"}, {"year", 1}});
    inserted(*root, "Book", {{"title", "doomed"}});
    inserted(*root, "Author", {{"name", "A"}});
    ASSERT_TRUE(saves(*root));
    auto const writer = library.worker(), reader = library.worker();
    auto const mine = fetched(*reader, "Book", where("title == 'old'")).front();
    auto const doomed = fetched(*reader, "Book", where("title == 'doomed'")).front();
    auto const author = fetched(*reader, "Author").front();
    EXPECT_EQ(members(*author, "books"), "");
    mine->setValueForKey(2, "year");

    auto const listener = listening(writer, NSManagedObjectContextDidSaveNotification,
                                    [&](auto const& note) { reader->mergeChangesFromContextDidSaveNotification(*note); });
    auto const theirs = fetched(*writer, "Book", where("title == 'old'")).front();
    theirs->setValueForKey("new", "title");
    theirs->setValueForKey(3, "year");
    theirs->setValueForKey(Value(fetched(*writer, "Author").front()), "author");
    writer->deleteObject(*fetched(*writer, "Book", where("title == 'doomed'")).front());
    ASSERT_TRUE(saves(*writer));

    EXPECT_EQ(mine->valueForKey("title"), Value("new"));
    EXPECT_EQ(mine->valueForKey("year"), Value(2)) << "unsaved here";
    EXPECT_EQ(members(*author, "books"), "new") << "a relationship that had been read";
    EXPECT_TRUE(doomed->isDeleted());
    EXPECT_FALSE(doomed->managedObjectContext());
    ASSERT_TRUE(saves(*reader));
    ASSERT_TRUE(saves(*root));
    auto const last = fetched(*library.worker(), "Book").front();
    EXPECT_EQ(last->valueForKey("title"), Value("new"));
    EXPECT_EQ(last->valueForKey("year"), Value(2));
}

TEST_P(Context, AChildSeesItsParentsUnsavedChangesAndBuildsOnThem) {
    auto const saved = inserted(*root, "Book", {{"title", "saved"}, {"year", 1}});
    ASSERT_TRUE(saves(*root));
    auto const worker = library.worker();
    auto const author = inserted(*root, "Author", {{"name", "unsaved"}});
    saved->setValueForKey("edited", "title");
    saved->setValueForKey(7, "year");
    saved->setValueForKey(Value(author), "author");
    root->processPendingChanges();

    auto const theBook = fetched(*worker, "Book", where("author.name == 'unsaved'")).front();
    EXPECT_EQ(theBook->valueForKey("title"), Value("edited"));
    auto const theAuthor = toOne(theBook, "author");
    EXPECT_TRUE(idOf(theAuthor).isTemporaryID());
    EXPECT_EQ(theAuthor->objectID(), author->objectID());
    EXPECT_EQ(members(*theAuthor, "books"), "edited");
    theAuthor->setValueForKey("child's", "name");
    EXPECT_EQ(fetched(*worker, "Book", where("author.name == %@", "child's")).size(), 1u) << "another entity's unsaved changes";
    EXPECT_EQ(fetched(*worker, "Book", where("author.name == %@", "unsaved")).size(), 0u);
    theBook->setValueForKey(2, "year");
    inserted(*worker, "Book", {{"title", "new"}, {"author", Value(theAuthor)}});
    saved->setValueForKey("edited again", "title"); // after the child looked
    ASSERT_TRUE(saves(*worker));
    EXPECT_FALSE(idOf(theAuthor).isTemporaryID());

    root->processPendingChanges();
    EXPECT_EQ(author->valueForKey("name"), Value("child's"));
    EXPECT_EQ(saved->valueForKey("year"), Value(2)) << "the child's save wins over the parent's unsaved value";
    EXPECT_EQ(members(*author, "books"), "edited again,new");
    ASSERT_TRUE(saves(*root));
    auto const later = library.worker();
    auto const stored = later->objectWithID(*author->objectID());
    EXPECT_EQ(stored->valueForKey("name"), Value("child's"));
    EXPECT_EQ(members(*stored, "books"), "edited again,new");
    EXPECT_EQ(fetched(*later, "Book", where("title == 'edited again'")).front()->valueForKey("year"), Value(2));
    EXPECT_EQ(fetched(*later, "Author").size(), 1u);
}

TEST_P(Context, EverySaveIsAnnouncedWithItsObjects) {
    std::string heard;
    auto const listener = listening(root, NSManagedObjectContextDidSaveNotification, [&](Ref<NSNotification> const& note) {
        auto const& info = note->userInfo().dictionary();
        for (auto const* key : {NSInsertedObjectsKey, NSUpdatedObjectsKey, NSDeletedObjectsKey})
            heard += std::to_string(info[key].set().size());
        heard += " ";
    });
    ASSERT_TRUE(saves(*root));
    auto const book = inserted(*root, "Book", {{"title", "a"}});
    auto const other = inserted(*root, "Book", {{"title", "b"}});
    ASSERT_TRUE(saves(*root));
    book->setValueForKey("c", "title");
    root->deleteObject(*other);
    ASSERT_TRUE(saves(*root));
    book->setValueForKey("c", "title"); // what it is already
    ASSERT_TRUE(saves(*root));
    EXPECT_EQ(heard, "000 200 011 000 ");
}

TEST_P(Context, ObjectsOutliveTheirContextAndMayBeReleasedAnywhere) {
    Objects kept;
    {
        auto const worker = library.worker();
        for (int i = 0; i < 200; ++i) kept.push_back(inserted(*worker, "Book", {{"year", i}}));
        ASSERT_TRUE(saves(*worker));
        std::thread([some = Objects(kept.begin(), kept.begin() + 100)]() mutable { some.clear(); }).join();
    }
    EXPECT_FALSE(kept.back()->managedObjectContext());
    EXPECT_EQ(kept.back()->valueForKey("year"), Value(199));
    std::thread([some = std::move(kept)]() mutable { some.clear(); }).join();
    ASSERT_TRUE(saves(*root));
    EXPECT_EQ(fetched(*root, "Book").size(), 200u);
}

TEST_P(Context, BlocksRunInlineWhereTheThreadHoldsTheQueueAlready) {
    auto const worker = library.worker();
    std::string order;
    worker->performBlockAndWait([&] {
        order += "a";
        root->performBlockAndWait([&] {
            order += "b";
            worker->performBlockAndWait([&] { order += "c"; }); // further up in the nested calls
        });
    });
    EXPECT_EQ(order, "abc");
}

TEST_P(Context, AnotherCoordinatorsObjectsAndSavesMeanNothing) {
    Library other(GetParam());
    auto const foreign = inserted(*other.root, "Book", {{"title", "theirs"}});
    auto const own = inserted(*root, "Book", {{"title", "ours"}});
    ASSERT_TRUE(saves(*root));
    auto const listener = listening(other.root, NSManagedObjectContextDidSaveNotification,
                                    [&](auto const& note) { root->mergeChangesFromContextDidSaveNotification(*note); });
    ASSERT_TRUE(saves(*other.root));
    EXPECT_EQ(own->valueForKey("title"), Value("ours"));
    auto const& id = idOf(foreign);
    ASSERT_EQ(id.recordKey(), own->recordKey()) << "both have one record, of one model";
    EXPECT_FALSE(root->objectWithID(id));
    EXPECT_FALSE(root->objectRegisteredForID(id));
    EXPECT_FALSE(root->existingObjectWithID(id, error));
    EXPECT_TRUE(error);
    auto const identity = foreign->objectID();
    for (auto const& predicate : {where("SELF == %@", Value(identity)), where("SELF == %@", Value(foreign)),
                                  where("SELF IN %@", List{Value(identity)})}) {
        EXPECT_EQ(fetched(*library.worker(), "Book", predicate).size(), 0u) << predicate->predicateFormat();
        EXPECT_FALSE(predicate->evaluateWithObject(Value(own)));
    }
    auto const removal = make<NSBatchDeleteRequest>(std::vector{identity});
    EXPECT_TRUE(root->executeRequest(*removal, error));
    auto const update = make<NSBatchUpdateRequest>("Book");
    update->setPropertiesToUpdate({{"author", Value(inserted(*other.root, "Author", {})->objectID())}});
    EXPECT_FALSE(root->executeRequest(*update, error));
    NSManagedObjectContext::mergeChangesFromRemoteContextSave({{NSDeletedObjectsKey, {identity}}}, std::array{root});
    root->performBlockAndWait([] {}); // where it is looked at
    EXPECT_EQ(fetched(*root, "Book"), Objects{own});
    EXPECT_DEATH(change(*own, Value(inserted(*other.root, "Author", {})), "author"), "different contexts");
}

TEST_P(Context, MisuseIsFatalWithWordsThatNameIt) {
    auto const book = inserted(*root, "Book", {});
    EXPECT_DEATH(book->setValueForKey("x", "nothing"), "Book is not key value coding-compliant for the key \"nothing\"");
    EXPECT_DEATH(book->setValueForKey("x", "year"), "unacceptable value for the attribute Book.year");
    EXPECT_DEATH(book->setValueForKey(Value(book), "author"), "unacceptable object for the relationship Book.author");
    EXPECT_DEATH(root->insertNewObject("Nothing"), "no entity named \"Nothing\"");
    EXPECT_DEATH(root->setParentContext(library.worker()), "parent cannot be set");
}
