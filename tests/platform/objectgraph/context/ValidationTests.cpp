// What a form asks about one field is what a save would say.
#include "Library.h"
#include "Tessarin/platform/objectgraph/model/NSValidationError.h"
#include <cmath>

using namespace Tessarin;
using namespace Tessarin::tests;

TEST(Validation, OfOneFieldSaysWhatTheSaveWouldSay) {
    using Type = NSAttributeType;
    auto const model = ModelBuilder()
                           .entity("Form")
                           .attribute("title", Type::String, {.optional = false, .minimum = 2, .maximum = 5})
                           .attribute("pages", Type::Integer16, {.minimum = 1, .maximum = 40'000})
                           .attribute("rate", Type::Double, {.optional = false})
                           .attribute("draft", Type::String, {.optional = false, .transient = true})
                           .toOne("owner", "Owner", {.optional = false})
                           .toMany("readers", "Owner", {.optional = false, .minCount = 2})
                           .entity("Owner")
                           .build();
    auto const context = contextOver(coordinatorOver(model)), elsewhere = contextOver(context->persistentStoreCoordinator());
    auto const newOwner = [](auto const& where) { return Value(inserted(*where, "Owner", {})); };
    auto const owner = newOwner(context), other = newOwner(context), stranger = newOwner(elsewhere);
    Dictionary const good{{"title", "abc"}, {"rate", 1.5}, {"owner", owner}, {"readers", ValueSet{owner, other}}};
    constexpr int missing = 1570, wrong = 1550, tooWide = 1660;
    struct {
        char const* key;
        Value value;
        int code; // 0: none; a wrong kind is fatal for a setter
    } const rows[] = {
        {"title", "abc", 0},         {"title", nullptr, missing},     {"title", "a", 1670},      {"title", 12, wrong},
        {"pages", 0, 1620},          {"pages", 2.9, 0},               {"pages", 40'000, tooWide}, {"pages", "twelve", wrong},
        {"pages", 0.9, 1620},        {"rate", std::nan(""), missing}, {"draft", nullptr, 0},     {"draft", 12, wrong},
        {"owner", nullptr, missing}, {"owner", other, 0},             {"owner", stranger, wrong}, {"owner", "Ann", wrong},
        {"readers", ValueSet{}, missing},
        {"readers", List{owner, owner}, 1580},
        {"readers", List{owner, other, owner}, 0},
        {"readers", owner, wrong}};
    for (auto const& [key, value, code] : rows) {
        SCOPED_TRACE(std::string(key) + " = " + value.description());
        auto const form = inserted(*context, "Form", good);
        auto const before = form->changedValues();
        auto const told = form->validate(Attribute<int>(key), value);
        EXPECT_TRUE(form->changedValues() == before && (told ? told->code() : 0) == code) << (told ? told->description() : "");
        if (code != wrong) {
            form->setValueForKey(value, key);
            auto const atSave = form->validateForSave();
            EXPECT_EQ(told ? told->description() : "", atSave ? atSave->description() : "") << "with all of its userInfo";
        }
        context->deleteObject(*form);
    }
}
