// What one context does must neither vanish nor bring back what is gone.
#include "Library.h"
#include "Tessarin/platform/objectgraph/persistence/stores/IdentityTablePrivate.h"
#include "Tessarin/platform/sqlite/Connection.h"

using namespace Tessarin;
using namespace Tessarin::tests;

namespace {

class Loss : public LibraryTest {
protected:
    Ref<NSManagedObject> saved(char const* entity, Dictionary const& values) {
        auto object = inserted(*root, entity, values);
        EXPECT_TRUE(saves(*root));
        return object;
    }
};
INSTANTIATE_TEST_SUITE_P(Stores, Loss, bothStores, storeName);

class LossInSQLite : public Loss {};
INSTANTIATE_TEST_SUITE_P(Stores, LossInSQLite, ::testing::Values("SQLite"), storeName);

} // namespace

TEST_P(Loss, AnEditOfAnUnreadFaultWhoseRecordIsGoneIsAConflict) {
    auto const worker = library.worker();
    for (auto const* place : {"here", "one level up"}) {
        SCOPED_TRACE(place);
        auto const book = saved("Book", {{"title", "A"}});
        auto& context = std::string_view(place) == "here" ? *root : *worker;
        auto const settle = [&] { worker->performBlockAndWait([] {}); }; // its queue looks at what it was told
        settle();
        auto const other = childOf(root);
        auto const id = book->objectID();
        auto const doomed = other->objectWithID(*id);
        auto const fault = &context == root.get() ? book : worker->objectWithID(*id);
        if (&context == root.get()) {
            root->performBlockAndWait([&] { root->refreshObject(*book, false); });
            ASSERT_TRUE(root->executeRequest(*make<NSBatchDeleteRequest>(std::vector{id}), error));
        } else {
            other->deleteObject(*doomed);
            ASSERT_TRUE(saves(*other));
        }
        settle();
        ASSERT_TRUE(fault->isFault());
        change(*fault, "mine", "title");
        EXPECT_EQ(codeOfSave(context), NSManagedObjectMergeError);
        EXPECT_EQ(shown(*fault, "title"), Value("mine"));
        context.setMergePolicy(NSMergeByPropertyObjectTrumpMergePolicy());
        EXPECT_TRUE(saves(context));
        EXPECT_EQ(listed(fetched(*root, "Book"), "title"), "mine");
        EXPECT_TRUE(fault->managedObjectContext());
        root->deleteObject(*fetched(*root, "Book").front());
        context.setMergePolicy(nullptr);
        ASSERT_TRUE(saves(*root));
    }
}

TEST_P(Loss, WhatIsMadeOnARecordThatWasNeverSavedDoesNotMakeItARecord) {
    for (bool const isDeleted : {false, true})
        for (bool const isLate : {false, true}) {
            SCOPED_TRACE((isDeleted ? "deleted" : "rolled back") + std::string(isLate ? ", then handed up" : ""));
            auto const main = childOf(root), worker = childOf(main);
            auto const made = inserted(*main, "Book", {{"title", "A"}});
            auto const book = fetched(*worker, "Book").at(0);
            change(*book, "B", "title");
            if (!isLate) {
                ASSERT_TRUE(saves(*worker));
            }
            main->performBlockAndWait([&] { isDeleted ? main->deleteObject(*made) : main->rollback(); });
            Ref<NSManagedObjectID> identity;
            Ref<NSManagedObject> asked; // which makes no record of it either
            worker->performBlockAndWait([&] { identity = book->objectID(); });
            main->performBlockAndWait([&] { asked = main->objectWithID(*identity); });
            ASSERT_TRUE(saves(*worker));
            for (auto const& context : {main, root}) {
                EXPECT_EQ(fetched(*context, "Book").size(), 0u);
                ASSERT_TRUE(saves(*context));
            }
            worker->performBlockAndWait([&] { identity = book->objectID(); });
            for (auto const& context : {root, main, worker}) {
                EXPECT_EQ(fetched(*context, "Book").size(), 0u);
                context->performBlockAndWait([&] { EXPECT_FALSE(context->existingObjectWithID(*identity, error)); });
            }
        }
}

TEST_P(Loss, WhatAnAncestorHasNotSavedStaysWhenAWorkerLinksIt) {
    auto const main = childOf(root), worker = childOf(main);
    inserted(*root, "Author", {{"name", "A"}});
    inserted(*worker, "Book", {{"author", Value(fetched(*worker, "Author").at(0))}});
    for (auto const& context : {worker, main, root}) {
        ASSERT_TRUE(saves(*context));
    }
    EXPECT_EQ(listed(fetched(*root, "Author"), "name"), "A");
}

