#include "Tessarin/platform/foundation/values/NSUUID.h"
#include "Tessarin/platform/objectgraph/model/ModelDocument.h"
#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"

#include <gtest/gtest.h>

using namespace Tessarin;

namespace {

/// The model of a document with these elements; null, and a note of why, when it does not load.
Ref<NSManagedObjectModel> loaded(std::string const& elements, std::string* problem = nullptr) {
    std::string reason;
    auto definition = parseModelDocument("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<model>" + elements + "</model>", reason);
    auto model = definition ? NSManagedObjectModel::modelWithDefinition(*std::move(definition), &reason) : nullptr;
    if (problem) *problem = reason;
    return model;
}

std::string entity(std::string const& name, std::string const& inside = {}, std::string const& more = {}) {
    return "<entity name='" + name + "' " + more + ">" + inside + "</entity>";
}

NSAttributeDescription const& attributeOf(Ref<NSManagedObjectModel> const& model, std::string_view name) {
    return *model->entityNamed("E")->propertyNamed(name)->asAttribute();
}

} // namespace

TEST(ModelDocument, ReadsDefaultsByTheirType) {
    struct {
        std::string type, written;
        Value expected;
        std::string where = "defaultValueString";
    } const rows[] = {
        {"String", "", ""},
        {"String", " ", " "},
        {"String", "&quot;&lt;&amp;12", "\"<&12"},
        {"String", "x", {}, "anotherName"},
        {"Boolean", "YES", true},
        {"Boolean", "NO", false},
        {"Boolean", "0.0", false},
        {"Boolean", "100", true},
        {"Boolean", "perhaps", {}},
        {"Integer 16", "NO", 0},
        {"Integer 32", "0.0", 0},
        {"Integer 64", "-9007199254740993", -9007199254740993},
        {"Integer 16", "", {}},
        {"Double", "1e3", 1000.0},
        {"Double", "nan", {}},
        {"Float", "0.1", 0.1F},
        {"Decimal", "0.1", Decimal::fromText("0.1").value()},
        {"Date", "-3600.5", Value::date(-3600.5), "defaultDateTimeInterval"},
        {"Date", "0", {}},
        {"UUID", "empy", {}},
        {"UUID", "E621E1F8-C36C-495A-93FC-0C247A3E6E5F", NSUUID::UUIDWithString("E621E1F8-C36C-495A-93FC-0C247A3E6E5F").value()},
        {"URI", "https://a.org", Value::url("https://a.org")},
        {"Transformable", "x", {}},
        {"Binary", "x", {}}};
    for (auto const& [type, written, expected, where] : rows) {
        SCOPED_TRACE(type + " " + written);
        auto const model =
            loaded(entity("E", "<attribute name='a' attributeType='" + type + "' " + where + "='" + written + "'/>"));
        ASSERT_TRUE(model);
        auto const& value = attributeOf(model, "a").defaultValue();
        EXPECT_EQ(value, expected);
        EXPECT_EQ(value.kind(), expected.kind());
    }
}

