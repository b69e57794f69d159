#include "StoreFixture.h"
#include "Tessarin/platform/foundation/predicates/NSPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/foundation/values/NSUUID.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSManagedObjectID.h"

#include <map>
#include <random>

namespace Tessarin::tests {
namespace {

/// A record as predicates see it in memory, read back from the same store.
class Record : public IdentifiedObject {
public:
    RecordKey recordKey() const override { return key; }
    IdentityTable const& identityTable() const override { return *table; }
    Value valueForKey(std::string_view name) override { return values[name]; }
    bool isEqual(NSObject const& other) const override {
        auto const* record = dynamic_cast<Record const*>(&other);
        return record && record->key == key;
    }
    std::size_t hash() const override { return static_cast<std::size_t>(key); }

    RecordKey key = 0;
    IdentityTable const* table = nullptr;
    Dictionary values;
};

/// Random records, in a store and as plain objects: the objects are the judge of every query.
class SQLPredicate : public testing::Test {
protected:
    static constexpr int animalCount = 150, keeperCount = 12, foodCount = 20;

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
        ASSERT_TRUE(open.store) << open.error->description();
        std::vector<RecordChange> changes;
        for (int at = 0; at < keeperCount; ++at) {
            auto values = text("name");
            auto const earlier = keys("Keeper");
            if (at > 0 && one(3)) values.set("boss", earlier[below(earlier.size())]);
            add(changes, "Keeper", std::move(values));
        }
        for (int at = 0; at < foodCount; ++at) {
            auto values = text("name");
            if (one(4)) values.set("price", number());
            add(changes, "Food", std::move(values));
        }
        for (int at = 0; at < animalCount; ++at) add(changes, one(3) ? "Dog" : "Animal", animal());
        for (auto& change : changes) {
            if (!change.entity->propertyNamed("foods")) continue;
            std::vector<RecordKey> eaten;
            for (auto const food : keys("Food"))
                if (one(10)) eaten.push_back(food);
            connect(change.key, eaten);
            if (!eaten.empty()) change.relationships = {open.links("Animal", "foods", eaten)};
        }
        auto const failure = open.save(std::move(changes));
        ASSERT_FALSE(failure) << failure->description();
    }

    void TearDown() override { // records refer to each other in circles
        for (auto const& [key, record] : records) record->values = {};
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
        if (!one(5)) values.set("keeper", keys("Keeper")[below(keeperCount)]);
        return values;
    }

    void add(std::vector<RecordChange>& changes, char const* entity, Dictionary values) {
        auto const key = open.newKey();
        if (std::string_view(entity) == "Dog" && one(2)) values.set("breed", word());
        changes.push_back(open.insertion(entity, key, values));
        auto record = make<Record>();
        record->key = key;
        record->table = &open.space->identities();
        record->values = values;
        for (auto const* toOne : {"keeper", "boss"})
            if (auto const* reference = values.find(toOne)) {
                auto const other = records[reference->integer()];
                record->values.set(toOne, other);
                append(*other, std::string_view(toOne) == "keeper" ? "animals" : "staff", record);
            }
        for (auto const* toMany : {"foods", "eaters", "animals", "staff"})
            if (open.entity(entity).propertyNamed(toMany)) record->values.set(toMany, List{});
        records[key] = record;
        entities[key] = entity;
    }
    void append(Record& to, char const* name, Ref<Record> const& member) {
        auto members = to.values[name].list();
        members.push_back(member);
        to.values.set(name, std::move(members));
    }
    void connect(RecordKey animal, std::vector<RecordKey> const& foods) {
        for (auto const food : foods) {
            append(*records[animal], "foods", records[food]);
            append(*records[food], "eaters", records[animal]);
        }
    }
    std::vector<RecordKey> keys(std::string_view entity) const {
        std::vector<RecordKey> found;
        for (auto const& [key, name] : entities)
            if (name == entity || (entity == "Animal" && name == "Dog")) found.push_back(key);
        return found;
    }
    Value object(std::string_view entity) { return records[keys(entity)[below(keys(entity).size())]]; }

    StoreAnswer ask(std::string_view entity, Ref<NSPredicate> const& predicate,
                    std::vector<Ref<NSSortDescriptor>> const& order = {}, std::size_t limit = 0, std::size_t offset = 0) {
        StoreAnswer answer;
        auto const failure = open.store->fetch({.entity = &open.entity(entity),
                                                .predicate = predicate.get(),
                                                .sortDescriptors = order,
                                                .limit = limit,
                                                .offset = offset},
                                               answer);
        EXPECT_FALSE(failure) << failure->description() << "\n" << predicate->description();
        return answer;
    }
    /// The records that the objects say, in order of their keys.
    std::vector<RecordKey> judged(std::string_view entity, NSPredicate const& predicate) {
        std::vector<RecordKey> found;
        for (auto const key : keys(entity))
            if (predicate.evaluateWithObject(records[key])) found.push_back(key);
        return found;
    }
    void expectSame(std::string_view entity, Ref<NSPredicate> const& predicate) {
        auto const answer = ask(entity, predicate);
        auto found = keysOf(answer.rows);
        std::ranges::sort(found);
        EXPECT_TRUE(answer.complete) << predicate->description();
        EXPECT_EQ(found, judged(entity, *predicate)) << predicate->description();
        std::size_t count = 0;
        bool complete = false;
        EXPECT_FALSE(open.store->count({.entity = &open.entity(entity), .predicate = predicate.get()}, count, complete));
        EXPECT_EQ(count, found.size()) << predicate->description();
    }

