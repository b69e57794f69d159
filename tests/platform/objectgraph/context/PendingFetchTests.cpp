// Fetches beside change sets that wait: they find what a look at each record would, without looking at each.
#include "CountedCondition.h"
#include "Library.h"
#include "Tessarin/platform/foundation/predicates/NSCompoundPredicate.h"
#include <future>
#include <map>
#include <random>

namespace Tessarin::tests {
namespace {

using Context = Ref<NSManagedObjectContext>;

std::string keysOf(auto const& objects) {
    std::string text;
    for (auto const& object : objects) text += std::to_string(object->recordKey()) + " ";
    return text;
}

class PendingFetches : public LibraryTest {
protected:
    Context const main = library.worker(), left = childOf(main), right = childOf(main);
    Context reader;
    std::minstd_rand random{7};
    std::map<Context, Objects> books, authors; // held: what a worker changes is as old as it read it

    void SetUp() override {
        for (auto const& context : {root, main, left, right}) context->setMergePolicy(NSMergeByPropertyObjectTrumpMergePolicy());
    }
    int some(int most) { return static_cast<int>(random() % static_cast<unsigned>(most)); }
    static bool isThere(NSManagedObject& object) { return object.managedObjectContext() && !object.isDeleted(); }
    Ref<NSManagedObject> any(Objects const& objects) {
        auto const object = objects.empty() ? nullptr : objects[static_cast<std::size_t>(some(static_cast<int>(objects.size())))];
        return object && isThere(*object) ? object : nullptr;
    }
    void insertBook(Context const& context) {
        auto const book = context->insertNewObject(some(4) == 0 ? "Novel" : "Book");
        book->setValueForKey(std::to_string(some(60)), "title");
        book->setValueForKey(some(30), "year");
        if (auto const author = some(2) == 0 ? any(authors[context]) : nullptr) book->setValueForKey(Value(author), "author");
        books[context].push_back(book);
    }
    void disturb(Context const& context) {
        auto const book = any(books[context]);
        switch (some(8)) {
        case 0:
        case 1: return insertBook(context);
        case 2: return book ? book->setValueForKey(std::to_string(some(60)), "title") : void();
        case 3: return book ? book->setValueForKey(some(30), "year") : void();
        case 4: return book ? book->setValueForKey(Value(any(authors[context])), "author") : void();
        case 5: return book && some(3) == 0 ? context->deleteObject(*book) : void();
        default:
            if (some(6) != 0) return;
            for (auto const& [entity, held] : {std::pair{"Book", &books}, std::pair{"Author", &authors}}) {
                Ref<NSError> failed;
                (*held)[context] = context->executeFetchRequest(*make<NSFetchRequest>(entity), failed);
            }
        }
    }
    void disturbAll() {
        for (auto const& context : {left, right, main, root}) {
            bool const isWorker = context == left || context == right;
            int const saving = isWorker ? 2 : context == main ? 5 : 9;
            context->performBlockAndWait([&] {
                for (int count = isWorker ? some(6) : context == main ? some(3) : 0; count > 0; --count) disturb(context);
                Ref<NSError> failed;
                if (some(saving) != 0) return;
                EXPECT_TRUE(context->save(failed)) << failed->description();
            });
        }
    }
    /// A context with some changes of its own.
    Context changedChild() {
        auto const context = childOf(main);
        reader = childOf(context); // to whom it shows them
        context->performBlockAndWait([&] {
            Ref<NSError> failed;
            books[context] = context->executeFetchRequest(*make<NSFetchRequest>("Book"), failed);
            for (int count = some(4); count > 0; --count) disturb(context);
            books.erase(context);
            authors.erase(context);
        });
        return context;
    }
    Ref<NSFetchRequest> someRequest(NSManagedObjectContext& asker) {
        static char const* const formats[] = {"year > 12",
                                              "title BEGINSWITH '1' AND year < 20",
                                              "title == '42'",
                                              "year == 7 OR title CONTAINS '3'",
                                              "NOT year > 4",
                                              "title FINDS '4'",
                                              "author == nil",
                                              "tags.@count == 0 AND year > 9",
                                              "author.name == 'a1' AND year > 3"};
        List named;
        for (int count = some(12); count > 0; --count)
            if (auto const book = any(books[left])) named.push_back(Value(asker.objectWithID(*book->objectID())));
        Value const author(asker.objectWithID(*any(authors[left])->objectID()));
        Value const two(asker.objectWithID(*authors[right].front()->objectID())->objectID());
        Ref<NSPredicate> const withObjects[] = {where("SELF IN %@", Value(named)), where("SELF IN %@ AND year > 9", Value(named)),
                                                where("author == %@", author), where("author == %@ AND year > 6", author),
                                                where("author IN %@ AND year < 25", Value(List{author, two, author}))};
        static std::vector<std::vector<Ref<NSSortDescriptor>>> const orders = {
            {}, {by("title")}, {by("year", {.ascending = false}), by("title")}, {by("author.name"), by("title")}};
        auto const request = make<NSFetchRequest>(some(6) == 0 ? "Novel" : "Book");
        auto const at = static_cast<std::size_t>(some(static_cast<int>(std::size(formats) + std::size(withObjects))));
        request->setPredicate(at < std::size(formats) ? where(formats[at]) : withObjects[at - std::size(formats)]);
        request->setSortDescriptors(orders[random() % orders.size()]);
        if (some(2) == 0) request->setFetchLimit(1 + random() % 9);
        if (some(4) == 0) request->setFetchOffset(random() % 5);
        request->setIncludesSubentities(some(5) != 0);
        return request;
    }
    /// By a look at each, in a context that knows no object yet.
    std::string plain(NSFetchRequest const& request, Context const& asker) {
        std::string keys;
        auto const judge = childOf(asker);
        judge->performBlockAndWait([&] { keys = keysOf(plain(request, *judge)); });
        return keys;
    }
    Objects plain(NSFetchRequest const& request, NSManagedObjectContext& judge) {
        Ref<NSError> failed;
        auto objects = judge.executeFetchRequest(*make<NSFetchRequest>("Book"), failed);
        std::erase_if(objects, [&](auto const& object) {
            bool const isOne = request.includesSubentities()
                                   ? request.entityName() == "Book" || object->entity().name() == "Novel"
                                   : object->entity().name() == request.entityName();
            return !isOne || !request.predicate()->evaluateWithObject(Value(object));
        });
        std::ranges::sort(objects, [&](auto const& a, auto const& b) {
            for (auto const& sort : request.sortDescriptors())
                if (auto const order =
                        sort->compareKeys(sort->keyPath().valueFrom(Value(a)), sort->keyPath().valueFrom(Value(b)));
                    order != 0)
                    return order < 0;
            auto const place = [](auto const& object) {
                return std::pair(object->recordKey() < 0, std::abs(object->recordKey()));
            };
            return place(a) < place(b);
        });
        objects.erase(objects.begin(), objects.begin() + static_cast<long>(std::min(objects.size(), request.fetchOffset())));
        if (request.fetchLimit() != 0 && objects.size() > request.fetchLimit()) objects.resize(request.fetchLimit());
        return objects;
    }
};
INSTANTIATE_TEST_SUITE_P(Stores, PendingFetches, bothStores, storeName);

} // namespace

TEST_P(PendingFetches, FindWhatALookAtEachRecordFinds) {
    root->performBlockAndWait([&] {
        for (int i = 0; i < 5; ++i) root->insertNewObject("Author")->setValueForKey("a" + std::to_string(i), "name");
        for (int i = 0; i < 40; ++i) insertBook(root);
        Ref<NSError> failed;
        EXPECT_TRUE(root->save(failed));
    });
    for (auto const& context : {main, left, right})
        books[context] = fetched(*context, "Book"), authors[context] = fetched(*context, "Author");
    int found = 0;
    for (int step = 0; step < 80; ++step) {
        disturbAll();
        std::promise<std::string> delivered;
        std::string expected;
        Ref<NSFetchRequest> last;
        auto const asker = changedChild(); // shows what is seen now, and nothing of earlier
        asker->performBlockAndWait([&] {
            for (int i = 0; i < 6; ++i) {
                auto const request = someRequest(*asker);
                Ref<NSError> failed;
                auto const now = keysOf(asker->fetchObjects(*request, failed)), wanted = plain(*request, asker);
                ASSERT_EQ(now, wanted) << step << ": " << request->description();
                EXPECT_EQ(asker->countForFetchRequest(*request, failed), std::ranges::count(wanted, ' '))
                    << step << ": " << request->description();
                found += !wanted.empty();
            }
        });
        if (HasFatalFailure()) return;
        auto const later = changedChild();
        later->performBlockAndWait([&] {
            last = someRequest(*later);
            later->fetchAsync(*last, [&](FetchedObjects list, Ref<NSError> const&) {
                Ref<NSError> failed;
                expected = keysOf(later->fetchObjects(*last, failed));
                delivered.set_value(keysOf(list));
            });
            disturbAll(); // before it is delivered
        });
        auto const list = delivered.get_future().get();
        ASSERT_EQ(list, expected) << step << ": " << last->description();
    }
    EXPECT_GT(found, 250);
}

// What is merged of a save and of what a level has not saved stands in no set: neither fits, what is seen does.
TEST_P(PendingFetches, FindWhatOnlyTwoLevelsTogetherShow) {
    auto const book = inserted(*root, "Book", {{"title", "a"}, {"year", 1}});
    ASSERT_TRUE(saves(*root));
    auto const beside = library.worker();
    auto const theirs = beside->objectWithID(*book->objectID());
    change(*main->objectWithID(*book->objectID()), "b", "title");
    change(*theirs, 2, "year");
    ASSERT_TRUE(saves(*beside));
    for (auto const& [format, count] :
         {std::pair{"title BEGINSWITH 'b' AND year > 1", 1u}, {"title BEGINSWITH 'b' AND year < 2", 0u}})
        for (std::size_t limit : {0u, 3u})
            EXPECT_EQ(fetched(*left, "Book", where(format), {by("title")}, limit).size(), count) << format << limit;
}

// A search is typed beside an import: the queue that asks must not look at each record that waits.
TEST_P(PendingFetches, LookAtFewRecordsOnTheQueueThatAsks) {
    auto const author = inserted(*root, "Author", {{"name", "Ann"}});
    Objects stored;
    for (int i = 0; i < 30; ++i) stored.push_back(inserted(*root, "Book", {{"title", "old"}, {"author", Value(author)}}));
    ASSERT_TRUE(saves(*root));
    auto const import = [&](Context const& worker, int count) {
        worker->performBlockAndWait([&] {
            auto const owner = worker->objectWithID(*author->objectID());
            for (int i = 0; i < count; ++i) {
                auto const book = worker->insertNewObject("Book");
                book->setValueForKey("t" + std::to_string(i * 7 % 1000), "title");
                book->setValueForKey(Value(owner), "author");
            }
            for (auto const& each : stored) worker->objectWithID(*each->objectID())->setValueForKey("old", "title");
            Ref<NSError> failed;
            EXPECT_TRUE(worker->save(failed));
        });
    };
    import(left, 3000);
    auto const beginning = [&](char const* start) {
        return counted("title", NSPredicateOperatorType::BeginsWith, start, main->queue());
    };
    auto const mine = main->objectWithID(*author->objectID());
    for (bool const isLinked : {false, true})
        for (bool const grows : {false, true}) {
            auto const search = beginning(isLinked ? grows ? "t1" : "t2" : grows ? "t3" : "t4");
            auto const request = make<NSFetchRequest>("Book");
            request->setPredicate(isLinked ? Ref<NSPredicate>(NSCompoundPredicate::andPredicateWithSubpredicates(
                                                 {where("author == %@", mine), search}))
                                           : search);
            request->setSortDescriptors({by("title"), by("year")});
            request->setFetchLimit(20);
            std::promise<std::string> found;
            main->performBlockAndWait([&] {
                main->fetchAsync(*request, [&](FetchedObjects list, Ref<NSError> const&) {
                    EXPECT_LT(search->asked, 100);
                    EXPECT_GE(search->askedElsewhere, 3000);
                    Ref<NSError> failed;
                    auto const now = keysOf(main->fetchObjects(*request, failed));
                    EXPECT_LT(search->asked, 100);
                    found.set_value(keysOf(list) == now ? "" : keysOf(list));
                });
                if (grows) import(right, 2000); // arrives before the answer
            });
            EXPECT_EQ(found.get_future().get(), "") << isLinked << grows;
        }
    auto const last = [&](Ref<NSPredicate> const& linked) {
        return keysOf(fetched(*main, "Book", linked, {by("title", {.ascending = false})}, 20));
    };
    EXPECT_EQ(last(where("author IN %@", Value(List{mine, mine, mine, mine}))), last(where("author == %@", mine)));
    main->performBlockAndWait([&] {
        auto const few = beginning("t");
        Ref<NSError> failed;
        auto const all = main->executeFetchRequest(*make<NSFetchRequest>("Book"), failed);
        List named;
        for (std::size_t at = 0; at < 40; ++at)
            named.push_back(at % 2 == 0 ? Value(all[at * 50]) : Value(all[at * 50]->objectID()));
        auto const request = make<NSFetchRequest>("Book");
        request->setPredicate(NSCompoundPredicate::andPredicateWithSubpredicates({where("SELF IN %@", Value(named)), few}));
        auto const found = main->fetchObjects(*request, failed).size();
        EXPECT_GT(found, 30u);
        EXPECT_LE(few->asked, 80);
        EXPECT_EQ(main->countForFetchRequest(*request, failed), static_cast<std::int64_t>(found));
    });
}

// What an import has not saved yet is found by whom it leads to, also by a record that gets its permanent key meanwhile.
TEST_P(PendingFetches, AskFewOfTheManyThatTheContextItselfHasChanged) {
    for (auto const& context : {root, main, left})
        for (int i = 0; i < 3; ++i) inserted(*context, "Author", {{"name", "a" + std::to_string(i)}});
    ASSERT_TRUE(saves(*root));
    left->performBlockAndWait([&] {
        Ref<NSError> failed;
        authors[left] = left->executeFetchRequest(*make<NSFetchRequest>("Author"), failed);
        for (int i = 0; i < 400; ++i) insertBook(left);
    });
    ASSERT_EQ(authors[left].size(), 9u);
    reader = childOf(left); // to whom it shows them
    std::ptrdiff_t all = 0;
    for (int step = 0; step < 60; ++step) {
        for (auto const& [at, context] : {std::pair{20, main}, {25, root}, {40, left}, {45, root}}) // then others change again
            EXPECT_TRUE(step != at || saves(*context));
        left->performBlockAndWait([&] {
            for (int count = step == 41 ? 300 : some(6); count > 0; --count) disturb(left);
        });
        left->performBlockAndWait([&] {
            Value const author(any(authors[left])), other(any(authors[left]));
            auto const few = counted("year", NSPredicateOperatorType::GreaterThan, 5, left->queue());
            auto const request = make<NSFetchRequest>("Book");
            auto const linked = some(2) == 0 ? where("author == %@", author) : where("author IN %@", Value(List{author, other}));
            request->setPredicate(NSCompoundPredicate::andPredicateWithSubpredicates({few, linked}));
            Ref<NSError> failed;
            auto const found = keysOf(left->fetchObjects(*request, failed));
            EXPECT_LT(few->asked, 200);
            ASSERT_EQ(found, plain(*request, left)) << step;
            all += std::ranges::count(found, ' ');
        });
        if (HasFatalFailure()) return;
    }
    EXPECT_GT(all, 600);
}

} // namespace Tessarin::tests