TEST(ModelDocument, ReadsEveryAttributeOfItsElements) {
    auto const model = loaded(R"(
    <entity name="E" representedClassName=".Thing" isAbstract="YES" elementID="Old" versionHashModifier="m">
        <attribute name="title" attributeType="String" minValueString="1" maxValueString="64" indexed="YES" elementID="name"
            regularExpressionString="[a-z]+" versionHashModifier="2"><userInfo><entry key="k" value="v"/></userInfo></attribute>
        <attribute name="Blob" optional="YES" attributeType="Binary" allowsExternalBinaryDataStorage="YES" syncable="YES"/>
        <attribute name="cache" optional="YES" transient="YES" valueTransformerName="x"/>
        <attribute name="any" optional="YES" attributeType="Transformable" valueTransformerName="T"/>
        <attribute name="n" optional="YES" attributeType="Integer 64" derived="YES" derivationExpression="items.@count"/>
        <relationship name="items" optional="YES" toMany="YES" ordered="YES" minCount="2" maxCount="9" deletionRule="Cascade"
            destinationEntity="F" inverseName="owner" inverseEntity="F"/>
        <uniquenessConstraints>
            <uniquenessConstraint><constraint value="title"/><constraint value="n"/></uniquenessConstraint>
            <uniquenessConstraint/><uniquenessConstraint><constraint value="gone"/></uniquenessConstraint>
        </uniquenessConstraints>
        <fetchIndex name="i"><fetchIndexElement property="title" order="descending"/>
            <fetchIndexElement property="items"/></fetchIndex>
        <compoundIndexes><compoundIndex><index value="n"/><index value="title"/></compoundIndex></compoundIndexes>
        <fetchedProperty name="f"><fetchRequest name="g" entity="F"/></fetchedProperty><novelty/>
    </entity>
    <entity name="F" representedClassName="App.F">
        <relationship name="owner" maxCount="1" ordered="YES" deletionRule="No Action" destinationEntity="E" inverseName="items"/>
    </entity>
    <fetchRequest name="byTitle" entity="E" predicateString="title == $T &amp;&amp; broken ("/>
    <configuration name="half"><memberEntity name="F"/><memberEntity name="Gone"/></configuration>
    <elements><element name="Gone" positionX="1"/></elements>)");
    ASSERT_TRUE(model);
    auto const* e = model->entityNamed("E");
    EXPECT_EQ(e->managedObjectClassName(), "Thing");
    EXPECT_EQ(e->renamingIdentifier(), "Old");
    EXPECT_TRUE(e->isAbstract());
    EXPECT_EQ(model->entityNamed("F")->managedObjectClassName(), "App.F");
    EXPECT_EQ(e->properties().size(), 6U);

    auto const& title = attributeOf(model, "title");
    EXPECT_FALSE(title.isOptional()); // what is not said to be optional is mandatory
    EXPECT_EQ(title.minimum(), 1);
    EXPECT_EQ(title.maximum(), 64);
    EXPECT_EQ(title.renamingIdentifier(), "name");
    EXPECT_EQ(title.userInfo().at("k"), "v");
    EXPECT_TRUE(title.isIndexed());
    EXPECT_TRUE(attributeOf(model, "Blob").allowsExternalBinaryDataStorage());
    EXPECT_EQ(attributeOf(model, "cache").attributeType(), NSAttributeType::Undefined);
    EXPECT_TRUE(attributeOf(model, "cache").isTransient());
    EXPECT_EQ(attributeOf(model, "any").valueTransformerName(), "T");
    EXPECT_EQ(attributeOf(model, "n").derivationExpression(), "items.@count");

    auto const* items = e->relationshipsByName().at("items");
    auto const* owner = model->entityNamed("F")->relationships().front();
    EXPECT_TRUE(items->isToMany() && items->isOrdered() && items->isOptional() && items->isReciprocal());
    EXPECT_EQ(items->deleteRule(), NSDeleteRule::Cascade);
    EXPECT_EQ(items->minCount() * 10 + items->maxCount(), 29U);
    EXPECT_EQ(owner->inverseRelationship(), items);
    EXPECT_EQ(owner->deleteRule(), NSDeleteRule::NoAction);
    EXPECT_FALSE(owner->isOrdered()); // said of a to-one, where it means nothing
    EXPECT_EQ(owner->maxCount(), 1U);

    ASSERT_EQ(e->uniquenessConstraints().size(), 1U);
    EXPECT_EQ(e->uniquenessConstraints()[0][1]->name(), "n");
    ASSERT_EQ(e->indexes().size(), 2U);
    EXPECT_FALSE(e->indexes()[0].elements[0].ascending);
    EXPECT_EQ(e->indexes()[1].elements[1].property, &title);
    EXPECT_EQ(model->fetchRequestTemplateNamed("byTitle")->predicateFormat, "title == $T && broken (");
    EXPECT_EQ(model->entitiesForConfiguration("half").size(), 1U);
    EXPECT_EQ(model->entitiesForConfiguration({}).size(), 2U);
    EXPECT_TRUE(model->entitiesForConfiguration("other").empty());
}

TEST(ModelDocument, TakesEachEndOfARelationshipAsWritten) {
    auto const relationship = [](std::string const& name, std::string const& destination, std::string const& inverse) {
        return "<relationship name='" + name + "' destinationEntity='" + destination + "' inverseName='" + inverse +
               "' inverseEntity='" + destination + "'/>";
    };
    auto const model =
        loaded(entity("A", relationship("b", "B", "a") + relationship("other", "B", "a") + relationship("lost", "B", "nothing") +
                               relationship("twin", "A", "twin") + relationship("wrong", "B", "text") +
                               "<relationship name='alone' destinationEntity='B'/>") +
               entity("B", relationship("a", "A", "b") + "<attribute name='text' attributeType='String'/>") +
               entity("Sub", relationship("c", "B", "a"), "parentEntity='A'"));
    ASSERT_TRUE(model);
    auto const& all = model->entityNamed("Sub")->relationshipsByName();
    struct {
        char const* name;
        bool hasInverse, isReciprocal;
    } const rows[] = {{"b", true, true},       {"other", true, false},  {"lost", false, false}, {"twin", true, true},
                      {"wrong", false, false}, {"alone", false, false}, {"c", true, false}};
    for (auto const& [name, hasInverse, isReciprocal] : rows) {
        EXPECT_EQ(all.at(name)->inverseRelationship() != nullptr, hasInverse) << name;
        EXPECT_EQ(all.at(name)->isReciprocal(), isReciprocal) << name;
    }
}

