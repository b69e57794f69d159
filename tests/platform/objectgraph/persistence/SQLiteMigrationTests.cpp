#include "StoreFixture.h"
#include "Tessarin/platform/objectgraph/persistence/migration/MigrationPlan.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <barrier>
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <thread>

namespace Tessarin::tests {
namespace {

using Type = NSAttributeType;
using Keys = std::vector<RecordKey>;

/// The first version: people of two kinds with pets and clubs.
ModelBuilder firstVersion() {
    return std::move(ModelBuilder()
                         .entity("Person")
                         .attribute("name", Type::String)
                         .attribute("age", Type::Integer16)
                         .attribute("city", Type::String)
                         .toOne("home", "House", {})
                         .toMany("pets", "Pet", {.inverse = "owner", .ordered = true})
                         .toMany("clubs", "Club", {.inverse = "members"})
                         .entity("Child", {.parent = "Person"})
                         .attribute("school", Type::String)
                         .entity("Pet")
                         .attribute("name", Type::String)
                         .toOne("owner", "Person", {.inverse = "pets"})
                         .entity("Club")
                         .attribute("name", Type::String)
                         .toMany("members", "Person", {.inverse = "clubs"})
                         .entity("House")
                         .attribute("street", Type::String));
}

class Migration : public testing::Test {
protected:
    void SetUp() override {
        OpenStore open(file, firstVersion().build());
        ASSERT_TRUE(open.store) << open.error->description();
        for (auto* key : {&ann, &bob, &rex, &tom, &chess, &villa}) *key = open.newKey();
        auto first = open.insertion("Person", ann, {{"name", "Ann"}, {"age", 30}, {"city", "Rome"}, {"home", villa}});
        first.relationships = {open.links("Person", "pets", {rex, tom}, {}, Keys{tom, rex})};
        auto second = open.insertion("Child", bob, {{"name", "Bob"}, {"school", "North"}});
        auto club = open.insertion("Club", chess, {{"name", "Chess"}});
        club.relationships = {open.links("Club", "members", {ann, bob})};
        first.relationships.push_back(open.links("Person", "clubs", {chess}));
        second.relationships.push_back(open.links("Child", "clubs", {chess}));
        ASSERT_FALSE(
            open.save({first, second, open.insertion("Pet", rex, {{"name", "Rex"}, {"owner", ann}}), club,
                       open.insertion("Pet", tom, {{"owner", ann}}), open.insertion("House", villa, {{"street", "Via"}})}));
    }
    std::unique_ptr<OpenStore> reopened(Ref<NSManagedObjectModel> const& model) {
        auto open = std::make_unique<OpenStore>(file, model);
        EXPECT_TRUE(open->store) << (open->error ? open->error->description() : "");
        return open->store ? std::move(open) : nullptr;
    }
    /// The first version with some lines in place of others.
    static Ref<NSManagedObjectModel> changed(std::function<void(ModelDefinition&)> const& change) {
        auto definition = firstVersion().definition();
        change(definition);
        return NSManagedObjectModel::modelWithDefinition(std::move(definition));
    }

