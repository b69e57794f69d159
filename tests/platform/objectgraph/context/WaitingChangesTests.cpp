// Changes that wait at a level while others save the same records: they neither hide those silently, nor bring back what is gone.
#include "Library.h"
#include "Tessarin/platform/objectgraph/live/LiveList.h"

namespace Tessarin::tests {
namespace {

class WaitingChanges : public LibraryTest {
protected:
    WaitingChanges() {
        for (auto const& context : {root, main, worker}) context->setMergePolicy(NSMergeByPropertyStoreTrumpMergePolicy());
    }
    Ref<NSManagedObject> bookIn(Ref<NSManagedObjectContext> const& context) { return context->objectWithID(*book->objectID()); }
    /// What a context of its own reads in the file.
    std::string stored() {
        auto const reader = library.worker();
        auto const read = fetched(*reader, "Book");
        return read.size() != 1 ? std::to_string(read.size()) + " books"
                                : shown(*read[0], "title").description() + " " + shown(*read[0], "year").description();
    }

    Objects held; // as old as they were read
    Ref<NSManagedObjectContext> const main = library.worker(), worker = childOf(main);
    Ref<NSManagedObject> const author = inserted(*root, "Author", {{"name", "Ann"}});
    Ref<NSManagedObject> const book = inserted(*root, "Book", {{"title", "A"}, {"year", 1}, {"author", Value(author)}});
    bool const isSaved = root->save(error);
    std::shared_ptr<void> const merging = listening(root, NSManagedObjectContextDidSaveNotification, [this](auto const& note) {
        main->performBlockAndWait([&] { main->mergeChangesFromContextDidSaveNotification(*note); });
    });
};
INSTANTIATE_TEST_SUITE_P(Stores, WaitingChanges, bothStores, storeName);

} // namespace

TEST_P(WaitingChanges, AreMadeOnWhatWasSavedThoughAParentShowedWhatItHadNotSaved) {
    change(*bookIn(main), "unsaved", "title"); // shown as the version that the next save will have
    auto const mine = bookIn(worker);
    ASSERT_EQ(shown(*mine, "title"), Value("unsaved"));
    change(*mine, "mine", "title");
    change(*book, 2, "year");
    ASSERT_TRUE(saves(*root));
    for (auto const& context : {worker, main, root}) ASSERT_TRUE(saves(*context));
    EXPECT_EQ(stored(), "mine 2");
    EXPECT_EQ(shown(*mine, "year"), Value(2));
}

TEST_P(WaitingChanges, MadeOnWhatAParentHasSavedSinceAreNoConflict) {
    worker->setMergePolicy(nullptr);
    change(*bookIn(main), "unsaved", "title");
    change(*bookIn(worker), 2, "year");
    ASSERT_TRUE(saves(*main));
    EXPECT_EQ(codeOfSave(*worker), 0);
    for (auto const& context : {main, root}) ASSERT_TRUE(saves(*context));
    EXPECT_EQ(stored(), "unsaved 2");
}

// The file is asked by a condition: its own rows answer, not those in memory.
TEST_P(WaitingChanges, MadeOnANewRecordThatAParentHasSavedSinceReachTheFile) {
    auto const fresh = inserted(*main, "Book", {{"title", "new"}, {"year", 1}});
    auto const mine = fetched(*worker, "Book", where("title == 'new'")).front(); // read under its temporary key
    change(*fresh, 2, "year");
    for (auto const& context : {main, root}) ASSERT_TRUE(saves(*context));
    change(*mine, "mine", "title");
    for (auto const& context : {worker, main, root}) ASSERT_TRUE(saves(*context));
    EXPECT_EQ(listed(fetched(*library.worker(), "Book", where("title == 'mine' AND year == 2")), "title"), "mine");
    EXPECT_EQ(shown(*fresh, "title"), Value("mine"));
    EXPECT_EQ(shown(*mine, "year"), Value(2));
    EXPECT_EQ(fetched(*library.worker(), "Book").size(), 2u);
}

TEST_P(WaitingChanges, OfANewRecordAreSeenByTheNextFetch) {
    auto const fresh = inserted(*main, "Book", {{"title", "new"}});
    auto const mine = fetched(*worker, "Book", where("title == 'new'")).front();
    for (auto const* title : {"new 1", "new 2"}) {
        ASSERT_TRUE(shown(*mine, "title").text().starts_with("new"));
        change(*fresh, title, "title");
        EXPECT_EQ(listed(fetched(*worker, "Book", where("title == %@", title)), "title"), title);
        EXPECT_EQ(shown(*mine, "title"), Value(title));
        for (auto const& context : {main, root}) ASSERT_TRUE(saves(*context));
    }
}

TEST_P(WaitingChanges, OfANewRecordThatASiblingHasDeletedBringNothingBack) {
    auto const sibling = childOf(main);
    inserted(*main, "Book", {{"title", "new"}});
    auto const theirs = fetched(*sibling, "Book", where("title == 'new'")).front();
    auto const mine = fetched(*worker, "Book", where("title == 'new'")).front();
    sibling->performBlockAndWait([&] { sibling->deleteObject(*theirs); });
    change(*mine, "mine", "title");
    for (auto const& context : {sibling, worker, main, root}) ASSERT_TRUE(saves(*context));
    auto const reader = library.worker();
    EXPECT_EQ(fetched(*reader, "Book").size(), 1u);
    EXPECT_EQ(shown(*reader->objectWithID(*mine->objectID()), "title"), Value());
}

// Two levels show something of a record, the lower one on top of the upper one's: what it shows is not what was saved.
TEST_P(WaitingChanges, OnTopOfWhatAnAncestorHasNotSavedGiveWayToWhatIsSavedLater) {
    auto const sibling = childOf(main);
    auto const mine = bookIn(worker);
    change(*mine, 5, "year");
    ASSERT_TRUE(saves(*worker));
    change(*book, 9, "year");
    auto const seen = bookIn(sibling);
    ASSERT_EQ(shown(*seen, "year"), Value(5));
    for (auto const& context : {main, root}) ASSERT_TRUE(saves(*context));
    for (int year : {6, 7}) {
        change(*mine, year, "year");
        for (auto const& context : {worker, main, root}) ASSERT_TRUE(saves(*context));
        EXPECT_EQ(fetched(*sibling, "Book").size(), 1u);
        EXPECT_EQ(shown(*seen, "year"), Value(year));
    }
}

// A version that somebody has seen before the deletion would pass for it.
TEST_P(WaitingChanges, BringADeletedRecordBackAsNobodyHasSeenIt) {
    auto const sibling = childOf(main);
    for (auto const& context : {root, main, worker, sibling}) context->setMergePolicy(NSMergeByPropertyObjectTrumpMergePolicy());
    auto const mine = bookIn(worker), theirs = bookIn(sibling);
    ASSERT_EQ(shown(*theirs, "year"), Value(1));
    change(*mine, 5, "year");
    for (auto const& context : {worker, main, root}) ASSERT_TRUE(saves(*context));
    main->performBlockAndWait([&] { main->deleteObject(*bookIn(main)); });
    for (auto const& context : {main, root}) ASSERT_TRUE(saves(*context));
    change(*theirs, "back", "title");
    for (auto const& context : {sibling, main, root}) ASSERT_TRUE(saves(*context));
    EXPECT_EQ(stored(), "back 1");
    change(*mine, "mine", "title");
    for (auto const& context : {worker, main, root}) ASSERT_TRUE(saves(*context));
    EXPECT_EQ(stored(), "mine 1");
    EXPECT_EQ(shown(*mine, "year"), Value(1));
    EXPECT_EQ(fetched(*library.worker(), "Book", where("title == 'mine' AND year == 1")).size(), 1u);
}

TEST_P(WaitingChanges, ThatAParentTakesBackAreReadNoMore) {
    change(*bookIn(main), "unsaved", "title");
    auto const seen = fetched(*worker, "Book");
    ASSERT_EQ(listed(seen, "title"), "unsaved");
    main->performBlockAndWait([&] { main->rollback(); });
    EXPECT_EQ(listed(fetched(*worker, "Book"), "title"), "A");
}

TEST_P(WaitingChanges, ShowObjectsAsFetchesFindThem) {
    change(*bookIn(worker), "mine", "title");
    ASSERT_TRUE(saves(*worker));
    auto const seen = bookIn(main);
    for (int year : {2, 3}) {
        change(*book, year, "year");
        ASSERT_TRUE(saves(*root));
        EXPECT_EQ(fetched(*main, "Book", where("year == %@", shown(*seen, "year"))).size(), 1u) << year;
    }
    for (auto const& context : {main, root}) ASSERT_TRUE(saves(*context));
    EXPECT_EQ(stored(), "mine 3");
}

TEST_P(WaitingChanges, StayInConflictThoughSomebodySavesALink) {
    auto const mine = main->objectWithID(*author->objectID());
    main->setMergePolicy(nullptr);
    change(*mine, 2, "rating");
    auto const elsewhere = make<NSBatchUpdateRequest>("Author");
    elsewhere->setPropertiesToUpdate({{"rating", 3}});
    elsewhere->setResultType(NSBatchRequestResultType::ObjectIDs);
    auto const changed = root->executeRequest(*elsewhere, error);
    ASSERT_TRUE(changed);
    NSManagedObjectContext::mergeChangesFromRemoteContextSave({{NSUpdatedObjectsKey, changed->objectIDs()}}, std::vector{root});
    inserted(*root, "Book", {{"author", Value(author)}});
    ASSERT_TRUE(saves(*root));
    EXPECT_EQ(codeOfSave(*main), NSManagedObjectMergeError);
}

TEST_P(WaitingChanges, LeaveNoObjectOfARecordThatIsGoneWhenTheyAreRolledBack) {
    auto const mine = bookIn(main);
    change(*mine, "mine", "title");
    root->deleteObject(*book);
    ASSERT_TRUE(saves(*root));
    main->performBlockAndWait([&] {
        EXPECT_TRUE(mine->managedObjectContext()) << "its save is to find that";
        main->rollback();
        EXPECT_FALSE(mine->managedObjectContext());
    });
    EXPECT_EQ(fetched(*main, "Book").size(), 0u);
}

TEST_P(WaitingChanges, LeaveListsWithWhatTheyLeadTo) {
    Ref<LiveList> list;
    main->performBlockAndWait([&] {
        auto const request = make<NSFetchRequest>("Book");
        request->setPredicate(where("author.name == 'Ann'"));
        list = make<LiveList>(main, request);
        EXPECT_EQ(list->size(), 1u);
    });
    change(*bookIn(worker), 2, "year");
    ASSERT_TRUE(saves(*worker));
    change(*book, Value(), "author");
    ASSERT_TRUE(saves(*root));
    root->deleteObject(*author);
    ASSERT_TRUE(saves(*root));
    main->performBlockAndWait([&] {
        list->finish();
        EXPECT_EQ(list->size(), 0u);
        list = nullptr;
    });
    EXPECT_EQ(fetched(*main, "Book", where("author.name == 'Ann'")).size(), 0u);
}

// The child has deleted it before it was linked here, and so tells of no owner. Where it learns of the links in time, its own lists
// and its deletion know better.
TEST_P(WaitingChanges, LinkNothingToARecordThatAChildDeletes) {
    auto const ben = inserted(*root, "Author", {{"name", "Ben"}}), tag = inserted(*root, "Tag", {{"name", "tag"}});
    auto const related = inserted(*root, "Book", {{"title", "B"}});
    ASSERT_TRUE(saves(*root));
    auto const linked = [&](Ref<NSManagedObjectContext> const& context) {
        std::string counts;
        context->performBlockAndWait([&] {
            auto const count = [&](auto const& object, char const* key) {
                auto const here = context->objectWithID(*object->objectID());
                held.push_back(here);
                counts += std::to_string(here->mutableSetValueForKey(key).count());
            };
            count(ben, "books"), count(tag, "books"), count(related, "related");
        });
        return counts;
    };
    for (bool const isMerged : {false, true}) {
        auto const mine = inserted(*root, "Book", {{"title", "goes"}});
        ASSERT_TRUE(saves(*root));
        ASSERT_EQ(linked(main) + linked(worker), "000000");
        worker->performBlockAndWait([&] { worker->deleteObject(*worker->objectWithID(*mine->objectID())); });
        main->performBlockAndWait([&] {
            auto const here = main->objectWithID(*mine->objectID());
            here->setValueForKey(Value(main->objectWithID(*ben->objectID())), "author");
            here->mutableSetValueForKey("tags").addObject(main->objectWithID(*tag->objectID()));
            here->mutableSetValueForKey("related").addObject(main->objectWithID(*related->objectID()));
        });
        ASSERT_EQ(linked(main), "111");
        auto const telling = listening(main, NSManagedObjectContextDidSaveNotification, [&](auto const& note) {
            if (isMerged) worker->performBlockAndWait([&] { worker->mergeChangesFromContextDidSaveNotification(*note); });
        });
        if (isMerged) {
            for (auto const& context : {main, root}) ASSERT_TRUE(saves(*context));
            EXPECT_EQ(linked(worker), "000") << "it is deleted here";
        }
        ASSERT_TRUE(saves(*worker));
        EXPECT_EQ(linked(main), "000");
        for (auto const& context : {main, root}) ASSERT_TRUE(saves(*context));
        for (auto const& context : {worker, main, root}) EXPECT_EQ(linked(context), "000") << isMerged;
    }
}

} // namespace Tessarin::tests
