#include "Tessarin/collections/ThreadsafeArray.h"
#include "Tessarin/collections/ThreadsafeDictionary.h"
#include "Tessarin/platform/queues/DispatchSemaphore.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <functional>
#include <map>
#include <ranges>
#include <sstream>
#include <thread>

namespace Tessarin {
namespace {

using Integers = ThreadsafeArray<int>;
using Ages = ThreadsafeDictionary<std::string, int>;
Ref<Integers> of(std::vector<int> elements) { return make<Integers>(std::move(elements)); }

TEST(ThreadsafeArray, RemovingAtAnIndexIsLateAndForgivesOnlyTheUpperBound) {
    for (auto const& [index, left] :
         std::vector<std::pair<std::ptrdiff_t, std::vector<int>>>{{0, {8}}, {1, {7}}, {2, {7, 8}}, {5, {7, 8}}}) {
        auto const array = of({7, 8});
        array->removeAtIndex(index);
        EXPECT_EQ(array->values(), left) << index;
    }
    // It returns while the queue is held by somebody else, whose transform still sees the element.
    auto const array = of({7, 8});
    auto const remember = [&](int element) {
        if (element == 7) array->removeAtIndex(1);
        return std::optional(element);
    };
    EXPECT_EQ(array->flatMap(remember), (std::vector<std::optional<int>>{7, 8}));
    EXPECT_EQ(array->count(), 1);
}

TEST(ThreadsafeArray, SubscriptReadsWritesAndModifiesThroughItsVirtualSlots) {
    class Hearing : public Integers {
    public:
        void setSlot(std::ptrdiff_t index, int value) override { Integers::setSlot(index, value * 10); }
        void setArray(std::vector<int> array) override { Integers::setArray((array.push_back(0), array)); }
    };
    auto const array = make<Hearing>(std::vector{1, 2});
    (*array)[0] = 5;
    (*array)[1] += 1;
    EXPECT_EQ(array->values(), (std::vector{50, 30}));
    std::ostringstream text;
    text << (*array)[0];
    EXPECT_EQ(text.str(), "50");
    EXPECT_TRUE((*array)[0] == 50 && (*array)[0] != (*array)[1]);
    array->modifyArray([](std::vector<int>& elements) { elements.clear(); });
    EXPECT_EQ(array->values(), std::vector{0});
}

TEST(ThreadsafeArray, IterationIsLiveAndItsTwoReadsAreApart) {
    static_assert(std::ranges::input_range<Integers&> && std::ranges::input_range<Ages&>);
    auto const array = of({0, 1});
    std::vector<int> seen;
    for (int const element : *array) {
        seen.push_back(element);
        if (element < 5) array->append(element + 2);
    }
    for (int const element : of({7})) seen.push_back(element); // which nobody else keeps
    EXPECT_EQ(seen, (std::vector{0, 1, 2, 3, 4, 5, 6, 7}));

    auto generator = array->generate();
    generator.index = 6;
    EXPECT_EQ(generator.next(), 6);
    EXPECT_FALSE(generator.next() || generator.next());
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

TEST(ThreadsafeArray, ThreadsLoseNothing) {
    auto const array = of({0});
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([&, thread] {
            for (int i = 1; i <= 500; ++i) {
                auto const own = 10'000 + thread * 500 + i; // never what the first one counts to
                array->append(own);
                if (i % 5 == 0) array->remove(own);
                EXPECT_GE(array->withValues([](std::vector<int>& all) { return ++all[0]; }), 1);
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(array->first(), 2000);
    auto values = array->values();
    std::ranges::sort(values);
    EXPECT_EQ(values.size(), 1601u);
    EXPECT_EQ(std::ranges::count_if(values, [](int value) { return value % 5 == 0; }), 1);
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
    EXPECT_EQ(values[0], keys[0] == "a" ? 1 : 2) << "copies, in the order of the keys";
    EXPECT_EQ(ages->count(), 3);

    // A pair can only be removed past the queue, and then the generator stumbles over it.
    auto stale = ages->generate();
    auto const* const kept = &*ages->dict().find("a");
    ages->modifyDict([](Ages::Pairs& pairs) { std::erase_if(pairs, [](auto const& pair) { return pair.first != "a"; }); });
    EXPECT_EQ(&*ages->dict().find("a"), kept) << "changed in place";
    ages->setDict({});
    EXPECT_DEATH(stale.next(), "^ThreadsafeDictionary.subscript: there is no value under that key\n$");
}

TEST(ThreadsafeDictionary, KeysHaveTheirOwnHashAndEquality) {
    class Name : public NSObject {
    public:
        std::size_t hash() const override { return 1; }
        bool isEqual(NSObject const&) const override { return true; }
    };
    auto const names = make<ThreadsafeDictionary<Ref<NSObject>, int>>();
    for (int const value : {1, 2}) names->setSlot(make<Name>(), value);
    names->setSlot(nullptr, 3);
    EXPECT_EQ(names->count(), 2);
    EXPECT_EQ(names->slot(make<Name>()), 2);
    struct Tens {
        std::size_t operator()(int key) const { return static_cast<std::size_t>(key / 10); }
        bool operator()(int a, int b) const { return a / 10 == b / 10; }
    };
    auto const tens = make<ThreadsafeDictionary<int, std::unique_ptr<int>, Tens, Tens>>();
    for (int const key : {10, 15}) tens->setSlot(key, std::make_unique<int>(key));
    tens->modifySlot(19, [](std::unique_ptr<int>& value) { EXPECT_EQ(*value, 15); });
    EXPECT_EQ(tens->keys(), std::vector{10});
}

TEST(ThreadsafeCollections, WhatAClosureOrACopyThrowsReachesTheCaller) {
    struct Refusing {
        Refusing() = default;
        Refusing(Refusing&&) = default;
        Refusing(Refusing const&) { throw 1; }
        Refusing& operator=(Refusing&&) = default;
    };
    auto const array = make<ThreadsafeArray<Refusing>>();
    auto const dict = make<ThreadsafeDictionary<int, Refusing>>();
    array->append({});
    dict->setSlot(1, {});
    EXPECT_THROW(array->values(), int);
    EXPECT_THROW(array->first(), int);
    EXPECT_THROW(dict->slot(1), int);
    EXPECT_THROW(array->map([](auto const&) -> int { throw 2; }), int);
    EXPECT_THROW(array->withValues([](auto&) { throw 3; }), int);
    EXPECT_EQ(array->count() + dict->count(), 2) << "the queue goes on";

    class Heard : public ThreadsafeArray<std::unique_ptr<int>> {};
    auto const heard = make<Heard>();
    heard->append(std::make_unique<int>(1));
    EXPECT_THROW(heard->withValues([](auto&) { throw 4; }), int);
    EXPECT_EQ(heard->count(), 1) << "nothing is lost";
}

/// Asks its home something at its end, which may be inside a call of that home.
struct Asking {
    explicit Asking(std::function<void()> question) : ask(std::move(question)) {}
    ~Asking() { ask(); }
    std::function<void()> ask;
};

TEST(ThreadsafeCollections, AnElementEndsWhenTheCallHasLeftTheQueue) {
    auto const array = make<ThreadsafeArray<std::unique_ptr<Asking>>>(); // which cannot be copied, either
    auto const dict = make<ThreadsafeDictionary<int, Ref<Asking>>>();
    auto const ended = dispatch_semaphore_create(0);
    auto const asking = [&] {
        return std::make_unique<Asking>([=, &array = *array, &dict = *dict] { // not kept: a circle
            EXPECT_GE(array.count() + dict.count(), 0);
            dispatch_semaphore_signal(ended);
        });
    };
    for (int i = 0; i < 3; ++i) array->append(asking());
    array->setSlot(0, asking());
    array->withValues([&](auto& all) { all.push_back(std::move(all[1])); }); // [1] is null now
    auto const null = std::unique_ptr<Asking>();
    array->remove(null);
    array->removeAtIndex(0);
    for (int i = 0; i < 2; ++i) dict->setSlot(1, asking());
    for (int i = 0; i < 3; ++i) // replaced in the array, removed from it, replaced in the dictionary
        ASSERT_EQ(dispatch_semaphore_wait(ended, dispatch_time(DISPATCH_TIME_NOW, 10 * NSEC_PER_SEC)), 0);
    EXPECT_EQ(array->count(), 2);
    array->withValues([](auto& all) { for (auto& each : all) each->ask = [] {}; });
    dict->slot(1)->ask = [] {};
}

TEST(ThreadsafeCollectionsDeathTest, MisuseIsFatalAndNamesTheOperation) {
    auto const array = of({1, 2});
    EXPECT_DEATH(array->slot(2), "^ThreadsafeArray.subscript: index 2 of 2 elements\n$");
    EXPECT_DEATH((*array)[-1] = 3, "^ThreadsafeArray.subscript: index -1 of 2 elements\n$");
    EXPECT_DEATH((array->removeAtIndex(-1), array->count()), "^ThreadsafeArray.removeAtIndex: index -1 of 2 elements\n$");
    struct Unfinished : Integers {
        void init(std::vector<int>) override {}
    };
    auto const without = make<Unfinished>(std::vector<int>{});
    EXPECT_DEATH(without->count(), "^ThreadsafeArray.count: there is no queue\n$");
    EXPECT_DEATH(without->removeAtIndex(0), "^ThreadsafeArray.removeAtIndex: there is no queue\n$");
}

} // namespace
} // namespace Tessarin