TEST_P(Loss, ALinkBackToARecordThatIsSparedMakesNoRecordOfWhatWasNeverSaved) {
    auto const author = saved("Author", {{"name", "A"}});
    auto const main = childOf(root), worker = childOf(main);
    auto const byStore = make<NSMergePolicy>(NSMergePolicyType::MergeByPropertyStoreTrump);
    for (auto const& context : {root, main}) context->setMergePolicy(byStore);
    inserted(*main, "Book", {{"author", Value(main->objectWithID(*author->objectID()))}});
    auto const doomed = worker->objectWithID(*author->objectID());
    auto const book = fetched(*worker, "Book").at(0);
    worker->performBlockAndWait([&] { worker->deleteObject(*doomed); });
    ASSERT_FALSE(shown(*book, "author").objectAs<NSManagedObject>());
    main->performBlockAndWait([&] { main->reset(); });
    ASSERT_TRUE(saves(*worker));
    change(*author, "B", "name"); // so that its deletion is given up
    ASSERT_TRUE(saves(*root));
    ASSERT_TRUE(saves(*main));
    ASSERT_TRUE(saves(*root));
    EXPECT_EQ(listed(fetched(*root, "Author"), "name"), "B");
    EXPECT_EQ(fetched(*library.worker(), "Book").size(), 0u);
}

TEST_P(Loss, AValueSetToWhatItWasGivesWayToWhatOthersStored) {
    auto const book = saved("Book", {{"title", "A"}, {"year", 1}}), other = saved("Book", {{"title", "C"}});
    auto const worker = library.worker();
    auto const mine = worker->objectWithID(*book->objectID());
    change(*mine, "A", "title");
    change(*worker->objectWithID(*other->objectID()), "D", "title");
    change(*book, "B", "title");
    ASSERT_TRUE(saves(*root));
    ASSERT_TRUE(saves(*worker));
    EXPECT_EQ(shown(*mine, "title"), Value("B"));
}

TEST_P(Loss, AFaultThatFoundNoRecordShowsOneThatOthersBringBack) {
    auto const author = saved("Author", {{"name", "A"}});
    auto const main = childOf(root);
    auto const theirs = main->objectWithID(*author->objectID());
    ASSERT_TRUE(root->executeRequest(*make<NSBatchDeleteRequest>(std::vector{author->objectID()}), error));
    ASSERT_EQ(shown(*theirs, "name"), Value());
    change(*author, "B", "name");
    root->setMergePolicy(NSMergeByPropertyObjectTrumpMergePolicy());
    ASSERT_TRUE(saves(*root));
    main->performBlockAndWait([&] { main->processPendingChanges(); });
    EXPECT_EQ(shown(*theirs, "name"), Value("B"));
}

TEST_P(Loss, ARefreshShowsThatARecordIsGone) {
    auto const book = saved("Book", {{"title", "A"}}), other = saved("Book", {{"title", "B"}}),
               edited = saved("Book", {{"title", "C"}});
    ASSERT_TRUE(root->executeRequest(
        *make<NSBatchDeleteRequest>(std::vector{book->objectID(), other->objectID(), edited->objectID()}), error));
    edited->setValueForKey("mine", "title");
    root->refreshObject(*book, true);
    root->refreshAllObjects();
    for (auto const& each : {book, other}) {
        EXPECT_TRUE(each->isDeleted());
        EXPECT_FALSE(each->managedObjectContext());
        EXPECT_FALSE(root->existingObjectWithID(*each->objectID(), error));
        EXPECT_TRUE(error);
    }
    EXPECT_EQ(edited->valueForKey("title"), Value("mine"));
    EXPECT_EQ(codeOfSave(*root), NSManagedObjectMergeError);
}