    TemporaryFolder folder;
    NSURL file = folder.url("people.db");
    RecordKey ann = 0, bob = 0, rex = 0, tom = 0, chess = 0, villa = 0;
};

/// Earlier versions let them pass; what a file holds under them is reached under a new name.
TEST_F(Migration, ANameThatNoModelMayHaveAnyMoreIsRenamed) {
    {
        SQLite::Connection connection(file.path());
        connection.execute("ALTER TABLE Person RENAME COLUMN city TO \"@ci.ty\"");
        connection.execute("UPDATE tessarin_store SET value = replace(value, '\"city\"', '\"@ci.ty\"') WHERE key = 'model'");
    }
    auto open =
        reopened(changed([](ModelDefinition& model) { model.entities[0].attributes[2].options.renamingIdentifier = "@ci.ty"; }));
    ASSERT_TRUE(open);
    EXPECT_EQ(open->value(open->read("Person", ann), "city"), Value("Rome"));
}

enum { PersonAt, ChildAt, PetAt, ClubAt, HouseAt };

TEST_F(Migration, RenamedAddedAndRemovedThingsKeepTheRest) {
    auto open = reopened(changed([](ModelDefinition& model) {
        auto& person = model.entities[PersonAt];
        person.name = "Human";
        person.options.renamingIdentifier = "Person";
        model.entities[ChildAt].options.parent = "Human";
        person.attributes[0].name = "title"; // and "name" is a new one
        person.attributes[0].options.renamingIdentifier = "name";
        person.attributes[1].type = Type::Decimal;
        person.attributes[1].options = {.optional = false, .defaultValue = 5};
        person.attributes.push_back({"name", Type::String, {}});
        person.attributes.push_back({"points", Type::Integer32, {.optional = false, .defaultValue = 7}});
        person.attributes.push_back({"motto", Type::String, {.defaultValue = "it's"}});
        std::erase_if(person.attributes, [](auto const& each) { return each.name == "city"; });
        person.relationships[1].name = "animals";
        person.relationships[1].options.renamingIdentifier = "pets";
        model.entities[PetAt].uniquenessConstraints = {{"name"}};
        model.entities[PetAt].relationships[0].destination = "Human";
        model.entities[PetAt].relationships[0].options.inverse = "animals";
        model.entities[ClubAt].relationships[0].destination = "Human";
        model.entities.push_back({.name = "Extra", .attributes = {{"a", Type::Double, {.optional = false}}}});
    }));
    ASSERT_TRUE(open);
    auto const person = open->read("Human", ann);
    EXPECT_EQ(open->value(person, "title"), Value("Ann"));
    EXPECT_EQ(open->value(person, "name"), Value());
    EXPECT_EQ(open->value(person, "points"), Value(7));
    EXPECT_EQ(open->value(person, "motto"), Value("it's"));
    EXPECT_EQ(open->value(person, "age"), Value(*Decimal::fromText("30")));
    EXPECT_EQ(open->value(open->read("Human", bob), "age"), Value(*Decimal::fromText("5"))) << "now mandatory";
    EXPECT_TRUE(open->save({open->insertion("Pet", open->newKey(), {{"name", "Rex"}})})) << "the new uniqueness is not enforced";
    EXPECT_EQ(open->read("Human", bob)->entity().name(), "Child");
    EXPECT_EQ(open->value(open->read("Human", bob), "school"), Value("North"));
    EXPECT_EQ(open->members("Human", "animals", ann), (Keys{tom, rex}));
    EXPECT_EQ(open->members("Club", "members", chess), (Keys{ann, bob}));
    EXPECT_EQ(open->members("Human", "clubs", ann), (Keys{chess}));
    auto const key = open->newKey();
    EXPECT_GT(key, villa);
    EXPECT_FALSE(open->save({open->insertion("Extra", key, {{"a", 1.5}})}));
    EXPECT_EQ(open->store->metadata()["NSStoreModelVersionHashes"].dictionary().size(), 6U);
}

TEST_F(Migration, IndexesThatStayAreNotMadeAgain) {
    auto const indexes = [&] {
        std::map<std::string, std::int64_t> places; // in the schema: what is made again comes last
        SQLite::Connection reader(file.path());
        auto const query = reader.use("SELECT name, rowid FROM sqlite_schema WHERE type = 'index' AND sql IS NOT NULL");
        while (query->step()) places[std::string(query->text(0))] = query->integer(1);
        return places;
    };
    auto expected = indexes();
    ASSERT_TRUE(reopened(changed([](ModelDefinition& model) {
        model.entities[PersonAt].attributes.push_back({"motto", Type::String, {}});
        model.entities[PersonAt].attributes[0].options.indexed = true; // made first, where all are made
    })));
    auto found = indexes();
    EXPECT_EQ(found.erase("Person.name"), 1U);
    EXPECT_EQ(found, expected);
}

TEST_F(Migration, ToOneBecomesToManyAndAParentIsAdded) {
    auto open = reopened(changed([](ModelDefinition& model) {
        auto& person = model.entities[PersonAt];
        person.relationships[0].toMany = true; // home: many houses now, with an inverse that is new
        person.relationships[0].options = {.inverse = "people"};
        model.entities[HouseAt].relationships = {
            {.name = "people",
             .destination = "Person",
             .toMany = true,
             .options = {.inverse = "home", .optional = false, .minCount = 1}}}; // mandatory, and some houses are empty
        model.entities[PetAt].relationships[0].toMany = true; // owner: many, so that both ends are
        model.entities.push_back(
            {.name = "Animal", .attributes = {{"name", Type::String, {}}}}); // pets get a parent with their name
        model.entities[PetAt].options.parent = "Animal";
        model.entities[PetAt].attributes.clear();
    }));
    ASSERT_TRUE(open);
    EXPECT_EQ(open->members("Person", "home", ann), (Keys{villa}));
    EXPECT_EQ(open->members("House", "people", villa), (Keys{ann}));
    EXPECT_EQ(open->members("Person", "pets", ann), (Keys{tom, rex}));
    EXPECT_EQ(open->members("Pet", "owner", rex), (Keys{ann}));
    EXPECT_EQ(open->value(open->read("Animal", rex), "name"), Value("Rex"));
    EXPECT_EQ(open->value(open->read("Person", bob), "name"), Value("Bob"));
}

TEST_F(Migration, WhoIsNoLongerOfAnEntityLeavesItsLinks) {
    SQLite::Connection(file.path()).execute("UPDATE Person SET home = " + std::to_string(villa));
    auto open = reopened(changed([](ModelDefinition& model) {
        auto& person = model.entities[PersonAt];
        person.relationships.pop_back();
        person.relationships[0].toMany = true; // home, which a child has no longer
        person.relationships[0].options = {.inverse = "people"};
        model.entities[ChildAt].options.parent.clear();
        model.entities[ClubAt].relationships.clear();
        model.entities[HouseAt].relationships = {
            {.name = "people", .destination = "Person", .toMany = true, .options = {.inverse = "home"}}};
    }));
    ASSERT_TRUE(open);
    EXPECT_EQ(open->fetch("Child").size(), 1U);
    EXPECT_EQ(open->members("House", "people", villa), (Keys{ann}));
}

TEST_F(Migration, RemovedEntitiesLeaveNoLinksBehind) {
    auto open = reopened(changed([](ModelDefinition& model) { model.entities.erase(model.entities.begin() + ChildAt); }));
    ASSERT_TRUE(open);
    EXPECT_EQ(open->fetch("Person").size(), 1U);
    EXPECT_EQ(open->members("Club", "members", chess), (Keys{ann}));
}

TEST_F(Migration, WhereNoRuleLeadsTheFileStaysAndTheErrorNamesTheProperty) {
    AttributeDefinition const mandatory{"new", Type::String, {.optional = false}};
    std::pair<char const*, std::function<void(ModelDefinition&)>> const table[] = {
        {"Person.new", [=](auto& model) { model.entities[PersonAt].attributes.push_back(mandatory); }},
        {"Child.city", [](auto& model) { model.entities[PersonAt].attributes[2].options.optional = false; }},
        {"Person.age", [](auto& model) { model.entities[PersonAt].attributes[1].type = Type::String; }},
        {"Person.age", [](auto& model) { model.entities[PersonAt].attributes[1].type = Type::Date; }},
        {"Person.city", [](auto& model) { model.entities[PersonAt].attributes[2].type = Type::Transformable; }},
        {"House", [](auto& model) { model.entities[HouseAt].options.isAbstract = true; }},
        {"Pet.name", [](auto& model) {
             model.entities[PetAt].attributes[0].options.optional = false;
             model.entities[PetAt].relationships[0].options.optional = false; // every pet has an owner
         }},
        {"Club.members", [](auto& model) {
             model.entities[ClubAt].relationships.clear();
             model.entities[ClubAt].attributes.push_back({"members", Type::String, {}});
         }},
        {"Person.city",
         [](auto& model) {
             model.entities[PersonAt].attributes.pop_back();
             model.entities[PersonAt].relationships.push_back({.name = "city", .destination = "House"});
         }},
        {"Person.pets", [](auto& model) { model.entities[PersonAt].relationships[1].toMany = false; }},
        {"Person.home", [](auto& model) { model.entities[PersonAt].relationships[0].destination = "Club"; }},
        {"Child.home", [](auto& model) { model.entities[PersonAt].relationships[0].options.optional = false; }},
        {"Club.members", [](auto& model) { model.entities[ChildAt].options.parent = ""; }}, // a child is in the club
        {"House.street", [](auto& model) { model.entities[HouseAt].attributes[0].type = Type::BinaryData; }},
    };
    for (auto const& [property, change] : table) {
        Ref<NSError> error;
        EXPECT_FALSE(MigrationPlan::dryRun(file, changed(change), error)) << property;
        OpenStore open(file, changed(change));
        EXPECT_FALSE(open.store) << property;
        if (!open.error || !error) continue;
        auto const& info = open.error->userInfo();
        auto const name = std::string(info["entity"].text()) + (info.contains("property") ? "." : "");
        EXPECT_EQ(name + std::string(info["property"].text()), property);
        EXPECT_EQ(open.error->localizedDescription(), error->localizedDescription());
        EXPECT_NE(error->localizedDescription().find(std::string(property) + ": "), std::string::npos);
        EXPECT_EQ(info["count"], Value(1)) << property;
        auto const example = " is in the way, such as number " + std::to_string(info["example"].integer());
        EXPECT_NE(error->localizedDescription().find(example), std::string::npos);
    }
    // Two pets without a name may stay; two of one name may not become unique.
    {
        OpenStore open(file, firstVersion().build());
        ASSERT_TRUE(open.store) << "a refused migration has changed the file";
        ASSERT_FALSE(open.save({open.update(open.read("Pet", tom), {{"name", "Rex"}})}));
    }
    OpenStore open(file, changed([](auto& model) { model.entities[PetAt].uniquenessConstraints = {{"name"}}; }));
    EXPECT_FALSE(open.store);
    auto const again = reopened(firstVersion().build());
    ASSERT_TRUE(again);
    EXPECT_EQ(again->members("Person", "pets", ann), (Keys{tom, rex}));
}

TEST_F(Migration, WhatTheRecordsAllowIsDone) {
    auto open = reopened(changed([](ModelDefinition& model) {
        model.entities[PersonAt].attributes[0].options.optional = false;           // all have a name
        model.entities[PersonAt].relationships[2].toMany = false;                  // nobody is in two clubs
        model.entities[ClubAt].relationships[0].options.ordered = true;
        model.entities[PetAt].relationships[0].options.optional = false; // all have an owner
    }));
    ASSERT_TRUE(open);
    EXPECT_EQ(open->members("Club", "members", chess), (Keys{ann, bob}));
    EXPECT_EQ(open->members("Person", "pets", ann), (Keys{tom, rex}));
    open = reopened(changed([](ModelDefinition& model) { // no pet is a child's
        model.entities[ChildAt].options.parent = "";
        model.entities[PersonAt].relationships.pop_back();
        model.entities.erase(model.entities.begin() + ClubAt);
    }));
    ASSERT_TRUE(open);
    EXPECT_EQ(open->members("Person", "pets", ann), (Keys{tom, rex}));
    EXPECT_EQ(open->value(open->read("Child", bob), "school"), Value("North"));
}

/// A model of one entity with an attribute.
Ref<NSManagedObjectModel> modelWith(Type type) { return ModelBuilder().entity("A").attribute("x", type).build(); }

TEST(ValueMigration, TakesNumbersThatAreTheSameInTheNewTypeAndRefusesOthers) {
    auto const decimal = [](char const* text) { return Value(*Decimal::fromText(text)); };
    std::int64_t const big = std::int64_t{1} << 53;
    struct {
        Type from, to;
        List values, now; // none: refused, for the first value
    // clang-format off
    } const table[] = {
        {Type::Integer64, Type::Double, {big, -7, std::numeric_limits<std::int64_t>::min()}, {0x1p53, -7.0, -0x1p63}},
        {Type::Integer64, Type::Double, {big + 1, 1}, {}},
        {Type::Integer64, Type::Double, {std::numeric_limits<std::int64_t>::max(), 1}, {}},
        {Type::Integer32, Type::Integer16, {32767, -32768}, {32767, -32768}},
        {Type::Integer32, Type::Integer16, {32768, 1}, {}}, {Type::Integer16, Type::Boolean, {0, 1}, {false, true}},
        {Type::Integer16, Type::Boolean, {2, 1}, {}}, {Type::Boolean, Type::Float, {true}, {1.0F}},
        {Type::Double, Type::Float, {0.5, HUGE_VAL}, {0.5F, HUGE_VALF}}, {Type::Double, Type::Float, {0.1, 0.5}, {}},
        {Type::Double, Type::Integer64, {-3.0}, {-3}}, {Type::Double, Type::Integer64, {0x1p63, 1.0}, {}},
        {Type::Double, Type::Decimal, {0.1}, {decimal("0.1")}}, {Type::Double, Type::Decimal, {HUGE_VAL, 0.1}, {}},
        {Type::Decimal, Type::Double, {decimal("0.1")}, {0.1}},
        {Type::Decimal, Type::Double, {decimal("0.10000000000000000001"), decimal("1")}, {}},
        {Type::Decimal, Type::Integer32, {decimal("-12")}, {-12}},
        {Type::Decimal, Type::Integer32, {decimal("1.5"), decimal("1")}, {}}, {Type::String, Type::Transformable, {"a"}, {}}};
    // clang-format on
    for (auto const& [from, to, values, now] : table) {
        SCOPED_TRACE(values[0].description());
        TemporaryFolder folder;
        auto const file = folder.url("values.db");
        {
            OpenStore open(file, modelWith(from));
            std::vector<RecordChange> records{open.insertion("A", open.newKey(), {})};
            for (auto const& value : values) records.push_back(open.insertion("A", open.newKey(), {{"x", value}}));
            ASSERT_FALSE(open.save(records));
        }
        Ref<NSError> error;
        EXPECT_EQ(MigrationPlan::dryRun(file, modelWith(to), error).has_value(), !now.empty());
        OpenStore open(file, modelWith(to));
        ASSERT_EQ(bool(open.store), !now.empty()) << (open.error ? open.error->description() : "");
        EXPECT_EQ(now.empty() ? error->userInfo()["count"] : Value(1), Value(1));
        EXPECT_EQ(now.empty() ? error->userInfo()["example"] : Value(2), Value(2));
        List found;
        if (open.store)
            for (auto const& row : open.fetch("A")) found.push_back(open.value(row, "x"));
        EXPECT_EQ(found.empty() ? Value() : found[0], Value());
        EXPECT_EQ(List(found.begin() + !found.empty(), found.end()), now);
    }
}

// Each kind of property becomes each other, all at once: with a record that has no value of them, and without records.
TEST(ValueMigration, WithoutValuesEveryPropertyMayBecomeAnyOther) {
    enum { Text, Kept, Derived, Object, ToOne, ToMany, kinds };
    auto const model = [](bool isLater) {
        EntityDefinition a{.name = "A"};
        for (int at = 0; at < kinds * kinds; ++at) {
            auto const name = "p" + std::to_string(at);
            auto const kind = isLater ? at / kinds : at % kinds;
            if (kind >= ToOne)
                a.relationships.push_back({.name = name, .destination = "A", .toMany = kind == ToMany});
            else
                a.attributes.push_back({name,
                                        kind == Object ? Type::Transformable : Type::String,
                                        {.transient = kind == Kept, .derived = kind == Derived}});
        }
        return NSManagedObjectModel::modelWithDefinition({.entities = {a}});
    };
    for (bool const hasRecord : {false, true}) {
        TemporaryFolder folder;
        auto const file = folder.url("kinds.db");
        if (OpenStore open(file, model(false)); hasRecord) {
            ASSERT_FALSE(open.save({open.insertion("A", open.newKey(), {})}));
        }
        Ref<NSError> error;
        auto const plan = MigrationPlan::dryRun(file, model(true), error);
        ASSERT_TRUE(plan) << error->description();
        EXPECT_NE(plan->description().find("A.p24: String becomes to-one A"), std::string::npos);
        OpenStore open(file, model(true));
        ASSERT_TRUE(open.store) << open.error->description();
        EXPECT_EQ(open.fetch("A").size(), hasRecord);
    }
}

TEST(ValueMigration, OneFormerThingIsOneThingNowAndThePlanTellsWhichStartEmpty) {
    TemporaryFolder folder;
    auto const file = folder.url("names.db");
    auto builder = ModelBuilder().entity("Pet").attribute("name", Type::String);
    {
        OpenStore open(file, builder.build());
        ASSERT_FALSE(open.save({open.insertion("Pet", open.newKey(), {{"name", "Rex"}})}));
    }
    auto renamed = ModelBuilder()
                       .entity("Dog", {.renamingIdentifier = "Pet"})
                       .entity("Cat", {.renamingIdentifier = "Pet"})
                       .attribute("title", Type::String, {.renamingIdentifier = "name"})
                       .attribute("name", Type::String)
                       .attribute("alias", Type::String, {.renamingIdentifier = "name"});
    Ref<NSError> error;
    auto const plan = MigrationPlan::dryRun(file, renamed.build(), error);
    ASSERT_TRUE(plan) << error->description();
    EXPECT_EQ(plan->lines(), (std::vector<std::string>{"Dog: new, for Pet is Cat now", "Cat: was Pet (1 record)",
                                                       "Cat.title: new, for name is alias now",
                                                       "Cat.name: new, for name is alias now", "Cat.alias: was name"}));
    OpenStore(file, renamed.build());
    OpenStore open(file, renamed.attribute("more", Type::String).build()); // the identifiers stay in the model
    ASSERT_TRUE(open.store) << open.error->description();
    auto const cat = open.read("Cat", 1);
    EXPECT_EQ(open.value(cat, "alias"), Value("Rex"));
    EXPECT_EQ(open.value(cat, "name"), Value());
    EXPECT_EQ(open.value(cat, "title"), Value());
}

TEST_F(Migration, ADryRunTellsWhatWouldHappenAndChangesNothing) {
    auto const before = folder.read("people.db");
    auto const later = changed([](ModelDefinition& model) {
        auto& person = model.entities[PersonAt];
        person.name = "Human";
        person.options.renamingIdentifier = "Person";
        person.attributes[1].type = Type::Integer32;
        person.attributes.erase(person.attributes.begin() + 2);
        model.entities[ChildAt].options.parent = "Human";
        for (auto at : {PetAt, ClubAt}) model.entities[at].relationships[0].destination = "Human";
        model.entities[HouseAt].attributes.push_back({"floors", Type::Integer16, {.optional = false, .defaultValue = 1}});
    });
    Ref<NSError> error;
    auto const plan = MigrationPlan::dryRun(file, later, error);
    ASSERT_TRUE(plan) << error->description();
    EXPECT_EQ(plan->lines(),
              (std::vector<std::string>{"Human: was Person (1 record)", "Human.age: Integer 16 becomes Integer 32",
                                        "Human.city: goes with its values", "House.floors: new, 1 in every record"}));
    EXPECT_EQ(folder.read("people.db"), before);
    EXPECT_EQ(MigrationPlan::dryRun(file, firstVersion().build(), error)->description(), "Nothing changes.\n");

    auto const unique = changed([](ModelDefinition& model) { model.entities[PetAt].uniquenessConstraints = {{"owner"}}; });
    EXPECT_FALSE(MigrationPlan::dryRun(file, unique, error)) << "two pets have one owner";
    EXPECT_NE(error->localizedDescription().find("Pet.owner"), std::string::npos);
    EXPECT_TRUE(reopened(firstVersion().build()));
}

TEST_F(Migration, WhereThereAreNoRecordsNoRuleIsMissed) {
    EntityDefinition room{.name = "Room"};
    auto const withRoom = [&](ModelDefinition& model) { model.entities.push_back(room); };
    reopened(changed(withRoom));
    room.attributes = {{"number", Type::Integer16, {.optional = false}}};
    EXPECT_TRUE(reopened(changed(withRoom)));
}

TEST_F(Migration, AProcessWithTheFormerModelCanNoLongerSave) {
    OpenStore before(file, firstVersion().build());
    auto const row = before.read("Pet", rex);
    auto open = reopened(changed([](ModelDefinition& model) {
        model.entities[PetAt].attributes.push_back({"color", Type::String, {}});
    }));
    ASSERT_TRUE(open);
    EXPECT_TRUE(before.save({before.update(row, {{"name", "Max"}})}));
    EXPECT_EQ(open->value(open->read("Pet", rex), "name"), Value("Rex"));
}

TEST_F(Migration, OfSeveralThatOpenAFileAtOnceOneMigratesItAndAllSave) {
    for (int round = 0; round < 8; ++round) {
        auto const model = changed([&](ModelDefinition& definition) {
            definition.entities[PetAt].attributes.push_back({"color" + std::to_string(round), Type::String, {}});
        });
        std::barrier start(4);
        std::vector<std::unique_ptr<OpenStore>> opened(4);
        std::vector<std::jthread> openers;
        for (auto& each : opened)
            openers.emplace_back([&] {
                start.arrive_and_wait();
                each = reopened(model);
            });
        openers.clear();
        for (auto const& each : opened) {
            ASSERT_TRUE(each);
            auto const error = each->save({each->insertion("House", each->newKey(), {})});
            EXPECT_FALSE(error) << error->description();
        }
    }
}

} // namespace
} // namespace Tessarin::tests
