// Fetch requests beyond predicate and order: batches, prefetched relationships, and a store that cannot be read for a while.
#include "Library.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <ranges>

using namespace Tessarin;
using namespace Tessarin::tests;

namespace {

class Fetching : public LibraryTest {
protected:
    void SetUp() override {
        for (int number = 0; number < 50; ++number) {
            auto const author = inserted(*root, "Author", {{"name", "A" + std::to_string(number / 10)}});
            auto const book = inserted(*root, "Book", {{"title", std::to_string(100 + number)}, {"author", Value(author)}});
            inserted(*root, "Chapter", {{"title", "I of " + std::to_string(100 + number)}, {"book", Value(book)}});
        }
        ASSERT_TRUE(saves(*root));
        root->reset();
        request->setSortDescriptors({NSSortDescriptor::sortDescriptorWithKey("title", {.ascending = false})});
    }

    Ref<NSManagedObjectContext> worker = library.worker();
    Ref<NSFetchRequest> request = make<NSFetchRequest>("Book");
};
INSTANTIATE_TEST_SUITE_P(Stores, Fetching, bothStores, storeName);

class FetchingFromSQLite : public Fetching {
protected:
    /// Another program's hand on the file.
    void execute(char const* sql) { SQLite::Connection(library.file()).execute(sql); }
};
INSTANTIATE_TEST_SUITE_P(Stores, FetchingFromSQLite, ::testing::Values("SQLite"), storeName);

std::string titleOf(Ref<NSManagedObject> const& book) { return book->valueForKey("title").description(); }

} // namespace

TEST_P(Fetching, AListInBatchesMakesTheObjectsWhereItIsLookedAt) {
    request->setFetchBatchSize(7);
    auto const books = worker->fetchObjects(*request, error);
    ASSERT_EQ(books.size(), 50u);
    EXPECT_EQ(worker->registeredObjects().size(), 0u);
    EXPECT_EQ(titleOf(books[49]), "100");
    EXPECT_EQ(worker->registeredObjects().size(), 1u) << "the last batch holds one";
    auto const first = books[0];
    EXPECT_EQ(titleOf(first), "149");
    EXPECT_EQ(worker->registeredObjects().size(), 7u) << "the batch before was let go";
    EXPECT_EQ(books[0], first);

    std::string titles;
    for (auto const& book : books | std::views::drop(40) | std::views::take(3)) titles += titleOf(book) + " ";
    EXPECT_EQ(titles, "109 108 107 ");
    EXPECT_EQ(std::ranges::find(books, first) - books.begin(), 0);
}

TEST_P(Fetching, AListInBatchesCountsUnsavedChangesAndOutlivesTheirSave) {
    auto const added = inserted(*worker, "Book", {{"title", "140b"}});
    fetched(*worker, "Book", where("title == %@", "149"))[0]->setValueForKey("000", "title");
    request->setFetchBatchSize(10);
    auto const books = worker->fetchObjects(*request, error);
    ASSERT_EQ(books.size(), 51u);
    ASSERT_TRUE(saves(*worker));
    EXPECT_EQ(titleOf(books[0]), "148");
    EXPECT_EQ(books[8], added) << "under the place of its temporary key";
    EXPECT_EQ(titleOf(books[50]), "000");

    inserted(*worker, "Book", {{"title", "999"}});
    request->setIncludesPendingChanges(false);
    EXPECT_EQ(worker->executeFetchRequest(*request, error).size(), 50u) << "in the store";
}

TEST_P(Fetching, AnEqualityFindsWhatTheSetsAboveMakeOfRecords) {
    auto const book = [&](char const* title) { return fetched(*worker, "Book", where("title == %@", title)).at(0); };
    book("110")->setValueForKey("111", "title"); // now the second of that title
    book("120")->setValueForKey("121b", "title");
    worker->deleteObject(*book("130"));
    ASSERT_TRUE(saves(*worker)); // to the root, not to the store
    inserted(*worker, "Novel", {{"title", "110"}, {"year", 7}});
    book("121b")->setValueForKey("121c", "title");
    ASSERT_TRUE(saves(*worker));
    auto const other = library.worker();
    other->performBlockAndWait([&] {
        auto const expect = [&](std::size_t count, std::vector<char const*> const& conditions, char const* entity = "Book") {
            for (auto const* format : conditions)
                EXPECT_EQ(fetched(*other, entity, where(format)).size(), count) << entity << ": " << format;
        };
        expect(0, {"title == '120'", "title == '121b'", "title == '130'", "year == 8 AND title == '110'",
                   "NOT title == '110' AND year == 7", "draft == 'd'"});
        expect(1, {"title == '110'", "title == '121c'", "year == 7", "year == 7 AND title == '110'"});
        expect(2, {"title == '111'", "title == '121c' OR year == 7"});
        expect(0, {"title == '111'"}, "Novel");
        expect(1, {"title == '110'"}, "Novel");
        fetched(*other, "Book", where("title == %@", "121c")).at(0)->setValueForKey("d", "draft");
        EXPECT_EQ(fetched(*other, "Book", where("draft == %@", "d")).size(), 1U);
    });
}

TEST_P(FetchingFromSQLite, WhatWasPrefetchedIsReadWithTheResultsAndNothingElseIs) {
    request->setRelationshipKeyPathsForPrefetching({"author.awards", "chapters"});
    auto const books = worker->executeFetchRequest(*request, error);
    ASSERT_EQ(books.size(), 50u) << error->description();
    execute("ALTER TABLE Author RENAME TO Hidden; ALTER TABLE Chapter RENAME TO HiddenChapter; ALTER TABLE Award RENAME TO "
            "HiddenAward");
    EXPECT_EQ(toOne(books[9], "author")->valueForKey("name"), Value("A4"));
    EXPECT_EQ(members(*books[9], "chapters"), "I of 140");
    EXPECT_EQ(members(*toOne(books[9], "author"), "awards"), "");

    request->setRelationshipKeyPathsForPrefetching({"title"});
    EXPECT_EQ(worker->executeFetchRequest(*request, error).size(), 0u);
    EXPECT_TRUE(error && error->localizedDescription().find("\"title\"") != std::string::npos);
}

TEST_P(FetchingFromSQLite, AFailureToReadIsThrownAndTakesNothingForMissing) {
    auto const books = worker->executeFetchRequest(*request, error);
    auto const author = toOne(books[0], "author");
    ASSERT_TRUE(author->isFault());
    execute("ALTER TABLE Author RENAME TO Hidden; ALTER TABLE Chapter RENAME TO HiddenChapter");
    EXPECT_THROW(author->valueForKey("name"), ErrorException);
    EXPECT_THROW(books[0]->valueForKey("chapters"), ErrorException);
    EXPECT_TRUE(author->isFault());
    EXPECT_FALSE(worker->existingObjectWithID(*author->objectID(), error));
    EXPECT_TRUE(error);
    execute("ALTER TABLE Hidden RENAME TO Author; ALTER TABLE HiddenChapter RENAME TO Chapter");
    EXPECT_EQ(author->valueForKey("name"), Value("A4"));
    EXPECT_EQ(members(*books[0], "chapters"), "I of 149");
}

TEST_P(FetchingFromSQLite, ANumberWiderThanItsTypeIsReadAsItStands) {
    execute("UPDATE Book SET year = 123456789012 WHERE title = '149'");
    auto const books = worker->executeFetchRequest(*request, error);
    EXPECT_EQ(books[0]->valueForKey("year"), Value(std::int64_t{123456789012}));
    EXPECT_EQ(titleOf(books[0]), "149");
    EXPECT_EQ(books[1]->valueForKey("year"), Value(1900));
}
