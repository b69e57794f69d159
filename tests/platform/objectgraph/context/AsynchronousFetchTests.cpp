// Fetches whose store query runs on another thread, held against fetches that are made where they are delivered.
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

#include "Tessarin/dispatch/Task.h"
#include "tests/platform/objectgraph/context/Library.h"
#include "tests/support/Eventually.h"
#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <map>
#include <random>

namespace Tessarin {
namespace {

using namespace tests;

std::string textOf(FetchedObjects const& list) {
    std::string text;
    for (auto const& object : list) text += std::to_string(object->recordKey()) + (object->isDeleted() ? "- " : " ");
    return text;
}

class AsynchronousFetches : public LibraryTest {
protected:
    Ref<NSManagedObjectContext> const middle = library.worker();
    Ref<NSManagedObjectContext> const lower = childOf(middle);
    std::minstd_rand random{11};

    void SetUp() override {
        for (auto const& context : {root, middle, lower})
            context->setMergePolicy(make<NSMergePolicy>(NSMergePolicyType::MergeByPropertyObjectTrump));
    }
    unsigned some(unsigned most) { return static_cast<unsigned>(random() % most); }

    Ref<NSManagedObject> any(NSManagedObjectContext& context, char const* entity) {
        auto const all = context.executeFetchRequest(*make<NSFetchRequest>(entity), error);
        return all.empty() ? nullptr : all[some(static_cast<unsigned>(all.size()))];
    }
    void save(NSManagedObjectContext& context) {
        Ref<NSError> failed;
        context.save(failed);
        EXPECT_FALSE(failed) << failed->description();
    }
    void fill(int books) {
        root->performBlockAndWait([&] {
            for (int i = 0; i < 12; ++i) {
                auto const author = root->insertNewObject("Author");
                author->setValueForKey("a" + std::to_string(i), "name");
            }
            for (int i = 0; i < books; ++i) insertBook(*root);
            save(*root);
        });
    }
    void insertBook(NSManagedObjectContext& context) {
        auto const book = context.insertNewObject(some(4) == 0 ? "Novel" : "Book");
        book->setValueForKey(std::to_string(some(200)), "title");
        book->setValueForKey(static_cast<int>(some(30)), "year");
        if (auto const author = some(3) == 0 ? any(context, "Author") : nullptr) book->setValueForKey(Value(author), "author");
    }
    /// One thing that happens while a fetch is under way. On the context's queue.
    void disturb(NSManagedObjectContext& context) {
        switch (some(9)) {
        case 0: return insertBook(context);
        case 1:
        case 2:
            if (auto const book = any(context, "Book")) book->setValueForKey(std::to_string(some(200)), "title");
            return;
        case 3:
            if (auto const book = any(context, "Book")) book->setValueForKey(static_cast<int>(some(30)), "year");
            return;
        case 4:
            if (auto const book = any(context, "Book")) context.deleteObject(*book);
            return;
        case 5:
            if (auto const author = any(context, "Author")) author->setValueForKey("a" + std::to_string(some(12)), "name");
            return;
        case 6:
            if (auto const book = any(context, "Book")) book->setValueForKey(Value(any(context, "Author")), "author");
            return;
        case 7: return save(context);
        default:
            if (some(4) == 0) return context.rollback();
        }
    }
    void disturbOnQueue(Ref<NSManagedObjectContext> const& context) {
        context->performBlockAndWait([&] {
            for (auto count = some(4); count > 0; --count) disturb(*context);
            if (some(2) == 0) save(*context);
        });
    }
    Ref<NSFetchRequest> someRequest() {
        static char const* const formats[] = {"year > 12",  "title BEGINSWITH '1'", "author.name == 'a3'", "year == 7",
                                              "author != nil AND year < 20", "ANY tags.name == 'x'", "title == '42'"};
        static std::vector<std::vector<Ref<NSSortDescriptor>>> const orders = {
            {}, {by("title")}, {by("year", {.ascending = false}), by("title")}, {by("author.name"), by("title")}};
        auto const request = make<NSFetchRequest>(some(5) == 0 ? "Novel" : "Book");
        if (auto const at = some(std::size(formats) + 3); at < std::size(formats)) request->setPredicate(where(formats[at]));
        request->setSortDescriptors(orders[some(static_cast<unsigned>(orders.size()))]);
        if (some(3) == 0) request->setFetchLimit(1 + some(40));
        if (some(4) == 0) request->setFetchOffset(some(10));
        request->setIncludesSubentities(some(5) != 0);
        request->setIncludesPendingChanges(some(8) != 0);
        return request;
    }
};

// What is delivered is what a fetch finds at that moment, whatever was changed, saved and merged since it was asked.
TEST_P(AsynchronousFetches, FindWhatAFetchFindsWhereTheyAreDelivered) {
    fill(150);
    auto const sibling = library.worker();
    sibling->setMergePolicy(make<NSMergePolicy>(NSMergePolicyType::MergeByPropertyObjectTrump));
    std::map<Ref<NSManagedObjectContext>, Objects> held; // what they show is as old as it was read
    int compared = 0;
    for (int step = 0; step < 400; ++step) {
        auto const& context = step % 3 == 0 ? lower : step % 3 == 1 ? middle : root;
        std::promise<std::pair<std::string, std::string>> both;
        auto const request = someRequest();
        if (some(10) == 0) {
            held[context] = fetched(*context, "Book");
            context->performBlockAndWait([&] { listed(held[context], "title"); });
        }
        context->performBlockAndWait([&] {
            context->fetchAsync(*request, [&both, request, &context](FetchedObjects list, Ref<NSError> const& failed) {
                EXPECT_FALSE(failed) << failed->description();
                Ref<NSError> problem;
                auto const now = context->fetchObjects(*request, problem);
                both.set_value({textOf(list), textOf(now)});
            });
            // Nothing is delivered before this block ends; the store is read whenever it is.
            for (auto const& other : {lower, middle, sibling, root})
                if (some(3) != 0) disturbOnQueue(other);
            if (some(12) == 0) {
                auto const batch = make<NSBatchUpdateRequest>("Book");
                batch->setPredicate(where("year == 3"));
                batch->setPropertiesToUpdate({{"title", std::to_string(some(200))}});
                Ref<NSError> problem;
                EXPECT_TRUE(root->executeRequest(*batch, problem));
            }
        });
        bool const isBeside = some(4) == 0 && context != middle; // then the two may come at different moments
        if (isBeside) disturbOnQueue(middle);
        auto const [delivered, fetched] = both.get_future().get();
        if (isBeside) continue;
        ASSERT_EQ(delivered, fetched) << "step " << step << ": " << request->description();
        compared += !delivered.empty();
    }
    EXPECT_GT(compared, 200);
}

TEST_P(AsynchronousFetches, AreCorrectedByManyChangesToo) {
    fill(400);
    for (auto const limit : {std::size_t{0}, std::size_t{30}})
        for (int const kind : {0, 1, 2}) { // unsaved when asked; saved meanwhile; both
            auto const request = make<NSFetchRequest>("Book");
            request->setSortDescriptors({by("title"), by("year")});
            request->setFetchLimit(limit);
            request->setFetchOffset(limit / 3);
            std::promise<std::pair<std::string, std::string>> both;
            middle->performBlockAndWait([&] {
                auto const changeMany = [&] {
                    for (int i = 0; i < 150; ++i) disturb(*middle);
                };
                if (kind != 1) changeMany();
                middle->fetchAsync(*request, [&](FetchedObjects list, Ref<NSError> const&) {
                    Ref<NSError> problem;
                    both.set_value({textOf(list), textOf(middle->fetchObjects(*request, problem))});
                });
                if (kind != 0) {
                    changeMany();
                    save(*middle);
                    root->performBlockAndWait([&] { save(*root); });
                }
            });
            auto const [delivered, fetched] = both.get_future().get();
            EXPECT_EQ(delivered, fetched) << kind;
        }
}

TEST_P(AsynchronousFetches, TellErrorsAtTheEndAndOnce) {
    fill(3);
    auto const lone = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    auto const storeless = contextOver(make<NSPersistentStoreCoordinator>(libraryModel()));
    struct Row {
        Ref<NSManagedObjectContext> context;
        char const* entity;
        char const* format;
    };
    for (auto const& [context, entity, format] :
         {Row{middle, "Unicorn", nullptr}, Row{middle, "Book", "colour == 'red'"}, Row{lone, "Book", nullptr},
          Row{storeless, "Book", nullptr}}) {
        auto const request = make<NSFetchRequest>(entity);
        if (format) request->setPredicate(where(format));
        std::promise<std::int64_t> code;
        std::int64_t expected = 0;
        std::atomic<bool> hasReturned = false;
        context->performBlockAndWait([&] {
            context->fetchAsync(*request, [&](FetchedObjects list, Ref<NSError> const& failed) {
                EXPECT_TRUE(hasReturned);
                EXPECT_TRUE(list.empty());
                code.set_value(failed ? failed->code() : 0);
            });
            Ref<NSError> problem;
            context->executeFetchRequest(*request, problem);
            expected = problem->code();
            hasReturned = true;
        });
        EXPECT_EQ(code.get_future().get(), expected) << entity;
    }
    for (int i = 0; i < 50; ++i) { // the context goes at any moment
        auto context = library.worker();
        std::promise<bool> end;
        context->performBlockAndWait([&] {
            context->fetchAsync(*make<NSFetchRequest>("Book"), [&](FetchedObjects list, Ref<NSError> const& failed) {
                end.set_value(failed ? failed->code() == std::int64_t(StoreErrorCode::ContextWithoutStore) : list.size() == 3);
            });
        });
        context = nullptr;
        EXPECT_TRUE(end.get_future().get());
    }
}

TEST_P(AsynchronousFetches, AnswerTypedQueriesAndTasks) {
    fill(9);
    auto const query = middle->fetch<NSManagedObject>("Book").where(where("year >= 0")).sortedBy(by("title")).limit(4);
    std::promise<std::pair<std::size_t, std::size_t>> counts;
    auto const both = [](FetchQuery<NSManagedObject> asked, std::promise<std::pair<std::size_t, std::size_t>>& told) -> Task<> {
        auto const [list, error] = co_await asked.fetchAsync();
        EXPECT_FALSE(error);
        asked.async([&told, count = list.size()](FetchedList<NSManagedObject> again, Ref<NSError> const&) {
            told.set_value({count, again.size()});
        });
    };
    middle->performBlockAndWait([&] { both(query, counts).start(); });
    EXPECT_EQ(counts.get_future().get(), (std::pair<std::size_t, std::size_t>{4, 4}));
}

TEST_P(AsynchronousFetches, ArePartOfARequestThatIsExecutedOnce) {
    fill(5);
    std::promise<std::size_t> count;
    FetchCompletion completion = [&](FetchedObjects list, Ref<NSError> const&) { count.set_value(list.size()); };
    auto const request = make<NSAsynchronousFetchRequest>(make<NSFetchRequest>("Book"), std::move(completion));
    Ref<NSAsynchronousFetch> fetch;
    middle->performBlockAndWait([&] {
        fetch = middle->executeRequest(*request);
        request->fetchRequest()->setPredicate(where("year == 99")); // comes too late
    });
    EXPECT_EQ(count.get_future().get(), 5u);
    EXPECT_TRUE(fetch->isDone());
    fetch->cancel();
    EXPECT_DEATH(middle->executeRequest(*request), "NSAsynchronousFetchRequest: it was executed already");
}

INSTANTIATE_TEST_SUITE_P(Stores, AsynchronousFetches, bothStores, storeName);

// The statement would take more than a minute: each of long texts is searched for hundreds of others.
TEST(CancelledFetch, EndsInsideItsStatementAndHarmsNoOther) {
    Library const library("SQLite");
    auto const& root = library.root;
    root->performBlockAndWait([&] {
        for (int i = 0; i < 120; ++i) root->insertNewObject("Book")->setValueForKey(std::string(100'000, 'q'), "title");
        Ref<NSError> error;
        ASSERT_TRUE(root->save(error));
    });
    std::string format;
    for (int i = 0; i < 400; ++i)
        format += (i == 0 ? "title CONTAINS '" : " OR title CONTAINS '") + std::string(50, 'q') + std::to_string(i) + "'";
    auto const slow = make<NSFetchRequest>("Book");
    slow->setPredicate(where(format.c_str()));
    auto const quick = make<NSFetchRequest>("Book");
    auto const countOfQuick = [&] {
        std::promise<std::size_t> count;
        root->performBlockAndWait([&] {
            root->fetchAsync(*quick, [&](FetchedObjects list, Ref<NSError> const&) { count.set_value(list.size()); });
        });
        return count.get_future().get();
    };
    for (int round = 0; round < 6; ++round) {
        std::atomic<int> calls = 0;
        std::promise<std::int64_t> code;
        Ref<NSAsynchronousFetch> fetch;
        root->performBlockAndWait([&] {
            fetch = root->fetchAsync(*slow, [&](FetchedObjects list, Ref<NSError> const& error) {
                EXPECT_TRUE(list.empty());
                if (++calls == 1) code.set_value(error ? error->code() : 0);
            });
            if (round % 2 == 0) fetch->cancel();
        });
        for (int i = 0; i < round; ++i) EXPECT_EQ(countOfQuick(), 120u); // by now it runs, probably
        fetch->cancel();
        EXPECT_EQ(code.get_future().get(), std::int64_t(StoreErrorCode::FetchCancelled));
        EXPECT_EQ(countOfQuick(), 120u);
        EXPECT_EQ(calls, 1);
    }
}

} // namespace
} // namespace Tessarin
