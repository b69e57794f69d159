#include "tests/store/StoreFixture.h"

namespace Tessarin {
namespace {
using namespace tests;

struct Renamed : NSManagedObject {
    static std::string entityName() { return "Customer"; }
};

TEST(ObjectHelpers, EntityNameIsTheLastPieceUnlessTheClassSaysOtherwise) {
    EXPECT_EQ(entityName<Person>(), "Person");
    EXPECT_EQ(entityName<Renamed>(), "Customer");
    EXPECT_EQ(NSManagedObject::entityName(), "NSManagedObject");
    EXPECT_EQ(lastPieceOfClassName("App.Person"), "Person");
    EXPECT_EQ(lastPieceOfClassName("Person"), "Person");
}

TEST(ObjectHelpers, BracketsReadWriteAndClearAndRefreshDropsThatWhenAsked) {
    auto const context = contextInMemory();
    context->performBlockAndWait([&] {
        auto const ada = insert(*context, "Person", "Ada");
        Value const name = (*ada)["name"];
        EXPECT_EQ(name, "Ada");
        EXPECT_TRUE((*ada)["age"].get().isAbsent());
        context->saveAndWait();
        (*ada)["name"] = {};
        EXPECT_TRUE(ada->valueForKey("name").isAbsent());
        ada->refreshInContext(); // keeps what is unsaved
        EXPECT_TRUE(ada->valueForKey("name").isAbsent());
        ada->refreshInContext(false);
        EXPECT_EQ(ada->valueForKey("name"), "Ada");
        EXPECT_DEATH((*ada)["shoes"] = 1, "shoes");
        for (auto const* key : {"name", "boss", "pets"}) EXPECT_TRUE(ada->hasPropertyForKey(key)) << key;
        EXPECT_FALSE(ada->hasPropertyForKey("shoes"));
        EXPECT_EQ(printedBy([&] { ada->log(); }), ada->description() + "\n");
    });
}

TEST(ObjectHelpers, TokensCrossQueuesAndKeepNothingButTheIdentity) {
    auto const root = contextInMemory(), worker = childOf(root);
    using Token = NSManagedObject::ThreadsafeToken;
    std::vector<Ref<Token>> tokens;
    Ref<NSManagedObject> ada;
    root->performBlockAndWait([&] {
        ada = insert(*root, "Person", "Ada");
        auto const early = ada->threadsafeToken(); // taken before the record has its permanent identity
        root->saveAndWait();
        tokens = threadsafeTokens(std::vector{ada, insert(*root, "Pet", "Rex"), insert(*root, "Person", "Bob")});
        tokens.push_back(early);
        EXPECT_EQ(early->objectID(), ada->objectID());
        root->saveAndWait();
    });
    EXPECT_EQ(ada.use_count(), 1) << "a token keeps no object";
    worker->performBlockAndWait([&] {
        auto const people = worker->reconstitute<Person>(tokens);
        ASSERT_EQ(people.size(), 3u) << "the pet is left out";
        EXPECT_EQ(people[0]->valueForKey("name"), "Ada");
        EXPECT_EQ(people[1]->valueForKey("name"), "Bob");
        EXPECT_EQ(people[2], people[0]);
        EXPECT_EQ(people[0]->moc(), worker);
        EXPECT_EQ(worker->reconstitute<Person>(tokens[0]), people[0]);
        EXPECT_FALSE(worker->reconstitute<Pet>(tokens[0]));
        EXPECT_FALSE(worker->reconstitute<Person>(Ref<Token>()));
        EXPECT_EQ(worker->reconstitute(std::static_pointer_cast<Person>(ada)), people[0]) << "an object of another context";
        EXPECT_FALSE(worker->reconstitute(Ref<Person>()));
        EXPECT_EQ(ada->objectInContext(*worker), people[0]);
    });
    EXPECT_DEATH(make<Token>(), "unimplemented initializer 'init\\(\\)' for class .*ThreadsafeToken");
}

TEST(ObjectHelpers, DeletionIsPendingUnlessItIsToBeSavedToTheStore) {
    auto const root = contextInMemory(), worker = childOf(root);
    root->performBlockAndWait([&] {
        for (auto const* name : {"Ada", "Bob"}) insert(*root, "Person", name);
        root->saveAndWait();
    });
    worker->performBlockAndWait([&] {
        auto const people = worker->allObjects("Person");
        people[0]->deleteFromContext();
        EXPECT_TRUE(people[0]->isDeleted());
        EXPECT_EQ(countInStore(*root, "Person"), 2);
        people[1]->deleteFromContext(true);
        EXPECT_EQ(countInStore(*root, "Person"), 0);
        EXPECT_FALSE(people[1]->moc());
        people[1]->deleteFromContext(true); // without a context nothing happens
        people[1]->refreshInContext();
    });
}

} // namespace
} // namespace Tessarin