TEST_P(Loss, UnderObjectTrumpAChangeOutlivesAMergedDeletion) {
    auto const id = saved("Book", {{"title", "A"}, {"year", 7}})->objectID();
    auto const worker = library.worker(), sibling = library.worker();
    worker->setMergePolicy(NSMergeByPropertyObjectTrumpMergePolicy());
    auto const mine = worker->objectWithID(*id);
    mine->setValueForKey("mine", "title");
    auto const listener = listening(sibling, NSManagedObjectContextDidSaveNotification,
                                    [&](auto const& note) { worker->mergeChangesFromContextDidSaveNotification(*note); });
    sibling->deleteObject(*sibling->objectWithID(*id));
    ASSERT_TRUE(saves(*sibling));
    EXPECT_FALSE(mine->isDeleted());
    ASSERT_TRUE(saves(*worker));
    EXPECT_FALSE(mine->isDeleted());
    ASSERT_TRUE(saves(*root));
    auto const found = fetched(*library.worker(), "Book", where("title == 'mine'"));
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found.front()->valueForKey("year"), Value(7));
    EXPECT_EQ(worker->objectWithID(*id), mine);
}

TEST_P(Loss, RefreshingDropsNoInsertionAndTakesLinksBackAtBothEnds) {
    auto const author = saved("Author", {{"name", "A"}}), another = saved("Author", {{"name", "B"}});
    auto const book = saved("Book", {{"title", "1"}, {"author", Value(author)}}), loose = saved("Book", {{"title", "2"}});
    auto const tag = saved("Tag", {{"name", "t"}});
    auto const refreshed = [&](NSManagedObject& object, int line) {
        SCOPED_TRACE(line);
        root->refreshObject(object, false);
        EXPECT_FALSE(root->hasChanges());
        EXPECT_EQ(members(*author, "books"), "1");
        EXPECT_EQ(members(*another, "books"), "");
        EXPECT_EQ(toOne(book, "author"), author);
        EXPECT_FALSE(toOne(loose, "author"));
        EXPECT_EQ(members(*tag, "books"), "");
    };
    book->setValueForKey(Value(another), "author");
    refreshed(*book, __LINE__);
    book->setValueForKey(Value(), "author");
    refreshed(*book, __LINE__);
    author->mutableSetValueForKey("books").addObject(loose);
    author->mutableSetValueForKey("books").removeObject(book);
    refreshed(*author, __LINE__);
    another->mutableSetValueForKey("books").addObject(book);
    refreshed(*another, __LINE__);
    tag->mutableSetValueForKey("books").addObject(book);
    refreshed(*tag, __LINE__);
    root->deleteObject(*author);
    refreshed(*author, __LINE__);

    auto const fresh = inserted(*root, "Author", {{"rating", 3}});
    EXPECT_FALSE(root->save(error));
    root->refreshObject(*fresh, false);
    EXPECT_TRUE(fresh->isInserted());
    fresh->setValueForKey("C", "name");
    ASSERT_TRUE(saves(*root));
    EXPECT_EQ(fetched(*library.worker(), "Author").size(), 3u);
}

TEST_P(Loss, ANewObjectWithItsKeyIsStillNew) {
    auto const contested = saved("Book", {{"title", "saved"}});
    auto const worker = library.worker(), child = childOf(worker);
    auto const mine = worker->objectWithID(*contested->objectID());
    mine->setValueForKey("mine", "title");
    auto const fresh = inserted(*worker, "Book", {{"title", "fresh"}});
    contested->setValueForKey("theirs", "title");
    ASSERT_TRUE(saves(*root));
    EXPECT_EQ(codeOfSave(*worker), NSManagedObjectMergeError);
    EXPECT_EQ(listed(fetched(*child, "Book"), "title"), "mine,fresh") << "children still see what could not be saved";
    ASSERT_FALSE(fresh->objectID()->isTemporaryID());
    worker->refreshObject(*fresh, false);
    worker->refreshObject(*mine, false);
    EXPECT_TRUE(fresh->isInserted());
    ASSERT_TRUE(saves(*worker));
    EXPECT_EQ(fetched(*root, "Book", where("title == 'fresh'")).size(), 1u);
}

TEST_P(Loss, DenialIsDecidedByHowThingsStandAtTheSave) {
    auto const author = saved("Author", {{"name", "A"}}), heir = saved("Author", {{"name", "B"}});
    auto const award = saved("Award", {{"name", "prize"}, {"winner", Value(author)}});
    root->deleteObject(*author);
    EXPECT_EQ(codeOfSave(*root), 1600);
    award->setValueForKey(Value(heir), "winner");
    EXPECT_TRUE(saves(*root)) << "moved after the deletion";
    root->deleteObject(*heir);
    auto const late = inserted(*root, "Award", {{"name", "late"}});
    root->deleteObject(*award);
    late->setValueForKey(Value(heir), "winner");
    EXPECT_EQ(codeOfSave(*root), 1600) << "came after the deletion";
    root->deleteObject(*late);
    EXPECT_TRUE(saves(*root));
    EXPECT_EQ(fetched(*root, "Author").size(), 0u);
}

