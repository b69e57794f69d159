#include "Tessarin/collections/ThreadsafeDictionary.h"

#include "tests/support/Blocked.h"
#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <ranges>
#include <thread>

namespace Tessarin {
namespace {

using Ages = ThreadsafeDictionary<std::string, int>;

TEST(ThreadsafeDictionary, YieldsEveryPairOnceWithItsValuePresent) {
    auto const ages = make<Ages>();
    EXPECT_EQ(ages->count(), 0);
    EXPECT_FALSE(ages->generate().next());
    (*ages)["a"] = 1;
    (*ages)["b"] = 2;
    (*ages)["a"] = 5;
    EXPECT_EQ(ages->count(), 2);
    std::map<std::string, std::optional<int>> seen;
    for (auto const& [name, age] : *ages) EXPECT_TRUE(seen.emplace(name, age).second);
    EXPECT_EQ(seen, (std::map<std::string, std::optional<int>>{{"a", 5}, {"b", 2}}));
    static_assert(std::ranges::input_range<Ages&>);
}

TEST(ThreadsafeDictionary, AGeneratorFixesTheKeysAndReadsTheValuesLive) {
    auto const ages = make<Ages>(Ages::Pairs{{"a", 1}, {"b", 2}});
    auto generator = ages->generate();
    auto const keys = ages->keys();
    auto const values = ages->values();
    (*ages)["c"] = 3;
    for (char const* key : {"a", "b"}) (*ages)[key] = 9;
    std::vector<std::string> visited;
    while (auto const pair = generator.next()) {
        visited.push_back(pair->first);
        EXPECT_EQ(pair->second, 9);
    }
    EXPECT_EQ(visited, keys);
    EXPECT_EQ(visited, generator.keys());
    EXPECT_EQ(generator.index, 2);
    EXPECT_EQ(values[0] + values[1], 3); // copies, in the order of the keys
    EXPECT_EQ(values[0], keys[0] == "a" ? 1 : 2);
}

TEST(ThreadsafeDictionary, ThreadsLoseNothing) {
    auto const sums = make<ThreadsafeDictionary<int, int>>();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 300; ++i) {
                sums->setSlot(thread * 300 + i, i);
                sums->modifySlot(thread * 300 + i, [](int& value) { ++value; });
                if (i % 50 != 0) continue;
                for (auto const& [key, value] : *sums) EXPECT_TRUE(value == key % 300 || value == key % 300 + 1);
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(sums->count(), 1200);
    EXPECT_TRUE(std::ranges::all_of(*sums, [](auto const& pair) { return pair.second == pair.first % 300 + 1; }));
}

TEST(ThreadsafeDictionaryDeathTest, MisuseIsFatalAndNamesTheOperation) {
    auto const ages = make<Ages>(Ages::Pairs{{"a", 1}});
    EXPECT_DEATH(ages->slot("b"), "^ThreadsafeDictionary.subscript: there is no value under that key\n$");
    EXPECT_DEATH(ages->modifySlot("b", [](int& age) { ++age; }), "there is no value under that key");
    // A pair can only be removed past the queue, and then the generator stumbles over it.
    auto generator = ages->generate();
    ages->modifyDict([](Ages::Pairs& pairs) { pairs.clear(); });
    EXPECT_DEATH(generator.next(), "there is no value under that key");

    class Unfinished : public Ages {
    public:
        void init(Pairs) override {}
    };
    EXPECT_DEATH(make<Unfinished>(Ages::Pairs{})->count(), "^ThreadsafeDictionary.count: there is no queue\n$");
}

TEST(ThreadsafeDictionaryDeathTest, UsingItInsideItsOwnQueueBlocksForEver) {
    class Open : public Ages {
    public:
        using Ages::queue;
    };
    EXPECT_STREQ(dispatch_queue_get_label(make<Open>()->queue()), "threadsafe_dictionary_queue");
    EXPECT_EXIT(tests::exitIfBlocked([ages = make<Open>()] { dispatch_sync(ages->queue(), [&] { ages->count(); }); }),
                testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace Tessarin
