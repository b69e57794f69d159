// What a form asks about one field is what a save would say.
#include "Library.h"
#include "Tessarin/platform/objectgraph/model/NSValidationError.h"
#include <cmath>

using namespace Tessarin;
using namespace Tessarin::tests;

namespace {

using Type = NSAttributeType;
struct Form : NSManagedObject {
    static inline Attribute<std::string> const title{"title"};
    static inline Attribute<int> const pages{"pages"};
    static inline ToOne<NSManagedObject> const owner{"owner"};
};

Ref<NSManagedObjectModel> formModel() {
    return ModelBuilder()
        .entity("Form")
        .attribute("title", Type::String, {.optional = false, .minimum = 2, .maximum = 5})
        .attribute("code", Type::String, {.regularExpression = "[A-Z]+"})
        .attribute("pages", Type::Integer16, {.minimum = 1, .maximum = 40'000})
        .attribute("date", Type::Date, {.minimum = 0})
        .attribute("rate", Type::Double, {.optional = false})
        .attribute("draft", Type::String, {.optional = false, .transient = true})
        .attribute("shape", Type::Transformable)
        .toOne("owner", "Owner", {.optional = false})
        .toMany("readers", "Owner", {.optional = false, .minCount = 2, .maxCount = 2})
        .entity("Owner")
        .attribute("name", Type::String)
        .build();
}

} // namespace

TEST(Validation, OfOneFieldSaysWhatTheSaveWouldSay) {
    auto const context = contextOver(coordinatorOver(formModel()));
    auto const owner = inserted(*context, "Owner", {}), other = inserted(*context, "Owner", {});
    Dictionary const good{{"title", "abc"}, {"rate", 1.5}, {"owner", Value(owner)}, {"readers", ValueSet{Value(owner), Value(other)}}};
    struct {
        char const* key;
        Value value;
        NSValidationError code; // 0: none
    } const rows[] = {
        {"title", "abc", {}},
        {"title", nullptr, NSValidationError::MissingMandatoryProperty},
        {"title", "a", NSValidationError::StringTooShort},
        {"title", "abcdef", NSValidationError::StringTooLong},
        {"code", nullptr, {}},
        {"code", "Ab", NSValidationError::StringPatternMatching},
        {"pages", 0, NSValidationError::NumberTooSmall},
        {"pages", 2.9, {}},
        {"pages", 40'000, static_cast<NSValidationError>(1660)}, // wider than the attribute
        {"date", NSDate::dateWithTimeIntervalSinceReferenceDate(-1), NSValidationError::DateTooSoon},
        {"rate", std::nan(""), NSValidationError::MissingMandatoryProperty},
        {"draft", nullptr, {}},
        {"owner", nullptr, NSValidationError::MissingMandatoryProperty},
        {"owner", Value(other), {}},
        {"readers", ValueSet{}, NSValidationError::MissingMandatoryProperty},
        {"readers", ValueSet{Value(owner)}, NSValidationError::RelationshipLacksMinimumCount},
        {"readers", List{Value(owner), Value(other), Value(owner)}, {}}, // the same twice is one
    };
    for (auto const& [key, value, code] : rows) {
        SCOPED_TRACE(std::string(key) + " = " + value.description());
        auto const form = inserted(*context, "Form", good);
        auto const before = form->changedValues();
        auto const told = form->validateValueForKey(value, key);
        EXPECT_EQ(form->changedValues(), before);
        EXPECT_EQ(told ? told->code() : 0, static_cast<std::int64_t>(code));
        form->setValueForKey(value, key);
        auto const atSave = form->validateForSave();
        ASSERT_EQ(static_cast<bool>(told), static_cast<bool>(atSave)) << (atSave ? atSave->description() : "");
        if (told) { EXPECT_TRUE(told->domain() == atSave->domain() && told->userInfo() == atSave->userInfo()) << told->description(); }
        context->deleteObject(*form);
    }
}

TEST(Validation, WhatASetterWouldNotTakeIsAnErrorThere) {
    auto const context = contextOver(coordinatorOver(formModel())), elsewhere = contextOver(context->persistentStoreCoordinator());
    auto const form = inserted(*context, "Form", {});
    auto const stranger = inserted(*elsewhere, "Owner", {});
    auto const wrong = static_cast<std::int64_t>(NSValidationError::WrongKind);
    EXPECT_EQ(form->validate(Form::pages, "twelve")->code(), wrong);
    EXPECT_EQ(form->validate(Form::title, 12)->code(), wrong);
    EXPECT_EQ(form->validateValueForKey(12, "draft")->code(), wrong);
    for (auto const& value : {Value("Ann"), Value(form), Value(stranger), Value(List{})})
        EXPECT_EQ(form->validate(Form::owner, value)->code(), wrong) << value.description();
    EXPECT_EQ(form->validateValueForKey(Value(stranger), "readers")->code(), wrong);
    EXPECT_FALSE(form->validate(Form::pages, 12));
    EXPECT_FALSE(form->validate(Form::title, "abc"));
    EXPECT_DEATH(form->validateValueForKey(1, "nothing"), "no property \"nothing\"");
}