TEST_P(Loss, ALinkToAFaultThatIsGoneHarmsNobody) {
    auto const id = saved("Tag", {{"name", "t"}})->objectID();
    auto const other = saved("Icon", {{"name", "i"}});
    ASSERT_TRUE(root->executeRequest(*make<NSBatchDeleteRequest>(std::vector{id}), error));
    auto const worker = library.worker();
    auto const icon = worker->objectWithID(*other->objectID());
    icon->setValueForKey(Value(worker->objectWithID(*id)), "tag");
    auto const iconId = icon->objectID();
    ASSERT_TRUE(root->executeRequest(*make<NSBatchDeleteRequest>(std::vector{iconId}), error));
    auto const book = inserted(*worker, "Book", {{"title", "kept"}});
    worker->setMergePolicy(NSMergeByPropertyStoreTrumpMergePolicy());
    ASSERT_TRUE(saves(*worker));
    root->setMergePolicy(NSMergeByPropertyStoreTrumpMergePolicy());
    ASSERT_TRUE(saves(*root));
    EXPECT_EQ(listed(fetched(*root, "Book"), "title"), "kept");
}

TEST_P(Loss, RulesHoldForToOnesAndForUpdates) {
    auto const tag = saved("Tag", {{"icon", Value(inserted(*root, "Icon", {{"name", "i"}}))}});
    root->deleteObject(*tag);
    ASSERT_TRUE(saves(*root));
    EXPECT_EQ(fetched(*root, "Icon").size(), 0u) << "a cascade over a to-one";
    auto const author = saved("Author", {{"name", "A"}, {"rating", 5}});
    author->setValueForKey(11, "rating");
    EXPECT_FALSE(root->save(error)) << "an update is checked, too";
}

TEST_P(Loss, ADeletionThatSomebodyElseSavedFirstIsMerged) {
    saved("Award", {{"name", "A"}});
    auto const worker = library.worker(), sibling = library.worker();
    auto const listener = listening(sibling, NSManagedObjectContextDidSaveNotification,
                                    [&](auto const& note) { worker->mergeChangesFromContextDidSaveNotification(*note); });
    for (auto const& context : {worker, sibling}) context->deleteObject(*fetched(*context, "Award").front());
    ASSERT_TRUE(saves(*sibling));
    EXPECT_FALSE(worker->hasChanges());
    EXPECT_TRUE(saves(*worker));
}

TEST_P(Loss, AnAcceptedChangeIsSeenBelowThoughTheLevelAboveHasGotAnother) {
    auto const id = saved("Book", {{"title", "old"}, {"year", 1}})->objectID();
    auto const main = library.worker(), other = library.worker();
    for (auto const& [context, key, value] : {std::tuple{main, "year", Value(2)}, {other, "title", Value("new")}}) {
        auto const worker = childOf(context);
        worker->objectWithID(*id)->setValueForKey(value, key);
        ASSERT_TRUE(saves(*worker));
    }
    ASSERT_TRUE(saves(*other));
    auto const seen = childOf(main)->objectWithID(*id);
    EXPECT_EQ(seen->valueForKey("title"), Value("new"));
    EXPECT_EQ(seen->valueForKey("year"), Value(2)) << "its save was accepted, and is on its way";
}

TEST_P(Loss, AFetchPutsNoOlderRowIntoAnObject) {
    auto const book = saved("Book", {{"title", "old"}});
    auto const worker = library.worker();
    auto const mine = worker->objectWithID(*book->objectID());
    mine->setValueForKey("new", "title");
    ASSERT_TRUE(saves(*worker));
    auto request = make<NSFetchRequest>("Book");
    request->setIncludesPendingChanges(false);
    ASSERT_EQ(worker->executeFetchRequest(*request, error), Objects{mine});
    EXPECT_EQ(mine->valueForKey("title"), Value("new")) << "it is on its way to the store, which has the old one";
}

