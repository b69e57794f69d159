#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "tests/store/StoreFixture.h"

#include <limits>

namespace Tessarin {
namespace {
using tests::insert;
using tests::Person;
using tests::printedBy;

constexpr char const* banner =
    "************************************************************************ \n"
    "******* WARNING: findExistingRelationship(::) should be overridden and an actual implementation provided\n"
    "************************************************************************\n";

/// Imports are made on the context's queue; the hooks are put back afterwards.
class Import : public testing::Test {
protected:
    ~Import() override {
        Person::rename = nullptr;
        Person::find = nullptr;
    }
    void with(FunctionRef<void(Person&)> work) const {
        context->performBlockAndWait([&] { work(*context->insertObject<Person>()); });
    }
    Ref<NSManagedObjectContext> const context = tests::contextInMemory();
};

TEST_F(Import, ConvertsToTheAttributesType) {
    auto const date = Value::date(446904000); // 2015-03-01 12:00:00 UTC
    auto const stays = std::nullopt;
    Value const absent, nan = std::numeric_limits<double>::quiet_NaN();
    auto const infinity = std::numeric_limits<double>::infinity();
    struct Case {
        Value from;
        std::optional<Value> to;
    };
    struct {
        char const* key;
        Value earlier;
        std::vector<Case> cases;
    } const rows[] = {
        {"age", 1, {{"42", 42}, {"-42", -42}, {"+42", 42}, {"+-42", absent}, {"0x10", absent}, {nan, absent},
         {"4x", absent}, {" 42", absent}, {"4.0", absent}, {1e300, absent}, {-9.3e18, absent},
         {*Decimal::fromText("9223372036854775808"), absent}, {*Decimal::fromText("-7.5"), -7}, {42, 42}, {3.7, 3}, {true, 1}, {"", absent}, {List{1}, absent},
         {absent, absent}}},
        {"height", 1.0, {{"1.75", 1.75}, {"1e-3", 0.001}, {2, 2.0}, {"tall", absent}, {"+-1.5", absent}, {"nan", absent},
         {"-inf", -infinity}, {nan, absent}, {date, absent}}},
        {"weight", 1.0f, {{"0.1", 0.1f}, {0.1, 0.1f}, {"heavy", absent}, {"+inf", static_cast<float>(infinity)},
         {"-nan", absent}}},
        {"balance", Decimal(1), {{"nan", absent}, {"0.1", Decimal::fromDouble(0.1f)}, {0.1, Decimal::fromDouble(0.1f)},
         {*Decimal::fromText("2.5"), *Decimal::fromText("2.5")}}},
        {"name", "old", {{"Emma", "Emma"}, {7, absent}, {Dictionary{{"a", 1}}, absent}}},
        {"active", true, {{"true", true}, {"1", true}, {"y", true}, {"Y", false}, {"yes", false}, {2, true}, {0.5, true},
         {0, false}, {nan, stays}, {List{}, stays}, {absent, stays}}},
        {"born", Value::date(1), {{"2015-03-01T12:00:00.000+0000", date}, {"Sun, 01 Mar 2015 12:00:00 GMT", date},
         {"2015-03-01", absent}, {"sun, 01 MAR 2015 12:00:00 GMT", date}, {Value::date(0), stays}, {1425211200, stays}}},
        {"photo", Value::data(std::vector{std::byte{1}}), {{"cat", stays}, {absent, stays}}},
    };
    for (auto const& [key, earlier, cases] : rows)
        for (auto const& [from, to] : cases)
            with([&](Person& person) {
                SCOPED_TRACE(std::string{key} + " from " + from.description());
                person.setValueForKey(earlier, key);
                person.importDictionary({{key, from}, {"unknown", 1}});
                EXPECT_EQ(person.valueForKey(key), to.value_or(earlier));
                EXPECT_EQ(person.valueForKey(key).kind(), to.value_or(earlier).kind());
            });
}

TEST_F(Import, WarnsTwiceForEachNestedDictionaryAndMakesNewObjects) {
    with([&](Person& person) {
        Dictionary const values{{"boss", Dictionary{{"name", "Ada"}, {"reports", List{Dictionary{{"name", "none"}}}}}}};
        EXPECT_EQ(printedBy([&] { person.importDictionary(values); }), std::string{banner} + banner);
        auto const boss = person.valueForKey("boss").objectAs<Person>();
        ASSERT_TRUE(boss);
        EXPECT_EQ(boss->valueForKey("name"), "Ada");
        EXPECT_EQ(boss->mutableSetValueForKey("reports").count(), 1u) << "the list was ignored; the inverse stands";

        EXPECT_EQ(printedBy([&] {
                      person.importDictionary({{"pets", Dictionary{{"name", "Rex"}}}});
                  }),
                  std::string{banner} + banner);
        EXPECT_EQ(printedBy([&] { EXPECT_TRUE(person.addRelationship("pets", {{"name", "Tom"}})); }), banner);
        EXPECT_EQ(person.mutableSetValueForKey("pets").count(), 2u);
        EXPECT_EQ(context->count("Pet"), 2);
        for (auto const* name : {"name", "unknown"}) {
            EXPECT_FALSE(person.importRelationship(name, {}));
            EXPECT_FALSE(person.addRelationship(name, {}));
        }
        person.importDictionary({{"boss", "Ada"}, {"pets", Value()}});
        EXPECT_EQ(person.valueForKey("boss"), Value(boss)) << "a relationship takes nothing but dictionaries";
    });
}

TEST_F(Import, SkipsADictionaryForAnAbstractEntityThatTheHookDoesNotFind) {
    auto const model = ModelBuilder().entity("House").toOne("pet", "Animal", {}).entity("Animal", {.isAbstract = true}).build();
    auto const houses = tests::contextOver(tests::coordinatorOver(model));
    houses->performBlockAndWait([&] {
        auto const house = houses->insertNewObject("House");
        EXPECT_EQ(printedBy([&] { house->importDictionary({{"pet", Dictionary{}}}); }), std::string{banner} + banner);
        EXPECT_TRUE(house->valueForKey("pet").isAbsent());
    });
}

TEST_F(Import, LeavesOutWhatIsNestedTooDeeplyAndSaysSo) {
    Value nested = Dictionary{{"name", "innermost"}};
    for (int level = 0; level < 100'000; ++level) nested = Dictionary{{"name", "Ada"}, {"boss", nested}};
    Person::find = [](Person& asked, auto const&, auto const&) { return asked.managedObjectContext()->insertNewObject("Person"); };
    with([&](Person& person) {
        testing::internal::CaptureStderr();
        person.importDictionary(nested.dictionary());
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "Tessarin: dictionaries that are nested more than 500 deep are not imported\n");
        EXPECT_EQ(context->count("Person", NSPredicate::predicateWithFormat("name == 'Ada'")), 501);
        person.importDictionary({{"boss", Dictionary{{"name", "Bob"}}}});
        EXPECT_EQ(valueForKeyPath(person.valueForKey("boss"), "name"), "Bob");
    });
}

TEST_F(Import, HookFindsObjectsThatAreAttachedBeforeTheyAreFilled) {
    with([&](Person& person) {
        auto const ada = std::static_pointer_cast<Person>(insert(*context, "Person", "Ada"));
        Person::find = [&](Person& asked, std::string const& entity, Dictionary const& values) -> Ref<NSManagedObject> {
            if (entity == "Pet") {
                EXPECT_EQ(&asked, ada.get());
                EXPECT_EQ(person.valueForKey("boss"), Value(ada)) << "attached before its own relationships are imported";
                return nullptr;
            }
            return values["name"] == "Ada" ? ada : nullptr;
        };
        EXPECT_EQ(printedBy([&] {
                      EXPECT_EQ(person.importRelationship(
                                    "boss", {{"name", "Ada"}, {"age", "36"}, {"pets", Dictionary{{"name", "Rex"}}}}),
                                ada);
                      EXPECT_EQ(ada->importRelationship("reports", {{"name", "Ada"}}), ada);
                  }),
                  "");
        EXPECT_EQ(ada->valueForKey("age"), 36);
        EXPECT_TRUE(ada->mutableSetValueForKey("reports").containsObject(ada));
        EXPECT_EQ(context->count("Person"), 2);
        EXPECT_EQ(context->count("Pet"), 1);
    });
}

TEST_F(Import, HookRenamesWhatWasLookedUpUnderTheRawKey) {
    Person::rename = [](std::string const& key) -> std::optional<std::string> {
        if (key == "age") return "height";
        if (key == "weight") return {};
        return key == "fullName" ? "name" : key;
    };
    with([](Person& person) {
        person.importDictionary({{"age", "3"}, {"weight", 4}, {"fullName", "Ada"}});
        EXPECT_EQ(person.valueForKey("height"), 3.0) << "converted as the raw key's attribute, stored under the other";
        for (auto const* key : {"age", "weight", "name"}) EXPECT_TRUE(person.valueForKey(key).isAbsent()) << key;
    });
}

} // namespace
} // namespace Tessarin
