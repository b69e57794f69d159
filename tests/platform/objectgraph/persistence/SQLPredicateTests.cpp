// What a store answers in SQL is what its objects say of themselves.
#include "Tessarin/platform/foundation/predicates/NSPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/foundation/values/NSUUID.h"
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSPersistentStore.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreQueryPrivate.h"
#include "tests/support/Contexts.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <random>

namespace Tessarin::tests {
namespace {

using Keys = std::vector<RecordKey>;

/// Random records in a file: their objects are the judge of every query.
class SQLPredicate : public testing::Test {
protected:
    static Ref<NSManagedObjectModel> model() {
        return ModelBuilder()
            .entity("Animal")
            .attribute("name", NSAttributeType::String, {.indexed = true})
            .attribute("age", NSAttributeType::Integer32)
            .attribute("weight", NSAttributeType::Double)
            .attribute("ratio", NSAttributeType::Float)
            .attribute("tame", NSAttributeType::Boolean)
            .attribute("born", NSAttributeType::Date)
            .attribute("cost", NSAttributeType::Decimal)
            .attribute("page", NSAttributeType::URI)
            .attribute("chip", NSAttributeType::UUID)
            .attribute("note", NSAttributeType::String, {.transient = true})
            .toOne("keeper", "Keeper", {.inverse = "animals"})
            .toMany("foods", "Food", {.inverse = "eaters"})
            .entity("Dog", {.parent = "Animal"})
            .attribute("breed", NSAttributeType::String)
            .entity("Keeper")
            .attribute("name", NSAttributeType::String)
            .toOne("boss", "Keeper", {.inverse = "staff"})
            .toMany("staff", "Keeper", {.inverse = "boss"})
            .toMany("animals", "Animal", {.inverse = "keeper"})
            .entity("Food")
            .attribute("name", NSAttributeType::String)
            .attribute("price", NSAttributeType::Double)
            .toMany("eaters", "Animal", {.inverse = "foods"})
            .build();
    }

    void SetUp() override {
        for (int at = 0; at < 12; ++at) {
            auto values = text("name");
            if (at > 0 && one(3)) values.set("boss", object("Keeper"));
            inserted(*context, "Keeper", values);
        }
        for (int at = 0; at < 20; ++at) {
            auto values = text("name");
            if (one(4)) values.set("price", number());
            inserted(*context, "Food", values);
        }
        auto const foods = fetched(*context, "Food");
        for (int at = 0; at < 150; ++at) {
            auto const eater = inserted(*context, one(3) ? "Dog" : "Animal", animal());
            if (eater->entity().name() == "Dog" && one(2)) eater->setValueForKey(word(), "breed");
            for (auto const& food : foods)
                if (one(10)) eater->mutableSetValueForKey("foods").addObject(food);
        }
        ASSERT_TRUE(saves(*context));
    }

    // Few different values, so that conditions meet records.
    bool one(unsigned in) { return below(in) == 0; }
    std::size_t below(std::size_t bound) { return random() % bound; }
    Value number() { return one(3) ? Value(static_cast<std::int64_t>(below(6))) : Value(static_cast<double>(below(12)) / 2); }
    Value word() {
        static char const* const words[] = {"",        "a", "A",       "ab",    "Äb",   "äB", "Straße",
                                            "STRASSE", "é", "e\u0301", "b%_*?", "日本", "ba", "\xF0\x9F\x90\xB6"};
        return words[below(std::size(words))];
    }
    Dictionary text(char const* name) { return one(6) ? Dictionary() : Dictionary{{name, word()}}; }
    Dictionary animal() {
        auto values = text("name");
        if (!one(6)) values.set("age", static_cast<std::int64_t>(below(8)) - 2);
        if (!one(6)) values.set("weight", static_cast<double>(below(12)) / 2);
        if (!one(6)) values.set("ratio", static_cast<float>(below(4)) / 10);
        if (!one(6)) values.set("tame", one(2));
        if (!one(6)) values.set("born", Value::date(static_cast<double>(below(5)) - 2.5));
        if (!one(6)) values.set("cost", Decimal::fromText(std::to_string(below(15)) + "." + std::to_string(below(3))));
        if (!one(6)) values.set("page", Value::url("https://example.org/" + std::to_string(below(3))));
        if (!one(6)) values.set("chip", Value::uuid({static_cast<std::uint8_t>(below(3))}));
        if (!one(5)) values.set("keeper", object("Keeper"));
        return values;
    }

