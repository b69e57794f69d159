// Fetch requests beyond predicate and order: batches, prefetched relationships, and a store that cannot be read for a while.
#include "Library.h"
#include "Tessarin/platform/foundation/predicates/NSComparisonPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSCompoundPredicate.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <algorithm>
#include <limits>
#include <random>
#include <ranges>
#include <span>

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
        request->setSortDescriptors({by("title", {.ascending = false})});
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

TEST_P(Fetching, WhoReadsAListOnSeesTheRecordsAsTheyAreThen) {
    request->setFetchBatchSize(3);
    auto const books = worker->fetchObjects(*request, error);
    auto const other = library.worker();
    auto const theirs = fetched(*other, "Book", nullptr, {by("title", {.ascending = false})});
    std::vector<std::string> titles;
    for (std::size_t at = 0; at < books.size(); ++at) {
        if (at == 12) { // batches of 3, 6 and 12 have been made by then
            change(*theirs[30], "changed", "title");
            other->performBlockAndWait([&] { other->deleteObject(*theirs[33]); });
            ASSERT_TRUE(saves(*other));
        }
        worker->performBlockAndWait([&] { titles.push_back(titleOf(books[at])); });
    }
    std::vector<std::string> expected;
    for (int number = 149; number >= 100; --number) expected.push_back(std::to_string(number));
    expected[30] = "changed";
    expected[33] = "nil";
    EXPECT_EQ(titles, expected);
}