    StoreFolder folder;
    OpenStore open{folder.url("zoo.db"), model()};
    std::mt19937 random{20260107};
    std::map<RecordKey, Ref<Record>> records;
    std::map<RecordKey, std::string> entities;
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
        {"name BEGINSWITH %@", "\xF0\x9F"},
        {"name IN %@", List{}},
        {"NOT name IN %@", List{"a", nullptr}},
        {"age IN %@", List{1, 2.0, true, "x", nullptr}},
        {"weight BETWEEN %@", List{1, 2.5}},
        {"age == %@", Decimal::fromText("2")},
        {"weight >= %@", Decimal::fromText("2.5")},
        {"ratio == %@", 0.1F},
        {"born < %@", Value::date(0)},
        {"born == %@", Value::date(-0.5)},
        {"born != %@", Value::date(0.5)},
        {"cost == %@", Decimal::fromText("10")},
        {"cost >= %@", Decimal::fromText("9.1")},
        {"cost IN %@", List{1, Decimal::fromText("2.10")}},
        {"page == %@", Value::url("https://example.org/1")},
        {"keeper IN %@", List{object("Keeper"), object("Keeper")}},
        {"SELF IN %@", List{object("Animal"), object("Animal")}},
    };
    for (auto const& [format, argument] : table) expectEach({format}, {argument});
    expectSame("Keeper", NSPredicate::predicateWithFormat("ANY animals.age > 3 AND staff.@count < 2"));
    expectSame("Dog", NSPredicate::predicateWithFormat("breed == nil OR breed ENDSWITH 'b'"));
}

TEST_F(SQLPredicate, RandomConditionsAnswerAsInMemory) {
    std::vector<std::string> const forms({"name == %@", "name != %@", "name <= %@", "name CONTAINS[cd] %@", "name BEGINSWITH %@",
                                          "keeper.name == %@", "keeper.boss.name != %@", "ANY foods.name >[c] %@"});
    std::vector<std::string> const numbers({"age == %@", "weight != %@", "age > %@", "weight <= %@", "ratio >= %@",
                                            "foods.@count < %@", "ANY foods.price > %@", "cost > %@",
                                            "keeper.animals.@count != %@"});
    std::function<std::string(int, List&)> const condition = [&](int depth, List& arguments) -> std::string {
        if (depth > 0 && one(2)) return "NOT (" + condition(depth - 1, arguments) + ")";
        if (depth > 0) {
            auto const left = condition(depth - 1, arguments);
            return "(" + left + (one(2) ? " AND " : " OR ") + condition(depth - 1, arguments) + ")";
        }
        bool const isText = one(2);
        arguments.push_back(isText ? word() : number());
        return isText ? forms[below(forms.size())] : numbers[below(numbers.size())];
    };
    for (int round = 0; round < 300 && !HasFailure(); ++round) {
        List arguments;
        auto const format = condition(static_cast<int>(below(4)), arguments);
        expectSame("Animal", NSPredicate::predicateWithFormatArguments(format, arguments));
    }
}

TEST_F(SQLPredicate, OrderLimitAndOffsetAreTheStoresWhereItCanSayThem) {
    using Sort = NSSortDescriptor;
    std::vector<std::vector<Ref<Sort>>> const orders{
        {Sort::sortDescriptorWithKey("name")},
        {Sort::sortDescriptorWithKey("name", {.ascending = false, .comparison = TextComparison::CaseInsensitive}),
         Sort::sortDescriptorWithKey("age")},
        {Sort::sortDescriptorWithKey("keeper.name", {.comparison = TextComparison::Localized}),
         Sort::sortDescriptorWithKey("cost", {.ascending = false})},
        {Sort::sortDescriptorWithKey("tame"), Sort::sortDescriptorWithKey("born")},
        {Sort::sortDescriptorWithKey("foods.@count", {.ascending = false})},
    };
    auto const predicate = NSPredicate::predicateWithFormat("age > 0");
    for (auto const& order : orders) {
        List objects;
        for (auto const key : judged("Animal", *predicate)) objects.push_back(records[key]);
        std::vector<RecordKey> expected;
        for (auto const& object : sortedArrayUsingDescriptors(objects, order)) expected.push_back(object.objectAs<Record>()->key);
        expected.erase(expected.begin(), expected.begin() + 3);
        expected.resize(20);
        auto const answer = ask("Animal", predicate, order, 20, 3);
        EXPECT_TRUE(answer.complete);
        EXPECT_EQ(keysOf(answer.rows), expected) << order[0]->description();
    }
}

TEST_F(SQLPredicate, WhatSQLCannotSayLeavesTheRestToTheStore) {
    // Transient attributes are not in the file; the other condition is applied, limit and order are not.
    auto const answer = ask("Animal", NSPredicate::predicateWithFormat("age > 2 AND note == nil"),
                            {NSSortDescriptor::sortDescriptorWithKey("name")}, 1);
    EXPECT_FALSE(answer.complete);
    EXPECT_EQ(keysOf(answer.rows), judged("Animal", *NSPredicate::predicateWithFormat("age > 2")));
    for (auto const* format : {"note == 'x' OR age == 1", "name == page", "keeper.nothing == 1", "foods.@sum.price > 1"}) {
        auto const predicate = NSPredicate::parse(format);
        ASSERT_TRUE(predicate) << format;
        EXPECT_FALSE(ask("Animal", predicate).complete) << format;
    }
    // Any length: SQLite limits how deep expressions nest.
    std::string many = "age == -1";
    for (int at = 0; at < 1500; ++at) many += " OR age == " + std::to_string(at * 2);
    expectSame("Animal", NSPredicate::predicateWithFormat(many));
    auto const counted = NSPredicate::predicateWithFormat("SELF IN %@", List{1, 2});
    EXPECT_TRUE(ask("Animal", counted).rows.empty());
}

} // namespace
} // namespace Tessarin::tests
