#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "Tessarin/platform/objectgraph/model/NSValidationError.h"
#include "Tessarin/platform/objectgraph/model/StableHashPrivate.h"
#include "Tessarin/platform/runtime/FunctionRef.h"

#include <algorithm>
#include <fmt/format.h>
#include <gtest/gtest.h>

using namespace Tessarin;

namespace {

using Type = NSAttributeType;

ModelBuilder library() {
    ModelBuilder builder{"1"};
    builder.entity("Person", {.isAbstract = true})
        .attribute("name", Type::String, {.optional = false})
        .toMany("books", "Book", {.inverse = "people"})
        .entity("Author", {.parent = "Person"})
        .attribute("pen", Type::String)
        .entity("Poet", {.parent = "Author"})
        .attribute("metre", Type::Integer16, {.defaultValue = 5.0})
        .entity("Book")
        .attribute("title", Type::String)
        .toMany("people", "Person", {.inverse = "books"})
        .unique({"title"});
    return builder;
}

IndexDefinition const byTitle{"i", {{"title", true}}};
AttributeDefinition dated(AttributeOptions options = {}) { return {"x", Type::Date, std::move(options)}; }

/// The hash of Book after one change of its description.
std::string hashAfter(FunctionRef<void(EntityDefinition&)> change) {
    auto definition = library().definition();
    change(definition.entities.back());
    return NSManagedObjectModel::modelWithDefinition(std::move(definition))->entityNamed("Book")->versionHash();
}

} // namespace

// Files keep hashes: a number is hashed as its eight bytes were in every version, however many of them are zero.
TEST(StableHash, ANumberIsItsEightBytes) {
    __extension__ using Wide = unsigned __int128;
    for (std::uint64_t const number : {0ULL, 1ULL, 255ULL, 256ULL, 0x10000ULL, 0xFF00FF00ULL, 1ULL << 56, ~0ULL}) {
        auto state = (Wide{0x6c62272e07bb0142} << 64) | 0x62b821756295c58d;
        for (int byte = 0; byte < 8; ++byte) state = (state ^ ((number >> (8 * byte)) & 255)) * ((Wide{1} << 88) + 0x13B);
        EXPECT_EQ(StableHash().add(number).hex(), fmt::format("{:032x}", state)) << number;
    }
}

TEST(Model, InheritedPropertiesKeepTheirPlaces) {
    auto const model = library().build();
    auto const *person = model->entityNamed("Person"), *poet = model->entityNamed("Poet");
    ASSERT_EQ(poet->properties().size(), 4U);
    for (auto const* property : poet->properties()) {
        EXPECT_EQ(poet->properties()[property->index()], property);
        EXPECT_EQ(property->entity()->properties()[property->index()], property);
        EXPECT_EQ(poet->propertyNamed(property->name()), property);
    }
    EXPECT_EQ(poet->propertyNamed("title"), nullptr);
    EXPECT_EQ(poet->propertyNamed(""), nullptr);
    EXPECT_EQ(person->properties().size(), 2U);
    EXPECT_EQ(poet->rootEntity(), person);
    EXPECT_EQ(person->subentities().size(), 1U);
    EXPECT_TRUE(poet->isKindOf(person) && poet->isKindOf(poet) && !person->isKindOf(poet));
    EXPECT_EQ(poet->attributesByName().at("metre")->defaultValue().kind(), Value::Kind::Integer);
    EXPECT_EQ(poet->managedObjectClassName(), "NSManagedObject");
    EXPECT_TRUE(poet->relationshipsByName().at("books")->isReciprocal());
    EXPECT_EQ(model->entities()[poet->index()].get(), poet);
    EXPECT_EQ(model->entityNamed("Nobody"), nullptr);
}

TEST(Model, HashChangesWithStorageAndWithNothingElse) {
    auto const original = hashAfter([](auto&) {});
    EXPECT_EQ(original, "0731b1242fd42ac5f4948237409b9da9"); // stands in files: never changes
    struct {
        char const* what;
        void (*change)(EntityDefinition&);
        bool changes;
    } const rows[] = {
        {"name of an attribute", [](auto& e) { e.attributes[0].name = e.uniquenessConstraints[0][0] = "t"; }, true},
        {"type", [](auto& e) { e.attributes[0].type = Type::Date; }, true},
        {"mandatory", [](auto& e) { e.attributes[0].options.optional = false; }, true},
        {"stored beside", [](auto& e) { e.attributes[0].options.allowsExternalBinaryDataStorage = true; }, true},
        {"one more", [](auto& e) { e.attributes.push_back(dated()); }, true},
        {"to-one", [](auto& e) { e.relationships[0].toMany = false; }, true},
        {"ordered", [](auto& e) { e.relationships[0].options.ordered = true; }, true},
        {"one-way", [](auto& e) { e.relationships[0].options.inverse.clear(); }, true},
        {"destination", [](auto& e) { e.relationships[0].destination = "Author"; }, true},
        {"parent", [](auto& e) { e.options.parent = "Person", e.relationships.clear(); }, true},
        {"constraint", [](auto& e) { e.uniquenessConstraints.clear(); }, true},
        {"index", [](auto& e) { e.indexes.push_back(byTitle); }, true},
        {"modifier", [](auto& e) { e.attributes[0].options.versionHashModifier = "2"; }, true},
        {"transient", [](auto& e) { e.attributes.push_back(dated({.transient = true})); }, false},
        {"default", [](auto& e) { e.attributes[0].options.defaultValue = "x"; }, false},
        {"bounds", [](auto& e) { e.attributes[0].options.maximum = 5; }, false},
        {"delete rule", [](auto& e) { e.relationships[0].options.deleteRule = NSDeleteRule::Deny; }, false},
        {"former name", [](auto& e) { e.attributes[0].options.renamingIdentifier = "old"; }, false},
        {"class", [](auto& e) { e.options.className = "C"; }, false},
        {"empty constraint", [](auto& e) { e.uniquenessConstraints.push_back({}); }, false},
        {"constraint of the unknown", [](auto& e) { e.uniquenessConstraints.push_back({"gone"}); }, false},
    };
    for (auto const& [what, change, changes] : rows) EXPECT_EQ(hashAfter(change) != original, changes) << what;

    auto reversed = library().definition();
    std::ranges::reverse(reversed.entities);
    EXPECT_EQ(NSManagedObjectModel::modelWithDefinition(reversed)->versionHash(), library().build()->versionHash());
    EXPECT_EQ(NSManagedObjectModel::modelWithDefinition(library().build()->definition())->versionHash(),
              library().build()->versionHash());
}

