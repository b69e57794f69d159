#include "Tessarin/collections/Array.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <map>

namespace Tessarin {
namespace {

class Animal : public NSObject {
public:
    bool isEqual(NSObject const&) const override { return true; } // of whatever class
};
class Cat : public Animal {};

TEST(Array, FindsByTypeFirstAndThenByEquality) {
    std::vector<int> const numbers{1, 2, 3, 2};
    EXPECT_EQ(Array::indexOf(numbers, 2), 1);
    EXPECT_EQ(Array::indexOf(numbers, 2L), 1);
    EXPECT_EQ(Array::indexOf(numbers, "2"), std::nullopt);
    EXPECT_EQ(Array::indexOf(std::vector<unsigned>{0xFFFFFFFF}, -1), std::nullopt);
    EXPECT_EQ(Array::indexOf(std::vector<double>{2}, 2), std::nullopt);
    EXPECT_EQ(Array::indexOf(std::vector<std::string>{"a", "b"}, "b"), 1);
    EXPECT_TRUE(Array::contains(numbers, 3));
    EXPECT_FALSE(Array::contains(std::vector<int>{}, 3));

    auto const animal = make<Animal>();
    auto const cat = make<Cat>();
    std::vector<Ref<NSObject>> const objects{nullptr, animal, cat};
    EXPECT_EQ(Array::indexOf(objects, cat), 2) << "the first is equal, but no Cat";
    EXPECT_EQ(Array::indexOf(objects, animal), 1);
    EXPECT_EQ(Array::indexOf(List{animal, cat}, cat), 1);
}

TEST(Array, TakesAnyTypeThatCanBeCompared) {
    struct Plain {
        bool operator==(Plain const&) const = default;
    };
    struct Shape {
        virtual ~Shape() = default;
    };
    struct Named {
        virtual ~Named() = default;
    };
    struct Circle : Shape, Named {};
    auto const circle = std::make_shared<Circle>();
    std::vector<std::shared_ptr<Shape>> const shapes{std::make_shared<Shape>(), circle, nullptr};
    EXPECT_EQ(Array::indexOf(shapes, circle), 1);
    EXPECT_EQ(Array::indexOf(shapes, std::shared_ptr<Named>(circle)), 1);
    EXPECT_EQ(Array::indexOf(shapes, std::shared_ptr<Circle>()), 2);
    EXPECT_EQ(Array::indexOf(std::vector{circle}, shapes[1]), 0);
    auto const number = std::make_shared<int>(1);
    EXPECT_TRUE(Array::contains(std::vector{number}, number));
    EXPECT_FALSE(Array::contains(shapes, number) || Array::contains(shapes, 1) || Array::contains(shapes, Plain{}));
    List list{1, "a"};
    EXPECT_FALSE(Array::contains(list, Plain{}) || Array::contains(list, number));
    EXPECT_EQ(Array::remove(list, number).size(), 2u);
}

TEST(Array, RemovesTheFirstMatchOfAMixedList) {
    List mixed{1, "a", 2, "a"};
    EXPECT_EQ(Array::indexOf(mixed, 2), 2);
    EXPECT_EQ(Array::indexOf(mixed, "2"), std::nullopt);
    EXPECT_EQ(&Array::remove(mixed, "a"), &mixed);
    EXPECT_EQ(mixed, (List{1, 2, "a"}));
    EXPECT_EQ(Array::remove(mixed, "b"), (List{1, 2, "a"}));
}

TEST(Array, SafeAccessTestsOnlyTheUpperBoundAndAnyTakesTheNextNumberOfTheCLibrary) {
    std::vector<int> const values{0, 1, 2, 3, 4, 5, 6}, none;
    EXPECT_EQ(Array::safe(values, 6), 6);
    EXPECT_EQ(Array::safe(values, 7), std::nullopt);
    EXPECT_EQ(Array::safe(none, 0), std::nullopt);
    EXPECT_DEATH(Array::safe(values, -1), "out of range");
    std::srand(3);
    std::vector<int> expected;
    for (int i = 0; i < 20; ++i) expected.push_back(std::rand() % 7);
    std::srand(3);
    for (int const each : expected) EXPECT_EQ(Array::any(values), each);
    EXPECT_EQ(Array::any(none), std::nullopt);
}

TEST(Array, ShufflesWithEveryOrderEquallyLikely) {
    std::vector<int> const values{1, 2, 3};
    std::map<std::vector<int>, int> seen;
    for (int i = 0; i < 6000; ++i) ++seen[Array::shuffled(values)];
    EXPECT_EQ(seen.size(), 6u);
    for (auto const& [order, count] : seen) EXPECT_NEAR(count, 1000, 230); // eight standard deviations
    EXPECT_EQ(values, (std::vector{1, 2, 3}));
    EXPECT_EQ(Array::shuffled(std::vector{7}), std::vector{7});
    EXPECT_DEATH(Array::shuffled(std::vector<int>{}), "empty array");
}

} // namespace
} // namespace Tessarin
