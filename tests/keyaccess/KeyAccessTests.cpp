#include "Tessarin/keyaccess/KVC.h"
#include "Tessarin/platform/foundation/files/NSURL.h"
#include "Tessarin/platform/foundation/time/NSDate.h"
#include "Tessarin/platform/foundation/values/NSUUID.h"
#include "Tessarin/platform/runtime/NSObject.h"

#include <array>
#include <gtest/gtest.h>
#include <any>
#include <map>
#include <unordered_map>

namespace Tessarin {
namespace {

struct City {
    std::string name;
    int people = 0;
};
struct Address {
    City city;
    std::string name = "home";
};
struct Person : KVC<Person> {
    std::string name;
    int born = 0;
    std::optional<double> height;
    Address address;
    std::unique_ptr<Person> spouse;
    std::map<std::string, City> places;
    Value notes;
};

Person emma() {
    Person emma{.name = "Emma", .born = 1815, .address = {.city = {.name = "Highbury", .people = 700}}};
    emma.spouse = std::make_unique<Person>(Person{.name = "George", .born = 1778});
    emma.places["Box Hill"] = {.name = "Box Hill", .people = 0};
    emma.notes = Dictionary{{"rich", true}, {"pounds", 30000}, {"friends", Value(List{"Harriet"})}};
    return emma;
}

template <class T> std::string labels(T const& value) {
    std::string text;
    forEachChild(value,
                 [&](std::optional<std::string_view> label, auto const&) { text += std::string(label.value_or("-")) + " "; });
    return text;
}

TEST(KeyAccess, ANumberThatDoesNotFitIsAbsent) {
    Dictionary const numbers{{"most", 127}, {"more", 128}, {"wrapped", 300}, {"negative", -1}};
    EXPECT_EQ(valueForKey<std::int8_t>(numbers, "most"), 127);
    for (auto const* key : {"more", "wrapped"}) EXPECT_EQ(valueForKey<std::int8_t>(numbers, key), std::nullopt) << key;
    EXPECT_EQ(valueForKey<std::uint32_t>(numbers, "negative"), std::nullopt);
    EXPECT_EQ(valueForKey<std::uint16_t>(numbers, "wrapped"), 300);
}

TEST(KeyPath, EndsWhereAComponentReadsLikeTheLastOne) {
    struct Inner {
        int a = 2, b = 3;
    };
    struct Outer {
        int a = 1;
        Inner inner;
        int b = 4;
    } const outer;
    struct Same {
        Outer a;
    } const same;
    EXPECT_EQ(valueForKeyPath<int>(outer, "a.b.a"), 1) << "texts count, not places";
    EXPECT_EQ(valueForKeyPath<int>(same, "a.inner.a"), std::nullopt) << "the first a ends it, and is no int";
    EXPECT_EQ(valueForKeyPath<Inner>(outer, "inner.a.inner")->b, 3);
    EXPECT_EQ(valueForKeyPath<int>(outer, "a.b"), std::nullopt) << "an int has no children";
}

TEST(KeyPath, LeavesOutWhatItDoesNotFind) {
    auto const person = emma();
    for (auto const* path : {"x.name", "x.y.name", ".name", "..name", "name", "x..name"})
        EXPECT_EQ(person.valueForKeyPath<std::string>(path), "Emma") << path;
    EXPECT_EQ(person.valueForKeyPath<std::string>("address.x.name"), "home");
    EXPECT_EQ(person.valueForKeyPath<std::string>("address..city.x.name"), "Highbury");
    for (auto const* path : {"", ".", "name.", "address.name.", "address.city.", "x", "address.x"})
        EXPECT_EQ(person.valueForKeyPath<std::string>(path), std::nullopt) << path;
    std::map<std::string, int> const nameless{{"", 7}};
    EXPECT_EQ(valueForKeyPath<int>(nameless, ""), 7) << "a child that is called by the empty text";
    EXPECT_EQ(valueForKeyPath<int>(nameless, "x."), 7);
}

TEST(KeyPath, GoesThroughEverythingThatHasChildren) {
    auto const person = emma();
    EXPECT_EQ(person.valueForKeyPath<int>("address.city.people"), 700);
    EXPECT_EQ(person.valueForKeyPath<std::string>("spouse.name"), "George");
    EXPECT_EQ(person.valueForKeyPath<std::string>("spouse.spouse.name"), std::nullopt) << "null has no children";
    EXPECT_EQ(person.valueForKeyPath<std::string>("places.Box Hill.name"), "Box Hill");
    EXPECT_EQ(person.valueForKeyPath<long>("notes.pounds"), 30000);
    EXPECT_EQ(valueForKeyPath<std::string>(std::make_shared<Person const>(emma()), "spouse.name"), "George");
    EXPECT_EQ(valueForKeyPath<int>(std::optional(std::map<Text, City>{{"a", {"A", 5}}}), "a.people"), 5);
}

struct Angle { // no aggregate
    explicit Angle(double degrees) : degrees_(degrees) {}
    template <class Visitor> void reflect(Visitor&& child) const {
        child("degrees", degrees_);
        child(std::nullopt, 1.5);
        child("text", std::to_string(static_cast<int>(degrees_)) + " degrees, which is too long to be kept inside a text");
        child("degrees", std::string("a later one"));
    }

private:
    double degrees_;
};
struct Masked { // an aggregate, but what it says itself comes first
    int secret = 1;
};
template <class Visitor> void reflect(Masked const& masked, Visitor&& child) { child("shown", masked.secret + 1); }
struct Polygon {
    Angle first{90};
    Masked masked;
};

TEST(KeyAccess, ATypesOwnReflectComesFirst) {
    Polygon const polygon;
    EXPECT_EQ(labels(polygon.first), "degrees - text degrees ");
    EXPECT_EQ(valueForKey<double>(polygon.first, "degrees"), 90);
    EXPECT_EQ(valueForKey<std::string>(polygon.first, "degrees"), std::nullopt) << "the first of that label decides";
    EXPECT_EQ(valueForKeyPath<std::string>(polygon, "first.text")->substr(0, 10), "90 degrees");
    EXPECT_EQ(labels(polygon.masked), "shown ");
    EXPECT_EQ(valueForKeyPath<int>(polygon, "masked.shown"), 2);
    EXPECT_EQ(valueForKeyPath<int>(polygon, "masked.secret"), std::nullopt);
}

struct Unusual : KVC<Unusual> {
    struct Unmade {
        explicit Unmade(int) {}
    };
    char zip[200];
    Unmade unmade;
    int const grid[2][3];
    std::unique_ptr<int> moved;
    std::array<int, 4> array;
    std::optional<std::string> maybe;
    Closure<void()> closure;
    NSDate date;
};
struct ManyFields {
    int a0, a1, a2, a3, a4, a5, a6, a7, a8, a9, b0, b1, b2, b3, b4, b5, b6, b7, b8, b9, c0, c1, c2, c3, c4, c5, c6, c7, c8, c9,
        d0, d1, d2, d3, d4, d5, d6, d7, d8, d9;
};
struct TooMany {
    ManyFields many;
    int fields[2];
    ManyFields const& reference;
};
struct Derived : City {};
struct Extended : City {
    int more;
};
struct Bits {
    int bit : 1;
};

TEST(KeyAccess, FieldsAreCountedAndNamed) {
    EXPECT_EQ(labels(emma()), "name born height address spouse places notes ");
    static_assert(reflection::countOfFields<Unusual>() == 8);
    EXPECT_EQ((reflection::fieldNames<Unusual, 8>[3]), "moved");
    ManyFields many{};
    many.a9 = 9, many.d9 = 39;
    EXPECT_EQ(valueForKey<int>(many, "a9"), 9);
    EXPECT_EQ(valueForKey<int>(many, "d9"), 39);
    EXPECT_EQ(labels(Derived{}), "") << "inherited fields are not looked at";
    EXPECT_EQ(labels(std::vector<City>(2)), "- - ");
    EXPECT_EQ(labels(Value(List{1, 2})), "- - ");
    static_assert(!Reflectable<int> && !Reflectable<std::string> && !Reflectable<NSDate> && !Reflectable<Extended> &&
                  !Reflectable<Bits> && !Reflectable<TooMany> && !Reflectable<char[4]>);
    struct Holder {
        Extended extended;
        Bits bits;
    } holder{};
    EXPECT_EQ(valueForKeyPath<int>(holder, "extended.more"), std::nullopt) << "as a child it has none, and does no harm";
}

TEST(KeyAccess, MapsFindTheirKeysByTheText) {
    struct CaseBlind {
        bool operator()(std::string const& a, std::string const& b) const { return std::tolower(a[0]) < std::tolower(b[0]); }
    };
    EXPECT_EQ(valueForKey<int>(std::map<std::string, int, CaseBlind>{{"a", 1}}, "A"), std::nullopt)
        << "labels are compared plainly";
    EXPECT_EQ(valueForKey<int>(std::unordered_map<std::string, int>{{"a", 1}, {"b", 2}}, "b"), 2);
    EXPECT_EQ(valueForKey<int>(std::multimap<std::string, int>{{"a", 1}, {"a", 2}}, "a"), 1);
    EXPECT_EQ(valueForKey<int>(std::vector<std::pair<char const*, int>>{{"a", 1}, {nullptr, 3}, {"a", 2}}, "a"), 1);
    EXPECT_EQ(valueForKey<long>(ValueDictionary{{1, 2}, {"a", 3}}, "a"), 3);
    EXPECT_EQ(valueForKey<int>(std::map<int, int>{{1, 2}}, "1"), std::nullopt) << "no text, no label";
}

struct Animal : NSObject {};
struct Dog : Animal {};

TEST(KeyAccess, ConversionsFailWithoutAWord) {
    auto const person = emma();
    EXPECT_EQ(person.valueForKey<std::string>("born"), std::nullopt);
    EXPECT_EQ(person.valueForKey<long>("born"), std::nullopt) << "an int is no long";
    EXPECT_EQ(person.valueForKey<int>("Born"), std::nullopt);
    EXPECT_EQ(convertedTo<double>(std::optional<double>()), std::nullopt);
    EXPECT_EQ(convertedTo<double>(std::optional(1.5)), 1.5);
    EXPECT_EQ(convertedTo<std::optional<double>>(std::optional<double>()), std::make_optional(std::optional<double>()));
    EXPECT_EQ(convertedTo<std::optional<int>>(3), std::make_optional(std::optional(3)));
    EXPECT_EQ(convertedTo<std::optional<int>>(3.0), std::nullopt);
    EXPECT_EQ(convertedTo<std::optional<int>>(std::optional<double>()), std::make_optional(std::optional<int>()));
    EXPECT_EQ(convertedTo<std::string>(Text("a")), "a");
    EXPECT_EQ(convertedTo<Text>("a"), Text("a"));
    char const full[3]{'a', 'b', 'c'};
    EXPECT_EQ(convertedTo<std::string>(full), "abc");
    EXPECT_EQ(convertedTo<std::string>(static_cast<char const*>(nullptr)), std::nullopt);
    EXPECT_EQ(convertedTo<double>(Value(3)), 3.0) << "number objects are read as any number";
    EXPECT_EQ(convertedTo<int>(Value(3.0)), std::nullopt) << "but for a double as an integer";
    EXPECT_EQ(convertedTo<City*>(static_cast<City*>(nullptr)), std::nullopt);
    EXPECT_FALSE(convertedTo<City>(Value(3)));
    EXPECT_EQ(convertedTo<Value>(std::string("a")), Value("a"));
    EXPECT_EQ(convertedTo<Value>(Value()), std::nullopt);
    EXPECT_EQ(convertedTo<int>(std::any(3)), 3);
    EXPECT_EQ(convertedTo<NSURL>(Value::url("https://example.org/a")), NSURL::URLWithString("https://example.org/a"));

    Ref<Animal> const dog = make<Dog>(), cat = make<Animal>();
    EXPECT_EQ(convertedTo<Ref<Dog>>(dog), std::optional(std::static_pointer_cast<Dog>(dog)));
    EXPECT_EQ(convertedTo<Ref<Dog>>(cat), std::nullopt);
    EXPECT_EQ(convertedTo<Ref<NSObject>>(dog), std::optional<Ref<NSObject>>(dog));
    EXPECT_EQ(convertedTo<Ref<Dog>>(Value(dog)), std::optional(std::static_pointer_cast<Dog>(dog)));
    EXPECT_EQ(convertedTo<Ref<Dog>>(Ref<Dog>()), std::nullopt) << "null is nothing";
}

} // namespace
} // namespace Tessarin