    Value object(char const* entity) {
        auto const all = fetched(*context, entity);
        return all[below(all.size())];
    }

    StoreAnswer ask(char const* entity, Ref<NSPredicate> const& predicate, std::vector<Ref<NSSortDescriptor>> const& order = {},
                    std::size_t limit = 0, std::size_t offset = 0) {
        StoreAnswer answer;
        auto const failure = store.fetch({.entity = coordinator->managedObjectModel()->entityNamed(entity),
                                          .predicate = predicate.get(),
                                          .sortDescriptors = order,
                                          .limit = limit,
                                          .offset = offset},
                                         answer);
        EXPECT_FALSE(failure) << failure->description() << "\n" << predicate->description();
        return answer;
    }
    static Keys keysOf(StoreAnswer const& answer) {
        Keys keys;
        for (auto const& row : answer.rows) keys.push_back(row->key());
        return keys;
    }
    static Keys keysOf(List const& objects) {
        Keys keys;
        for (auto const& object : objects) keys.push_back(object.objectAs<NSManagedObject>()->recordKey());
        return keys;
    }
    /// The records that the objects say, in order of their keys.
    List judged(char const* entity, NSPredicate const& predicate) {
        List found;
        for (auto const& object : fetched(*context, entity))
            if (predicate.evaluateWithObject(object)) found.push_back(object);
        return found;
    }
    void expectSame(char const* entity, Ref<NSPredicate> const& predicate) {
        auto const answer = ask(entity, predicate);
        auto found = keysOf(answer);
        std::ranges::sort(found);
        EXPECT_TRUE(answer.complete) << predicate->description();
        EXPECT_EQ(found, keysOf(judged(entity, *predicate))) << predicate->description();
        EXPECT_EQ(context->count(entity, predicate), static_cast<std::int64_t>(found.size())) << predicate->description();
    }

