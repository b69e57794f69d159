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
    void awakeFromFetch() override { ++count; }
};

using Context = Ref<NSManagedObjectContext>;

Ref<NSManagedObjectModel> notesModel() {
    return ModelBuilder()
        .entity("Note", {.className = registerClass<Shown, NSManagedObject>().name()})
        .attribute("title", NSAttributeType::String, {.fullText = true})
        .attribute("text", NSAttributeType::String, {.fullText = true})
        .attribute("kind", NSAttributeType::Integer16)
        .build();
}

class PendingRanks : public testing::TestWithParam<char const*> {
protected:
    TemporaryFolder folder;
    Context const root = contextOver(coordinatorOver(notesModel(), GetParam(), folder.url("notes.db"))), main = childOf(root),
                  left = childOf(main), right = childOf(main);
    std::minstd_rand random{11};

    int some(int most) { return static_cast<int>(random() % static_cast<unsigned>(most)); }
    void fill(NSManagedObject& note) {
        for (auto const& [key, most] : {std::pair{"title", 2}, {"text", 12}}) {
            std::string words;
            for (int count = some(most); count >= 0; --count) words += std::string(1, static_cast<char>('a' + some(6))) + "x ";
            note.setValueForKey(words, key);
        }
        note.setValueForKey(some(4) == 0 ? some(3) : 7, "kind");
    }
    void insert(Context const& context, int count) {
        context->performBlockAndWait([&] {
            for (; count > 0; --count) fill(*context->insertNewObject("Note"));
        });
        ASSERT_TRUE(saves(*context));
    }
    void disturb(Context const& context) {
        context->setMergePolicy(NSMergeByPropertyObjectTrumpMergePolicy());
        auto const notes = fetched(*context, "Note");
        context->performBlockAndWait([&] {
            for (int count = some(6); count > 0; --count) {
                auto const& note = notes[static_cast<std::size_t>(some(static_cast<int>(notes.size())))];
                if (!note->isDeleted()) some(5) == 0 ? context->deleteObject(*note) : fill(*note);
                fill(*context->insertNewObject("Note"));
            }
        });
        EXPECT_TRUE(some(2) == 0 || saves(*context));
    }
    static std::string keysOf(auto const& found, std::size_t offset = 0, std::size_t count = SIZE_MAX) {
        std::string keys;
        for (auto at = offset; at < found.size() && count-- > 0; ++at) keys += std::to_string(found[at]->recordKey()) + " ";
        return keys;
    }
};
INSTANTIATE_TEST_SUITE_P(Stores, PendingRanks, bothStores, storeName);

} // namespace

TEST_P(PendingRanks, AreThoseOfALookAtEachRecord) {
    struct {
        char const* format;
        std::vector<Ref<NSSortDescriptor>> order;
    } const rows[] = {{"{title, text} FINDS 'a'", {searchRank()}},
                      {"text FINDS 'bx c'", {searchRank()->reversedSortDescriptor(), by("title")}},
                      {"kind == 7 AND text FINDS 'd' AND title FINDS 'e'", {by("kind"), searchRank()}},
                      {"{title, text} FINDS 'ax b' AND kind == 7", {searchRank(), by("kind")}},
                      {"title > 'b' AND kind == 7", {by("text")}}};
    insert(root, 60);
    insert(left, 150);
    for (int step = 0; step < 60; ++step) {
        for (auto const& context : {left, right, main}) disturb(context);
        EXPECT_TRUE(step % 8 != 7 || saves(*root));
        auto const& [format, order] = rows[some(5)];
        auto const offset = static_cast<std::size_t>(std::max(0, some(12) - 8)), limit = static_cast<std::size_t>(1 + some(9));
        auto const asker = some(3) == 0 ? main : childOf(main);
        auto const wanted = keysOf(fetched(*asker, "Note", where(format), order), offset, limit); // all are ranked as objects
        ASSERT_EQ(keysOf(fetched(*asker, "Note", where(format), order, limit, offset)), wanted) << step << ": " << format;
        auto const request = make<NSFetchRequest>("Note");
        request->setPredicate(where(format));
        request->setSortDescriptors(order);
        request->setFetchLimit(limit);
        std::promise<std::pair<std::string, std::string>> delivered;
        asker->performBlockAndWait([&] {
            asker->fetchAsync(*request, [&](FetchedObjects list, Ref<NSError> const&) {
                delivered.set_value({keysOf(list), keysOf(fetched(*asker, "Note", where(format), order, limit))});
            });
            if (asker != main) disturb(left); // before it is delivered
        });
        auto const [list, now] = delivered.get_future().get();
        ASSERT_EQ(list, now) << step << ": " << format;
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
        EXPECT_EQ(keysOf(fetched(*main, "Note", condition, {order}, 10)), list);
        EXPECT_LT(Shown::count, 200);
        EXPECT_EQ(keysOf(fetched(*main, "Note", condition, {order}), 0, 10), list);
    }
}

} // namespace Tessarin::tests