TEST_P(LossInSQLite, FaultsFillTogetherAndARefreshAsksTheFile) {
    auto const author = saved("Author", {{"name", "A"}});
    for (int i = 0; i < 300; ++i) inserted(*root, "Book", {{"title", "B"}, {"author", Value(author)}});
    ASSERT_TRUE(saves(*root));
    Library later("SQLite", &library);
    auto const books = fetched(*later.root, "Author").front()->mutableSetValueForKey("books").allObjects();
    ASSERT_EQ(books.size(), 300u);
    EXPECT_EQ(books.front()->valueForKey("title"), Value("B"));
    SQLite::Connection other(library.file());
    other.execute("ALTER TABLE Book RENAME TO Hidden");
    for (auto const& book : books) ASSERT_EQ(book->valueForKey("title"), Value("B")) << "one statement for all";
    other.execute("ALTER TABLE Hidden RENAME TO Book; UPDATE Book SET title = 'C', version = version + 1");
    later.root->refreshObject(*books.front(), true);
    EXPECT_EQ(books.front()->valueForKey("title"), Value("C"));
    EXPECT_EQ(books.back()->valueForKey("title"), Value("B"));
}

TEST(Size, ARecordThatNoStoreCouldHoldIsRefusedBeforeItIsMade) {
    ModelBuilder model;
    model.entity("Film");
    for (int at = 0; at < 100; ++at) model.attribute("reel" + std::to_string(at), NSAttributeType::String);
    auto const context = contextOver(coordinatorOver(model.build()));
    Ref<NSError> error;
    auto const film = context->insertNewObject("Film");
    Value const reel(std::string(10'000'000, 'r')); // one that all share
    for (int at = 0; at < 100; ++at) film->setValueForKey(reel, "reel" + std::to_string(at));
    EXPECT_FALSE(context->save(error));
    EXPECT_EQ(error ? error->code() : 0, 1661);
}

TEST_P(LossInSQLite, WhatManyRecordsLeadToIsReadTogether) {
    for (int i = 0; i < 300; ++i) {
        auto const book =
            inserted(*root, "Book", {{"title", "B"}, {"author", Value(inserted(*root, "Author", {{"name", "A"}}))}});
        inserted(*root, "Chapter", {{"book", Value(book)}});
    }
    ASSERT_TRUE(saves(*root));
    for (auto const& [entity, key, table, name] :
         {std::tuple("Book", "author", "Author", "name"), {"Chapter", "book", "Book", "title"}}) {
        SCOPED_TRACE(table); // a book may be a novel, an author is nothing else
        Library const later("SQLite", &library);
        auto const objects = fetched(*later.root, entity);
        auto const first = toOne(objects.front(), key)->valueForKey(name);
        SQLite::Connection other(library.file());
        other.execute(std::string("ALTER TABLE ") + table + " RENAME TO Hidden");
        for (auto const& object : objects) EXPECT_EQ(toOne(object, key)->valueForKey(name), first);
        other.execute(std::string("ALTER TABLE Hidden RENAME TO ") + table);
    }
}

TEST_P(LossInSQLite, LinksThatLeadBackKeepNothingAlive) {
    for (int i = 0; i < 2; ++i) inserted(*root, "Tag", {{"icon", Value(inserted(*root, "Icon", {{"name", std::to_string(i)}}))}});
    ASSERT_TRUE(saves(*root));
    for (bool const isPrefetched : {false, true}) {
        WeakRef<NSPersistentStoreCoordinator> weak;
        {
            Library const later("SQLite", &library);
            weak = later.coordinator;
            auto const request = make<NSFetchRequest>("Tag");
            if (isPrefetched) request->setRelationshipKeyPathsForPrefetching({"icon.tag"});
            for (auto const& tag : later.root->executeFetchRequest(*request, error))
                EXPECT_EQ(toOne(toOne(tag, "icon"), "tag"), tag);
        }
        EXPECT_TRUE(weak.expired()) << isPrefetched;
    }
}

TEST_P(Loss, AListIsWholeOrEmpty) {
    for (int i = 0; i < 600; ++i) inserted(*root, "Book", {{"year", i}});
    ASSERT_TRUE(saves(*root));
    auto const worker = library.worker();
    auto const last = fetched(*library.worker(), "Book").back()->objectID()->recordKey();
    // The identity of another tree under a book's key, as a damaged file would have it.
    auto const liar =
        worker->objectWithID(*library.coordinator->identities().identity(*libraryModel()->entityNamed("Icon"), last));
    ASSERT_TRUE(liar);
    EXPECT_TRUE(worker->executeFetchRequest(*make<NSFetchRequest>("Book"), error).empty());
    EXPECT_TRUE(error);
    EXPECT_TRUE(worker->allObjects("Book").empty());
}
