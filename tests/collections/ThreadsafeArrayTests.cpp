#include "Tessarin/collections/ThreadsafeArray.h"

#include "tests/support/Blocked.h"
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <ranges>
#include <thread>

namespace Tessarin {
namespace {

using Integers = ThreadsafeArray<int>;
Ref<Integers> of(std::vector<int> elements) { return make<Integers>(std::move(elements)); }

TEST(ThreadsafeArray, EmptyHasNeitherEndsAndRemovalTakesTheFirstEqualElementOnly) {
    auto const array = make<Integers>();
    EXPECT_EQ(array->count(), 0);
    EXPECT_FALSE(array->first() || array->last() || array->generate().next());
    for (int const element : {7, 3, 7, 4}) array->append(element);
    array->remove(7);
    array->remove(9);
    EXPECT_EQ(array->values(), (std::vector{3, 7, 4}));
    EXPECT_EQ(array->first(), 3);
    EXPECT_EQ(array->last(), 4);
    EXPECT_TRUE(array->contains(7) && !array->contains(9));
}

TEST(ThreadsafeArray, RemovingAtAnIndexIsLateAndForgivesOnlyTheUpperBound) {
    for (auto const& [index, left] :
         std::vector<std::pair<std::ptrdiff_t, std::vector<int>>>{{0, {8}}, {1, {7}}, {2, {7, 8}}, {5, {7, 8}}}) {
        auto const array = of({7, 8});
        array->removeAtIndex(index);
        EXPECT_EQ(array->values(), left) << index;
    }
    // It returns while the queue is held by somebody else, whose transform still sees the element.
    auto const array = of({7, 8});
    EXPECT_EQ(array->map([&](int element) {
        if (element == 7) array->removeAtIndex(1);
        return element;
    }),
              (std::vector{7, 8}));
    EXPECT_EQ(array->count(), 1);
}

TEST(ThreadsafeArray, FlatMapDropsNothing) {
    auto const array = of({1, 2, 3});
    auto const odd = [](int element) { return element % 2 ? std::optional(element) : std::nullopt; };
    EXPECT_EQ(array->flatMap(odd), (std::vector<std::optional<int>>{1, {}, 3}));
    EXPECT_EQ(array->flatMap(odd), array->map(odd));
}

TEST(ThreadsafeArray, SubscriptReadsWritesAndModifiesThroughItsVirtualSlots) {
    class Hearing : public Integers {
    public:
        void setSlot(std::ptrdiff_t index, int value) override { Integers::setSlot(index, value * 10); }
    };
    auto const array = make<Hearing>(std::vector{1, 2});
    (*array)[0] = 5;
    array->modifySlot(1, [](int& element) { ++element; });
    EXPECT_EQ(array->values(), (std::vector{50, 30}));
    int const read = (*array)[0];
    EXPECT_EQ(read, 50);
}

TEST(ThreadsafeArray, IterationIsLiveAndItsTwoReadsAreApart) {
    auto const array = of({0, 1});
    std::vector<int> seen;
    for (int const element : *array) {
        seen.push_back(element);
        if (element < 5) array->append(element + 2);
    }
    EXPECT_EQ(seen, (std::vector{0, 1, 2, 3, 4, 5, 6}));

    auto generator = array->generate();
    generator.index = 6;
    EXPECT_EQ(generator.next(), 6);
    EXPECT_FALSE(generator.next() || generator.next());
    EXPECT_EQ(generator.index, 7);
    array->append(7);
    EXPECT_EQ(generator.next(), 7);

    class Shrinking : public Integers { // somebody removes the last element between the generator's two reads
        std::ptrdiff_t count() const override {
            auto const before = Integers::count();
            const_cast<Shrinking*>(this)->removeAtIndex(before - 1);
            return before;
        }
    };
    EXPECT_DEATH(make<Shrinking>(std::vector{1})->generate().next(), "ThreadsafeArray.subscript: index 0 of 0 elements");
}

TEST(ThreadsafeArray, IsARangeForTheStandardAlgorithms) {
    auto const array = of({3, 1, 2});
    static_assert(std::ranges::input_range<Integers&>);
    EXPECT_NE(std::ranges::find(*array, 2), array->end());
    auto const large = [](int element) { return element != 1; };
    EXPECT_EQ(std::ranges::count_if(*array | std::views::filter(large), [](int element) { return element < 3; }), 1);
}

TEST(ThreadsafeArray, TheFieldIsReachedPastTheQueue) {
    auto const array = of({1});
    // On the queue any synchronised operation would block; these do not.
    array->map([&](int) {
        EXPECT_EQ(array->array().size(), 1u);
        return Array::from(*array);
    });
    array->modifyArray([](std::vector<int>& elements) { elements.push_back(4); });
    EXPECT_EQ(Array::from(*array), (std::vector{1, 4}));
    array->setArray({});
    EXPECT_EQ(array->count(), 0);
}

TEST(ThreadsafeArray, ThreadsLoseNothing) {
    auto const array = make<Integers>();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 500; ++i) {
                array->append(thread * 500 + i);
                if (i % 5 == 4) array->remove(thread * 500 + i);
                int seen = 0;
                for (auto generator = array->generate(); seen < 3 && generator.next();) ++seen;
            }
        });
    for (auto& thread : threads) thread.join();
    auto values = array->values();
    std::ranges::sort(values);
    EXPECT_EQ(std::ranges::unique(values).begin(), values.end());
    EXPECT_EQ(values.size(), 1600u);
    EXPECT_TRUE(std::ranges::none_of(values, [](int value) { return value % 5 == 4; }));
}

TEST(ThreadsafeArrayDeathTest, MisuseIsFatalAndNamesTheOperation) {
    auto const array = of({1, 2});
    EXPECT_DEATH(array->slot(2), "^ThreadsafeArray.subscript: index 2 of 2 elements\n$");
    EXPECT_DEATH((*array)[-1] = 3, "^ThreadsafeArray.subscript: index -1 of 2 elements\n$");
    EXPECT_DEATH(
        {
            array->removeAtIndex(-1);
            array->count();
        },
        "^ThreadsafeArray.removeAtIndex: index -1 of 2 elements\n$");

    class Unfinished : public Integers {
    public:
        void init(std::vector<int>) override {}
    };
    auto const without = make<Unfinished>(std::vector<int>{});
    EXPECT_DEATH(without->count(), "^ThreadsafeArray.count: there is no queue\n$");
    EXPECT_DEATH(without->removeAtIndex(0), "^ThreadsafeArray.removeAtIndex: there is no queue\n$");
}

TEST(ThreadsafeArrayDeathTest, UsingItInsideItsOwnTransformBlocksForEver) {
    class Open : public Integers {
    public:
        using Integers::queue;
    };
    EXPECT_STREQ(dispatch_queue_get_label(make<Open>()->queue()), "threadsafe_array_queue");
    EXPECT_EXIT(tests::exitIfBlocked([array = of({1})] { array->map([&](int) { return array->count(); }); }),
                testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace Tessarin
