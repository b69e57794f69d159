#include "StoreFixture.h"
#include "Tessarin/platform/objectgraph/persistence/MigrationPlan.h"

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

    StoreFolder folder;
    NSURL file = folder.url("people.db");
    RecordKey ann = 0, bob = 0, rex = 0, tom = 0, chess = 0, villa = 0;
};

enum { PersonAt, ChildAt, PetAt, ClubAt, HouseAt };

TEST_F(Migration, RenamedAddedAndRemovedThingsKeepTheRest) {
    auto open = reopened(changed([](ModelDefinition& model) {
        auto& person = model.entities[PersonAt];
        person.name = "Human";
        person.options.renamingIdentifier = "Person";
        model.entities[ChildAt].options.parent = "Human";
        person.attributes[0].name = "title"; // and "name" is a new one
        person.attributes[0].options.renamingIdentifier = "name";
        person.attributes.push_back({"name", Type::String, {}});
        person.attributes.push_back({"points", Type::Integer32, {.optional = false, .defaultValue = 7}});
        person.attributes.push_back({"motto", Type::String, {.defaultValue = "it's"}});
        std::erase_if(person.attributes, [](auto const& each) { return each.name == "city"; });
        person.relationships[1].name = "animals";
        person.relationships[1].options.renamingIdentifier = "pets";
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

TEST_F(Migration, ValuesAreWidenedAndDefaultsFillWhatBecomesMandatory) {
    auto open = reopened(changed([](ModelDefinition& model) {
        auto& person = model.entities[PersonAt];
        person.attributes[1].type = Type::Decimal;
        person.attributes[1].options = {.optional = false, .defaultValue = 5};
        person.attributes[2].options.indexed = true;
        model.entities[PetAt].uniquenessConstraints = {{"name"}};
    }));
    ASSERT_TRUE(open);
    EXPECT_EQ(open->value(open->read("Person", ann), "age"), Value(*Decimal::fromText("30")));
    EXPECT_EQ(open->value(open->read("Person", bob), "age"), Value(*Decimal::fromText("5")));
    EXPECT_TRUE(open->save({open->insertion("Pet", open->newKey(), {{"name", "Rex"}})})) << "the new uniqueness is not enforced";
}

TEST_F(Migration, ToOneBecomesToManyAndAParentIsAdded) {
    auto open = reopened(changed([](ModelDefinition& model) {
        auto& person = model.entities[PersonAt];
        person.relationships[0].toMany = true; // home: many houses now, with an inverse that is new
        person.relationships[0].options = {.inverse = "people"};
        model.entities[HouseAt].relationships = {
            {.name = "people", .destination = "Person", .toMany = true, .options = {.inverse = "home"}}};
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
        {"Person.name", [](auto& model) { model.entities[PersonAt].attributes[0].options.optional = false; }},
        {"Person.age", [](auto& model) { model.entities[PersonAt].attributes[1].type = Type::String; }},
        {"Person.age", [](auto& model) { model.entities[PersonAt].attributes[1].type = Type::Date; }},
        {"Person.city",
         [](auto& model) {
             model.entities[PersonAt].attributes.pop_back();
             model.entities[PersonAt].relationships.push_back({.name = "city", .destination = "House"});
         }},
        {"Person.pets", [](auto& model) { model.entities[PersonAt].relationships[1].toMany = false; }},
        {"Person.home", [](auto& model) { model.entities[PersonAt].relationships[0].destination = "Club"; }},
        {"Person.home", [](auto& model) { model.entities[PersonAt].relationships[0].options.optional = false; }},
        {"Pet.owner", [](auto& model) { model.entities[ChildAt].options.parent = ""; }}, // a pet may be a child's
        {"House.street", [](auto& model) { model.entities[HouseAt].attributes[0].type = Type::BinaryData; }},
    };
    for (auto const& [property, change] : table) {
        OpenStore open(file, changed(change));
        EXPECT_FALSE(open.store) << property;
        if (!open.error) continue;
        EXPECT_EQ(std::string(open.error->userInfo()["entity"].text()) + "." +
                      std::string(open.error->userInfo()["property"].text()),
                  property);
        EXPECT_NE(open.error->localizedDescription().find(property), std::string::npos);
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

} // namespace
} // namespace Tessarin::tests