TEST_P(Fetching, MembersReadOneOwnerAfterAnotherAreThoseOfTheMoment) {
    Objects authors, books;
    root->performBlockAndWait([&] {
        for (int i = 0; i < 40; ++i) authors.push_back(inserted(*root, "Author", {{"name", std::to_string(100 + i)}}));
        for (int i = 0; i < 120; ++i)
            books.push_back(inserted(*root, "Book", {{"title", std::to_string(i)}, {"author", Value(authors[i / 3])}}));
    });
    ASSERT_TRUE(saves(*root));
    std::vector const readers{library.worker(), childOf(root)};
    root->performBlockAndWait([&] { books[10]->setValueForKey(Value(authors[15]), "author"); }); // unsaved one level up
    for (auto const& reader : readers)
        reader->performBlockAndWait([&] {
            auto const walked = fetched(*reader, "Author", nullptr, {NSSortDescriptor::sortDescriptorWithKey("name")});
            for (std::size_t i = 0; i < walked.size(); ++i) {
                if (i == 20) { // in the middle: what was read ahead follows
                    auto const moved = reader->objectWithID(*books[70]->objectID());
                    moved->setValueForKey(Value(walked[25]), "author");
                    reader->deleteObject(*reader->objectWithID(*books[66]->objectID()));
                    reader->deleteObject(*walked[30]);
                    walked[24]->mutableSetValueForKey("books").addObject(inserted(*reader, "Book", {{"title", "new"}}));
                }
                if (i == 8) {
                    EXPECT_TRUE(reader->objectRegisteredForID(*books[36]->objectID())) << "was read ahead, with its author";
                }
                if (i == 30) continue;
                std::string expected;
                for (auto const& book : fetched(*reader, "Book", where("author == %@", walked[i]),
                                                {NSSortDescriptor::sortDescriptorWithKey("title")}))
                    expected += (expected.empty() ? "" : ",") + book->valueForKey("title").description();
                EXPECT_EQ(members(*walked[i], "books"), expected) << i;
            }
            reader->rollback();
        });
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

TEST_P(Fetching, TheLargestLimitsAndOffsetsMeanWhatTheySay) {
    for (std::size_t const limit : {0, 9}) EXPECT_EQ(fetched(*worker, "Book", nullptr, {}, limit, SIZE_MAX).size(), 0u) << limit;
    inserted(*worker, "Book", {{"title", "999"}});
    EXPECT_EQ(fetched(*worker, "Book", nullptr, {NSSortDescriptor::sortDescriptorWithKey("title")}, SIZE_MAX, 1).size(), 50u);
}

TEST_P(Fetching, TheFirstOfAListAndItsCountBesideSavesOnTheirWayAreThoseOfTheWholeList) {
    std::minstd_rand random(7);
    auto const some = [&](int most) { return static_cast<int>(random() % static_cast<unsigned>(most)); };
    auto const lower = childOf(worker);
    auto const fill = [&](NSManagedObjectContext& context, int count) {
        for (int number = 0; number < count; ++number)
            inserted(context, number % 5 == 0 ? "Novel" : "Book", {{"title", std::to_string(some(900))}, {"year", some(30)}});
    };
    auto const disturb = [&](NSManagedObjectContext& context, int every) {
        auto const all = fetched(context, "Book");
        for (std::size_t at = 0; at < all.size(); ++at) {
            if (at % static_cast<std::size_t>(every) == 0) change(*all[at], std::to_string(some(900)), "title");
            if (at % 50 == 7) context.performBlockAndWait([&] { context.deleteObject(*all[at]); });
        }
    };
    fill(*root, 400);
    ASSERT_TRUE(saves(*root)); // so that there are more runs of keys than the store takes as ranges
    for (auto const& context : {worker, lower}) {
        disturb(*context, 3);
        fill(*context, 300); // more than a set sorts at once
        ASSERT_TRUE(saves(*context));
        fill(*context, 20);
        disturb(*context, 9);
    }
    for (auto const& context : {worker, lower})
        for (auto const& entity : {"Book", "Novel"}) {
            for (auto const& sort : {std::vector{by("year", {.ascending = false}), by("title")}, {by("title")}, {}}) {
                auto const all = fetched(*context, entity, nullptr, sort);
                for (auto const& [limit, offset] : {std::pair{20u, 0u}, {300u, 5u}, {2000u, 0u}}) {
                    auto const rest = std::span(all).subspan(std::min<std::size_t>(offset, all.size()));
                    auto const wanted = rest.first(std::min<std::size_t>(limit, rest.size()));
                    EXPECT_EQ(fetched(*context, entity, nullptr, sort, limit, offset), Objects(wanted.begin(), wanted.end()));
                }
            }
            for (auto const& predicate : {Ref<NSPredicate>(), where("year > 10"), where("year == 3 OR title > '5'")}) {
                auto const counted = make<NSFetchRequest>(entity);
                counted->setPredicate(predicate);
                std::int64_t count = 0;
                context->performBlockAndWait([&] { count = context->countForFetchRequest(*counted, error); });
                EXPECT_EQ(count, std::ssize(fetched(*context, entity, predicate)));
            }
        }
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

TEST_P(Fetching, WhatTheEntityLacksIsAnErrorAtEveryDoorWhateverTheRecordsHold) {
    struct {
        char const* format;
        char const* problem; // empty: there is none
    } const rows[] = {
        {"nosuch == 1", "The entity Book has no key \"nosuch\"; the nearest: "},
        {"autor.name == 'A'", "no key \"autor\" (in \"autor.name\"); the nearest: \"author\""},
        {"author.nmae == 'A'", "The entity Author has no key \"nmae\" (in \"author.nmae\"); the nearest: \"name\""},
        {"title == $V", "the variable $V"},
        {"title.length == 1", "no \"length\" (in \"title.length\")"},
        {"1 IN {year, nosuch}", "no key \"nosuch\""},
        {"author.@count == 1", "@count asks for a to-many"},
        {"ANY chapters.@max.pages == 1", "no key \"pages\""},
        {"TRUEPREDICATE OR ALL chapters.book.x == 1", "no key \"x\""},
        {"title == '100' OR SELF.draft == nil AND self.title == '101'", ""},
        {"cover.page.@count == 2", ""},
        {"genre == nil AND author.books.@count > 0 AND chapters.title.@count == 1", ""},
        {"related.@sum.year == 0 AND ANY author.books.chapters.title != nil AND NOT SELF IN {nil}", ""},
    };
    auto const check = [&](char const* problem) {
        auto const expectSaid = [&] {
            EXPECT_EQ(error != nullptr, *problem != 0) << (error ? error->description() : "");
            auto const said = error ? error->localizedDescription() : std::string();
            EXPECT_NE(said.find(problem), std::string::npos) << said;
        };
        for (auto const& context : {root, worker}) {
            context->executeFetchRequest(*request, error), expectSaid();
            context->countForFetchRequest(*request, error), expectSaid();
            context->fetchObjects(*request, error), expectSaid();
        }
        if (!*problem) return;
        worker->executeRequest(*make<NSBatchDeleteRequest>(request), error);
        expectSaid();
    };
    inserted(*root, "Novel", {{"title", "unsaved"}, {"genre", "short"}});
    for (auto const& row : rows) {
        SCOPED_TRACE(row.format);
        request->setPredicate(where(row.format));
        check(row.problem);
    }
    request->setPredicate(nullptr);
    request->setRelationshipKeyPathsForPrefetching({"author.titles"});
    check("The entity Author has no relationship \"titles\" to be prefetched");
    request->setRelationshipKeyPathsForPrefetching({});
    request->setSortDescriptors({by("author.age")});
    check("no key \"age\"");
    auto nested = where("title == '100'");
    for (int level = 0; level < 501; ++level) nested = NSCompoundPredicate::andPredicateWithSubpredicates({nested});
    request->setSortDescriptors({});
    request->setPredicate(nested);
    check("nested more than 500 deep");
}

TEST_P(Fetching, NaNIsAbsentAndInfinityIsKeptInMemoryAsInTheStore) {
    auto const infinity = std::numeric_limits<double>::infinity(), nan = std::numeric_limits<double>::quiet_NaN();
    for (auto const& [name, value] :
         {std::pair{"nan", nan}, std::pair{"inf", infinity}, std::pair{"-inf", -infinity}, std::pair{"one", 1.0}})
        inserted(*root, "Author", {{"name", name}})->setValueForKey(value, "rating");
    auto const found = [&](char const* format, double value) {
        std::string names;
        for (auto const& each : fetched(*root, "Author", where(format, value), {by("name")}))
            names += each->valueForKey("name").description() + " ";
        return names;
    };
    auto const expectAll = [&] {
        EXPECT_EQ(found("NOT name BEGINSWITH 'A' AND rating == %@", nan), "nan ");
        EXPECT_EQ(found("rating != %@", nan), "-inf inf one ");
        EXPECT_EQ(found("rating == inf OR rating == %@", -infinity), "-inf inf ");
        EXPECT_EQ(found("rating > -inf AND rating < %@", infinity), "one ");
    };
    expectAll();
    for (auto const& author : fetched(*root, "Author", where("rating == inf")))
        EXPECT_EQ(author->valueForKey("rating"), infinity);
    auto const problem = root->save(error) ? std::string() : error->localizedDescription();
    EXPECT_NE(problem.find("rating"), std::string::npos) << "0 to 10 are the bounds: " << problem;
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

TEST_P(Fetching, UnsortedResultsComeInTheOrderOfTheirKeysAlsoWithAnIndexAndCut) {
    for (char const* name : {"Zoe", "Yann", "Xenia"}) inserted(*root, "Author", {{"name", name}});
    ASSERT_TRUE(saves(*root));
    auto const late = where("name BEGINSWITH 'X' OR name BEGINSWITH 'Y' OR name >= 'Z'"), cut = where("name >= 'X'");
    auto const expect = [&](char const* when, std::string const& last) {
        EXPECT_EQ(listed(fetched(*worker, "Author", late), "name"), "Zoe,Yann,Xenia" + last) << when;
        EXPECT_EQ(listed(fetched(*worker, "Author", cut, {}, 2), "name"), "Zoe,Yann") << when;
        EXPECT_EQ(listed(fetched(*worker, "Author", cut, {}, 2, 1), "name"), "Yann,Xenia") << when;
    };
    expect("clean", "");
    fetched(*worker, "Author", where("name == 'Yann'")).at(0)->setValueForKey(1.0, "rating");
    expect("one is changed", "");
    for (char const* name : {"Zara", "Yul"}) inserted(*worker, "Author", {{"name", name}});
    expect("and two are new", ",Zara,Yul");
}

TEST_P(Fetching, AnswersInMemoryAndFromTheStoreAreTheSame) {
    auto const tag = inserted(*root, "Tag", {{"name", "t"}}), other = inserted(*root, "Tag", {{"name", "u"}});
    auto const authors = fetched(*root, "Author", where("name == 'A0'"));
    for (auto const& author : {authors[0], authors[0], authors[1]}) {
        auto const book = inserted(*root, "Book", {{"title", "tagged"}, {"author", Value(author)}});
        book->mutableSetValueForKey("tags").addObject(author == authors[1] ? other : tag);
        if (author == authors[1]) book->mutableSetValueForKey("tags").addObject(tag);
    }
    ASSERT_TRUE(saves(*root));
    auto const byObject = NSComparisonPredicate::predicateWithLeftExpression(
        NSExpression::expressionForKeyPath("author.name", NSExpression::expressionForEvaluatedObject()),
        NSExpression::expressionForConstantValue("renamed"), NSPredicateOperatorType::EqualTo);
    auto const counts = [&](char const* when, std::size_t renamed) {
        EXPECT_EQ(fetched(*worker, "Author", where("ANY books.tags.@count == 2")).size(), 1u) << when;
        EXPECT_TRUE(fetched(*worker, "Author", where("2 IN books.tags.@count")).empty()) << when << ": one number, of all books";
        EXPECT_EQ(fetched(*worker, "Book", where("%K == '100'", "SELF.title")).size(), 1u) << when;
        EXPECT_EQ(fetched(*worker, "Book", byObject).size(), renamed) << when;
    };
    counts("clean", 0);
    inserted(*worker, "Book", {{"title", "new"}});
    counts("something is new", 0);
    toOne(fetched(*worker, "Book", where("title == '149'")).at(0), "author")->setValueForKey("renamed", "name");
    counts("another record is changed", 1);
}

TEST_P(Fetching, UnsavedChangesTurnTheAnswersOfTheRecordsThatReferToThem) {
    auto const byAuthor = by("author.name"), byTitle = by("title");
    auto const expect = [&](char const* when, std::size_t found, char const* first, std::size_t prolific) {
        auto const predicate = where("author.name == 'A0'");
        EXPECT_EQ(fetched(*worker, "Book", predicate).size(), found) << when;
        EXPECT_EQ(worker->count("Book", predicate), static_cast<std::int64_t>(found)) << when;
        EXPECT_EQ(listed(fetched(*worker, "Book", {}, {byAuthor, byTitle}, 3), "title"), first) << when;
        EXPECT_EQ(fetched(*worker, "Author", where("books.@count > 1")).size(), prolific) << when;
        request->setPredicate(predicate);
        request->setFetchOffset(4);
        EXPECT_EQ(worker->countForFetchRequest(*request, error), static_cast<std::int64_t>(found - 4)) << when;
        request->setFetchLimit(3);
        EXPECT_EQ(worker->countForFetchRequest(*request, error), 3) << when;
        request->setFetchLimit(0);
    };
    expect("clean", 10, "100,101,102", 0);
    auto const tag = inserted(*worker, "Tag", {{"name", "t"}});
    expect("another entity", 10, "100,101,102", 0);
    EXPECT_LT(worker->registeredObjects().size(), 30U) << "nothing else was made to find them";
    auto const author = toOne(fetched(*worker, "Book", where("title == '100'")).at(0), "author");
    author->setValueForKey("Z", "name");
    expect("an author has another name", 9, "101,102,103", 0);
    auto const book = fetched(*worker, "Book", where("title == '120'")).at(0);
    book->setValueForKey(Value(toOne(fetched(*worker, "Book", where("title == '105'")).at(0), "author")), "author");
    expect("a book has another author", 10, "101,102,103", 1);
    ASSERT_TRUE(saves(*worker)); // to the root, not to the store
    auto const before = worker;
    worker = library.worker();
    expect("the same in the level above", 10, "101,102,103", 1);
    worker->deleteObject(*fetched(*worker, "Book", where("title == '101'")).at(0));
    expect("a book is deleted", 9, "102,103,104", 1);
}

TEST_P(Fetching, WhatIsInMemoryIsFoundByTheValueItHasNow) {
    auto const found = [&](char const* title) {
        return worker->anyObjectNamed("Book", {.predicate = where("title == %@", title)});
    };
    EXPECT_FALSE(found("x"));
    auto const book = inserted(*worker, "Book", {{"title", "x"}});
    EXPECT_EQ(found("x"), book);
    book->setValueForKey("y", "title");
    EXPECT_FALSE(found("x"));
    EXPECT_EQ(found("y"), book);
    auto const saved = found("110");
    ASSERT_TRUE(saved);
    saved->setValueForKey("x", "title");
    EXPECT_FALSE(found("110"));
    EXPECT_EQ(found("x"), saved);
    EXPECT_EQ(fetched(*worker, "Book", where("title == 'x' OR title == 'y'")).size(), 2U);
    worker->refreshObject(*saved, false);
    EXPECT_FALSE(found("x"));
    EXPECT_EQ(fetched(*worker, "Book", where("title == '110'")).at(0), saved);
    ASSERT_TRUE(saves(*worker));
    EXPECT_EQ(found("y"), book) << "under its permanent key";
    worker->refreshObject(*saved, false);
    saved->mutableSetValueForKey("related").addObject(book);
    ASSERT_TRUE(saved->isFault());
    EXPECT_EQ(fetched(*worker, "Book", where("title == '110'")).size(), 1U) << "changed, though nobody has asked for its values";
}