TEST(Model, ValidatesValues) {
    auto const model = ModelBuilder()
                           .entity("E")
                           .attribute("must", Type::Boolean, {.optional = false})
                           .attribute("age", Type::Integer16, {.minimum = -1, .maximum = 100000})
                           .attribute("price", Type::Decimal, {.minimum = 0.5})
                           .attribute("word", Type::String, {.minimum = 2, .maximum = 3, .regularExpression = "[a-zé]*"})
                           .attribute("day", Type::Date, {.minimum = 0, .maximum = 10})
                           .attribute("odd", Type::String, {.regularExpression = "("})
                           .attribute("any", Type::Transformable)
                           .build();
    using Problem = NSValidationError;
    constexpr auto fine = static_cast<Problem>(0);
    struct {
        char const* name;
        Value value;
        Problem expected;
    } const rows[] = {
        {"must", {}, Problem::MissingMandatoryProperty},
        {"must", false, fine},
        {"age", {}, fine},
        {"age", -1, fine},
        {"age", -2, Problem::NumberTooSmall},
        {"age", 100001, Problem::NumberTooLarge},
        {"age", "5", Problem::WrongKind},
        {"price", Decimal::fromText("0.49").value(), Problem::NumberTooSmall},
        {"price", 0.5, fine},
        {"word", "é", Problem::StringTooShort},
        {"word", "éé", fine},
        {"word", "abcd", Problem::StringTooLong},
        {"word", "ab1", Problem::StringPatternMatching},
        {"day", Value::date(-1), Problem::DateTooSoon},
        {"day", Value::date(11), Problem::DateTooLate},
        {"odd", "anything", fine},
        {"any", List{1}, fine},
    }; // "éé": four bytes, two code points
    for (auto const& [name, value, expected] : rows) {
        auto const error = model->entityNamed("E")->propertyNamed(name)->asAttribute()->validate(value);
        EXPECT_EQ(error ? error->code() : 0, static_cast<int>(expected)) << name << ' ' << value;
        if (!error) continue;
        EXPECT_TRUE(error->localizedDescription().starts_with("E." + std::string{name} + " ")) << *error;
        EXPECT_EQ(error->userInfo()[NSValidationKeyErrorKey], Value(name));
    }
}

TEST(Model, ValidatesCounts) {
    struct {
        bool optional;
        std::size_t minimum, maximum, count;
        bool fine;
    } const rows[] = {{true, 2, 3, 0, true},   {true, 2, 3, 1, true},   {true, 2, 3, 4, false}, {false, 0, 0, 0, false},
                      {false, 2, 0, 1, false}, {false, 2, 0, 99, true}, {false, 2, 3, 3, true}};
    for (auto const& [optional, minimum, maximum, count, fine] : rows) {
        auto const model =
            ModelBuilder().entity("E").toMany("r", "E", {.optional = optional, .minCount = minimum, .maxCount = maximum}).build();
        EXPECT_EQ(model->entityNamed("E")->relationships().front()->validateCount(count) == nullptr, fine)
            << minimum << ' ' << count;
    }
}

TEST(Model, BuilderIsFatalWhereTheDescriptionIsWrong) {
    EXPECT_DEATH(ModelBuilder().entity("E").toOne("r", "F").build(),
                 "the model cannot be built: the destination F of E.r is missing");
    EXPECT_DEATH(ModelBuilder().entity("E").attribute("", Type::String).build(), "a property of E has no name");
    EXPECT_DEATH(ModelBuilder().entity("E").attribute({"a\0b", 3}, Type::String).build(),
                 R"(the attribute "E"."a\\u0000b": there is a control)");
    EXPECT_DEATH(ModelBuilder().entity("\xC3").build(), R"(the entity "\\xC3": its name is not UTF-8)");
    EXPECT_DEATH(ModelBuilder().attribute("a", Type::String), "attribute stands before the first entity");
    EXPECT_DEATH(ModelBuilder().entity("E").toOne("r", "E", {.inverse = "s"}).build(), "the inverse of E.r, E.s, is no relation");
    EXPECT_DEATH(ModelBuilder().entity("E").unique({"a"}).build(), "E.a, which is to be unique, is missing");
    EXPECT_DEATH(ModelBuilder().entity("E").index("i", {{"a"}}).build(), "E.a, which the index i names, is missing");
}