    TemporaryFolder folder;
    Ref<NSPersistentStoreCoordinator> coordinator = coordinatorOver(model(), NSSQLiteStoreType, folder.url("zoo.db"));
    NSPersistentStore& store = *coordinator->store();
    Ref<NSManagedObjectContext> context = contextOver(coordinator);
    std::mt19937 random{20260107};
};

TEST_F(SQLPredicate, EachFormAnswersAsInMemory) {
    auto const expectEach = [&](std::vector<char const*> const& formats, List const& arguments = {}) {
        for (auto const* format : formats)
            for (auto const* entity : {"Animal", "Dog"})
                expectSame(entity, NSPredicate::predicateWithFormatArguments(format, arguments));
    };
    expectEach({"name == 'a'", "name != 'a'", "NOT name == 'a'", "name == nil", "name != nil", "'a' == name",
                "name ==[c] 'STRASSE'", "name !=[cd] 'ab'", "name ==[d] 'e'", "name <[c] 'B'", "name IN {'a', 'ab', 'nix'}",
                "name IN[cd] {'A', 'E'}", "name IN 'xaby'", "ANY name == 'a'"});
    expectEach({"name LIKE '*b'", "name LIKE[c] '?b'", "name LIKE 'b%_\\\\*\\\\?'", "name LIKE '*%*'", "name MATCHES '[a-z]+'",
                "name MATCHES[c] 'A.?'", "name CONTAINS 'b'", "name CONTAINS[cd] 'AB'", "name CONTAINS ''",
                "NOT name CONTAINS 'b'", "name BEGINSWITH 'a'", "name BEGINSWITH ''", "name BEGINSWITH[cd] 'A'",
                "name ENDSWITH 'b'", "name ENDSWITH '\u0301'", "name ENDSWITH[c] 'B'"});
    expectEach({"age < 3", "NOT age < 3", "3 >= age", "age < nil", "age == 2.0", "age < 1.5", "age != 'a'", "age == 'a'",
                "age BETWEEN {0, 3}", "NOT age BETWEEN {0, 3}", "age == weight", "age != weight", "age > weight"});
    expectEach({"ratio == 0.1", "ratio > 0.1", "tame == YES", "tame != YES", "tame == 0", "tame == nil OR tame == NO",
                "born == 0", "cost < 10", "page == 'https://example.org/1'", "TRUEPREDICATE", "FALSEPREDICATE",
                "NOT (age > 1 AND NOT (tame == YES OR name == nil))"});
    expectEach({"name == keeper.name", "keeper == nil", "keeper == 3", "keeper.name == 'a'", "keeper.name != 'a'",
                "keeper.name == nil", "keeper.boss.name CONTAINS[c] 'A'", "NOT keeper.boss.name == nil",
                "keeper.name < keeper.boss.name", "ANY keeper.staff.name == 'a'", "ALL keeper.name == 'a'"});
    expectEach({"ANY foods.name == 'a'", "ANY foods.name != 'a'", "ALL foods.name != 'a'", "ALL foods.price > 1",
                "NONE foods.name BEGINSWITH 'a'", "ANY foods.name IN {'a', 'ab'}", "foods.name CONTAINS 'a'"});
    expectEach({"foods.@count == 0", "foods.@count > 1", "keeper.animals.@count > 12", "keeper.animals.@count == 0",
                "foods.@count == age"});
    expectEach({"keeper == %@", "keeper != %@", "%@ == keeper", "keeper.boss == %@"}, {object("Keeper")});
    expectEach({"ANY foods == %@", "foods CONTAINS %@", "%@ IN foods", "NONE foods == %@", "NOT foods CONTAINS %@"},
               {object("Food")});
    expectEach({"SELF == %@", "ANY keeper.animals == %@"}, {object("Animal")});
    expectEach({"chip == %@", "chip != %@"}, {Value::uuid({1})});
    List ages;
    for (int at = 0; at < 5000; ++at) ages.push_back(at * 3);
    expectEach({"age IN %@", "NOT age IN %@"}, {Value(ages)});
    std::vector<std::pair<char const*, Value>> const table{
        {"name BEGINSWITH %@", "\xF0\x9F"}, {"name IN %@", List{}}, {"NOT name IN %@", List{"a", nullptr}},
        {"age IN %@", List{1, 2.0, true, "x", nullptr}}, {"weight BETWEEN %@", List{1, 2.5}},
        {"age == %@", Decimal::fromText("2")}, {"weight >= %@", Decimal::fromText("2.5")}, {"ratio == %@", 0.1F},
        {"born < %@", Value::date(0)}, {"born == %@", Value::date(-0.5)}, {"born != %@", Value::date(0.5)},
        {"cost == %@", Decimal::fromText("10")}, {"cost >= %@", Decimal::fromText("9.1")},
        {"cost IN %@", List{1, Decimal::fromText("2.10")}}, {"page == %@", Value::url("https://example.org/1")},
        {"keeper IN %@", List{object("Keeper"), object("Keeper")}},
        {"SELF IN %@", List{object("Animal"), object("Animal")}}};
    for (auto const& [format, argument] : table) expectEach({format}, {argument});
    expectSame("Keeper", where("ANY animals.age > 3 AND staff.@count < 2"));
    expectSame("Dog", where("breed == nil OR breed ENDSWITH 'b'"));
}

TEST_F(SQLPredicate, OrderLimitAndOffsetAreTheStoresWhereItCanSayThem) {
    std::vector<std::vector<Ref<NSSortDescriptor>>> const orders{
        {by("name")},
        {by("name", {.ascending = false, .comparison = TextComparison::CaseInsensitive}), by("age")},
        {by("keeper.name", {.comparison = TextComparison::Localized}), by("cost", {.ascending = false})},
        {by("tame"), by("born")},
        {by("foods.@count", {.ascending = false})},
    };
    auto const predicate = where("age > 0");
    for (auto const& order : orders) {
        auto expected = keysOf(sortedArrayUsingDescriptors(judged("Animal", *predicate), order));
        expected.erase(expected.begin(), expected.begin() + 3);
        expected.resize(20);
        auto const answer = ask("Animal", predicate, order, 20, 3);
        EXPECT_TRUE(answer.complete);
        EXPECT_EQ(keysOf(answer), expected) << order[0]->description();
    }
}

TEST_F(SQLPredicate, ARequestLikeAnEarlierOneIsAnsweredForWhatItAsks) {
    std::vector<Ref<NSSortDescriptor>> const orders[] = {{}, {by("name")}, {by("name", {.ascending = false})}, {by("keeper.name")}};
    auto const operand = [&]() -> Value {
        switch (below(6)) {
        case 0: return {};
        case 1: return one(2);
        case 2: return Value::date(static_cast<double>(below(5)) - 2.5);
        case 3: return Decimal::fromText("2");
        case 4: return number();
        default: return word();
        }
    };
    char const* const paths[] = {"name", "age", "weight", "born", "cost", "keeper.name", "foods.@count"};
    char const* const signs[] = {"==", "!=", "<", ">="};
    auto const forget = [&] { // the connection keeps no more statements than these
        for (std::size_t count = 1; count <= 60; ++count)
            for (std::size_t cut = 0; cut < 4; ++cut) ask("Animal", where("age IN %@", List(count, 1)), {}, cut / 2, cut % 2);
    };
    for (int round = 0; round < 150; ++round) {
        auto const comparison = [&] { return std::string(paths[below(std::size(paths))]) + signs[below(std::size(signs))] + "%@"; };
        bool const isPair = one(4);
        auto const format = isPair ? comparison() + " AND " + comparison() : comparison();
        auto const* const entity = one(3) ? "Dog" : "Animal";
        auto const& order = orders[below(std::size(orders))];
        for (int again = 0; again < 5; ++again) {
            auto const limit = below(3), offset = below(2);
            auto const predicate = NSPredicate::predicateWithFormatArguments(format, List(isPair ? 2 : 1, operand()));
            auto expected = keysOf(sortedArrayUsingDescriptors(judged(entity, *predicate), order));
            expected.erase(expected.begin(), expected.begin() + static_cast<std::ptrdiff_t>(std::min(offset, expected.size())));
            if (limit != 0 && expected.size() > limit) expected.resize(limit);
            EXPECT_EQ(keysOf(ask(entity, predicate, order, limit, offset)), expected) << predicate->description();
            if (one(60)) forget();
        }
    }
}

TEST_F(SQLPredicate, WhatSQLCannotSayLeavesTheRestToTheStore) {
    // Transient attributes are not in the file; the other condition is applied, limit and order are not.
    auto const answer = ask("Animal", where("age > 2 AND note == nil"),
                            {NSSortDescriptor::sortDescriptorWithKey("name")}, 1);
    EXPECT_FALSE(answer.complete);
    EXPECT_EQ(keysOf(answer), keysOf(judged("Animal", *where("age > 2"))));
    for (auto const* format : {"note == 'x' OR age == 1", "name == page", "keeper.nothing == 1", "foods.@sum.price > 1"}) {
        auto const predicate = NSPredicate::parse(format);
        ASSERT_TRUE(predicate) << format;
        EXPECT_FALSE(ask("Animal", predicate).complete) << format;
    }
    // Any length: SQLite limits how deep expressions nest.
    std::string many = "age == -1";
    for (int at = 0; at < 1500; ++at) many += " OR age == " + std::to_string(at * 2);
    expectSame("Animal", where(many.c_str()));
    auto const counted = where("SELF IN %@", List{1, 2});
    EXPECT_TRUE(ask("Animal", counted).rows.empty());
}

} // namespace
} // namespace Tessarin::tests