TEST(ModelDocument, FlattensComposites) {
    auto const model = loaded(R"(
        <entity name="E">
            <attribute name="home" optional="YES" attributeType="Composite" composite="Address" elementID="house"/>
        </entity>
        <composite name="Address"><attribute name="street" attributeType="String"/>
            <attribute name="at" attributeType="Composite" composite="Point"/></composite>
        <composite name="Point"><attribute name="x" attributeType="Double" defaultValueString="1.5"/></composite>)");
    ASSERT_TRUE(model);
    EXPECT_EQ(model->entityNamed("E")->attributes().size(), 2U);
    auto const& x = attributeOf(model, "home_at_x");
    EXPECT_EQ(x.defaultValue(), Value(1.5));
    EXPECT_TRUE(x.isOptional());
    EXPECT_EQ(x.renamingIdentifier(), "house_at_x");
}

TEST(ModelDocument, RefusesWhatContradictsItself) {
    std::string doubling;
    for (int at = 0; at < 15; ++at) {
        auto const next = "' attributeType='Composite' composite='C" + std::to_string(at + 1) + "'/>";
        doubling += "<composite name='C" + std::to_string(at) + "'><attribute name='a" + next + "<attribute name='b" + next +
                    "</composite>";
    }
    auto const composite = [](std::string const& name) {
        return "<attribute name='a' attributeType='Composite' composite='" + name + "'/>";
    };
    std::string const attribute = "<attribute name='a' attributeType='String'/>";
    struct {
        std::string elements;
        char const* problem;
    } const rows[] = {
        {entity("E") + entity("E"), "two entities are named E"},
        {entity(""), "has no name"},
        {entity("E", "<attribute attributeType='String'/>"), "has no name"},
        {entity("E", attribute + attribute), "two properties of E are named a"},
        {entity("E", attribute) + entity("S", attribute, "parentEntity='E'"), "two properties of S are named a"},
        {entity("E", attribute + "<relationship name='a' destinationEntity='E'/>"), "two properties of E are named a"},
        {entity("E", {}, "parentEntity='P'"), "the parent P of E is missing"},
        {entity("E", {}, "parentEntity='F'") + entity("F", {}, "parentEntity='E'"), "inherits from itself"},
        {entity("E", {}, "parentEntity='E'"), "inherits from itself"},
        {entity("E", "<relationship name='r' destinationEntity='F'/>"), "the destination F of E.r is missing"},
        {entity("E", "<relationship name='r'/>"), "the destination  of E.r is missing"},
        {entity("E", "<attribute name='a' attributeType='Colour'/>"), "unknown type Colour"},
        {entity("E", composite("C")), "the composite C of E.a is missing"},
        {entity("E", composite("C")) + "<composite name='C'>" + composite("C") + "</composite>", "holds itself"},
        {entity("E", composite("C0")) + doubling + "<composite name='C15'>" + attribute + "</composite>", "too large"},
        {"</model><model>", "not well-formed"},
        {"</model>text<model>", "not well-formed"},
        {"<entity name='E'>", "not well-formed"},
        {"\n<<<<<<< HEAD\n" + entity("E") + "\n=======\n" + entity("F") + "\n>>>>>>> branch\n", "unfinished merge"},
        {"\n=======\n", "unfinished merge"},
        {entity("\xFF"), "not UTF-8"},
        {entity("a&#10;b"), R"(the entity "a\nb": there is a control character in its name)"},
        {entity("E", "<attribute name='a.b' attributeType='String'/>"), R"(the attribute "E"."a.b": no key path reaches)"},
        {entity("E", "<relationship name='@r' destinationEntity='E'/>"), R"(the relationship "E"."@r": no key path reaches)"},
        {entity("E", attribute + "<fetchIndex name='&#9;'/>"), R"(the index "E"."\t": there is a control)"},
    };
    for (auto const& [elements, problem] : rows) {
        std::string reason;
        EXPECT_EQ(loaded(elements, &reason), nullptr) << elements;
        EXPECT_NE(reason.find(problem), std::string::npos) << elements << ": " << reason;
    }
    for (auto const* text : {"", "model", "<plist/>", "<?xml version='1.0'?>", "<model", "\n", "{}"}) {
        std::string reason;
        EXPECT_FALSE(parseModelDocument(text, reason)) << text;
        EXPECT_FALSE(reason.empty());
    }
}
