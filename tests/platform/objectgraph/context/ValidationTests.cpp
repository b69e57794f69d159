// What a form asks about one field is what a save would say.
#include "Library.h"
#include "Tessarin/platform/objectgraph/model/NSValidationError.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
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
    } const rows[] = {{"title", "abc", 0},
                      {"title", nullptr, missing},
                      {"title", "a", 1670},
                      {"title", 12, wrong},
                      {"pages", 0, 1620},
                      {"pages", 2.9, 0},
                      {"pages", 40'000, tooWide},
                      {"pages", "twelve", wrong},
                      {"pages", 0.9, 1620},
                      {"rate", std::nan(""), missing},
                      {"draft", nullptr, 0},
                      {"draft", 12, wrong},
                      {"owner", nullptr, missing},
                      {"owner", other, 0},
                      {"owner", stranger, wrong},
                      {"owner", "Ann", wrong},
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

namespace {

/// Does as the name says, each time that a save asks.
class Restless : public NSManagedObject {
    void act() {
        auto const what = valueForKey("name");
        Ref<NSError> error;
        if (what == Value("saves")) moc()->save(error);
        if (what == Value("inserts")) inserted(*moc(), "Restless", {{"name", what}, {"when", valueForKey("when")}});
        if (auto const next = what == Value("changes") ? valueForKey("next") : Value(); next.object())
            std::static_pointer_cast<NSManagedObject>(next.object())->setValueForKey("changes", "name");
    }

public:
    void willSave() override {
        if (valueForKey("when") != Value("validate")) act();
    }
    Ref<NSError> validateForSave() override {
        if (valueForKey("when") == Value("validate")) act();
        return NSManagedObject::validateForSave();
    }
};

class Unwilling : public NSManagedObject {
public:
    void awakeFromInsert() override { throw std::runtime_error("unwilling"); }
};

} // namespace

TEST(Validation, AnObjectWhoseFirstHookThrowsIsNotInserted) {
    auto const name = registerClass<Unwilling, NSManagedObject>().name();
    auto const context = contextOver(coordinatorOver(ModelBuilder().entity("Unwilling", {.className = name}).build()));
    context->performBlockAndWait([&] {
        EXPECT_THROW(context->insertNewObject("Unwilling"), std::runtime_error);
        EXPECT_FALSE(context->hasChanges());
    });
}

TEST(Validation, HooksThatSaveOrInsertForEverAreToldAnEnd) {
    auto const model = ModelBuilder()
                           .entity("Restless", {.className = registerClass<Restless, NSManagedObject>().name()})
                           .attribute("name", NSAttributeType::String)
                           .attribute("when", NSAttributeType::String)
                           .toOne("next", "Restless")
                           .build();
    for (auto const* when : {"announce", "validate"})
        for (auto const* what : {"saves", "inserts"}) {
            auto const context = contextOver(coordinatorOver(model));
            inserted(*context, "Restless", {{"name", what}, {"when", when}});
            Ref<NSError> error;
            bool const isSaved = context->save(error);
            bool const savesWithin = std::string_view(what) == "saves"; // the innermost is told, and the others go on
            EXPECT_EQ(isSaved, savesWithin) << when << " " << what;
            EXPECT_EQ(error ? error->code() : 0, savesWithin ? 0 : static_cast<int>(StoreErrorCode::SaveWithoutEnd));
        }
    auto const context = contextOver(coordinatorOver(model));
    std::vector<Ref<NSManagedObject>> chain{inserted(*context, "Restless", {{"name", "changes"}})};
    for (int at = 0; at < 3000; ++at) chain.push_back(inserted(*context, "Restless", {{"name", "rests"}}));
    for (std::size_t at = 1; at < chain.size(); ++at) chain[at - 1]->setValueForKey(chain[at], "next");
    chain.front()->setValueForKey("rests", "name");
    Ref<NSError> error;
    ASSERT_TRUE(context->save(error));
    chain.front()->setValueForKey("changes", "name");
    EXPECT_TRUE(context->save(error)) << "each changes one that exists: that has an end, however far";
    EXPECT_EQ(chain.back()->valueForKey("name"), Value("changes"));
}
