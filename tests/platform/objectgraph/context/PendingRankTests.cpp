// Beside many records that wait: the first by rank, and the first with a value that most of them have.
#include "CountedCondition.h"
#include "Library.h"
#include "Tessarin/platform/objectgraph/query/SearchRank.h"
#include <future>
#include <random>

namespace Tessarin::tests {
namespace {

/// Counts of whom the values were asked.
struct Shown : NSManagedObject {
    static inline std::atomic<int> count = 0;

protected:
    void awakeFromFetch() override { ++count; }
};

using Context = Ref<NSManagedObjectContext>;

class PendingRanks : public testing::TestWithParam<char const*> {
protected:
    TemporaryFolder folder;
    Ref<NSManagedObjectModel> const model = ModelBuilder()
                                                .entity("Note", {.className = registerClass<Shown, NSManagedObject>().name()})
                                                .attribute("title", NSAttributeType::String, {.fullText = true})
                                                .attribute("text", NSAttributeType::String, {.fullText = true})
                                                .attribute("kind", NSAttributeType::Integer16)
                                                .build();
    Context const root = contextOver(coordinatorOver(model, GetParam(), folder.url("notes.db"))), main = childOf(root),
                  left = childOf(main), right = childOf(main);
    std::minstd_rand random{11};

    int some(int most) { return static_cast<int>(random() % static_cast<unsigned>(most)); }
    std::string words(int most) {
        std::string text;
        for (int count = some(most); count >= 0; --count) text += std::string(1, static_cast<char>('a' + some(6))) + "x ";
        return text;
    }
    void fill(NSManagedObject& note) {
        note.setValueForKey(words(2), "title");
        note.setValueForKey(words(12), "text");
        note.setValueForKey(some(4) == 0 ? some(3) : 7, "kind");
    }
    void insert(Context const& context, int count) {
        context->performBlockAndWait([&] {
            for (; count > 0; --count) fill(*context->insertNewObject("Note"));
        });
        ASSERT_TRUE(saves(*context));
    }
    void disturb(std::initializer_list<Context> contexts) {
        for (auto const& context : contexts)
            context->performBlockAndWait([&] {
                Ref<NSError> failed;
                auto const notes = context->executeFetchRequest(*make<NSFetchRequest>("Note"), failed);
                for (int count = some(6); count > 0; --count) {
                    auto const& note = notes[static_cast<std::size_t>(some(static_cast<int>(notes.size())))];
                    if (some(4) == 0)
                        context->insertNewObject("Note")->setValueForKey(words(9), "text");
                    else if (!note->isDeleted())
                        some(4) == 0 ? context->deleteObject(*note) : fill(*note);
                }
                context->setMergePolicy(NSMergeByPropertyObjectTrumpMergePolicy());
                if (some(2) == 0) context->save(failed);
                EXPECT_FALSE(failed) << failed->description();
            });
    }
    Ref<NSFetchRequest> someRequest() {
        static char const* const formats[] = {"{title, text} FINDS 'a'", "text FINDS 'bx c'",
                                              "{title, text} FINDS 'ax' AND kind == 7",
                                              "kind == 7 AND text FINDS 'd' AND title FINDS 'e'"};
        auto const request = make<NSFetchRequest>("Note");
        request->setPredicate(where(formats[some(4)]));
        auto const rank = searchRank();
        std::vector<Ref<NSSortDescriptor>> const orders[] = {
            {rank}, {rank->reversedSortDescriptor(), by("title")}, {by("kind"), rank}};
        request->setSortDescriptors(orders[some(3)]);
        if (some(4) == 0) { // by a value that most have
            request->setPredicate(where(some(2) == 0 ? "kind == 7" : "title > 'b' AND kind == 7"));
            request->setSortDescriptors({by("text")});
        }
        return request;
    }
    static std::string keysOf(auto const& found, std::size_t offset = 0, std::size_t count = SIZE_MAX) {
        std::string keys;
        for (std::size_t at = offset; at < found.size() && count-- > 0; ++at)
            keys += std::to_string(found[at]->recordKey()) + " ";
        return keys;
    }
};
INSTANTIATE_TEST_SUITE_P(Stores, PendingRanks, bothStores, storeName);

} // namespace

TEST_P(PendingRanks, AreThoseOfALookAtEachRecord) {
    insert(root, 60);
    insert(left, 150);
    for (int step = 0; step < 40; ++step) {
        disturb({left, right, main});
        if (step % 8 == 7) {
            ASSERT_TRUE(saves(*root));
        }
        auto const request = someRequest();
        std::size_t const offset = some(3) == 0 ? static_cast<std::size_t>(some(4)) : 0,
                          limit = static_cast<std::size_t>(1 + some(9));
        std::promise<std::pair<std::string, std::string>> delivered;
        auto const asker = some(3) == 0 ? main : childOf(main);
        asker->performBlockAndWait([&] {
            Ref<NSError> failed;
            auto const wanted = keysOf(asker->executeFetchRequest(*request, failed), offset, limit); // all are ranked as objects
            request->setFetchOffset(offset);
            request->setFetchLimit(limit);
            ASSERT_EQ(keysOf(asker->executeFetchRequest(*request, failed)), wanted) << step << ": " << request->description();
            EXPECT_EQ(asker->countForFetchRequest(*request, failed), std::ranges::count(wanted, ' '));
            asker->fetchAsync(*request, [&](FetchedObjects list, Ref<NSError> const& error) {
                EXPECT_FALSE(error);
                Ref<NSError> none;
                delivered.set_value({keysOf(list), keysOf(asker->executeFetchRequest(*request, none))});
            });
            if (asker != main) disturb({left, right}); // before it is delivered
        });
        if (HasFatalFailure()) return;
        auto const [list, now] = delivered.get_future().get();
        ASSERT_EQ(list, now) << step << ": " << request->description();
    }
}

TEST_P(PendingRanks, MakeObjectsOfTheFirstAloneAndCountNoWordsOnTheQueueThatAsks) {
    insert(root, 60);
    insert(left, 2000);
    using Operator = NSPredicateOperatorType;
    struct {
        Ref<Counted> condition;
        Ref<NSSortDescriptor> order;
    } const rows[] = {{counted("text", Operator::Finds, "ax", main->queue()), searchRank()},
                      {counted("kind", Operator::EqualTo, 7, main->queue()), by("text")}};
    for (auto const& [condition, order] : rows) {
        auto const request = make<NSFetchRequest>("Note");
        request->setPredicate(condition);
        request->setSortDescriptors({order});
        request->setFetchLimit(10);
        Shown::count = 0;
        std::promise<std::string> delivered;
        main->performBlockAndWait([&] {
            main->fetchAsync(*request, [&](FetchedObjects list, Ref<NSError> const&) { delivered.set_value(keysOf(list)); });
            insert(right, 1500); // come before the answer, and are seen in it
        });
        auto const list = delivered.get_future().get();
        EXPECT_LT(condition->asked, 100);
        EXPECT_GT(condition->askedElsewhere, 1000);
        EXPECT_LT(Shown::count, 100);
        main->performBlockAndWait([&] {
            Ref<NSError> failed;
            EXPECT_EQ(keysOf(main->executeFetchRequest(*request, failed)), list);
            EXPECT_LT(Shown::count, 200);
            request->setFetchLimit(0);
            EXPECT_EQ(keysOf(main->executeFetchRequest(*request, failed), 0, 10), list);
        });
    }
}

} // namespace Tessarin::tests
