// Values that must be unique: who is told, who gives way, and that what a store will never take stands in nobody's way.
#include "Library.h"
#include "Tessarin/platform/sqlite/Connection.h"

using namespace Tessarin;
using namespace Tessarin::tests;

namespace {

/// Contexts beneath a root over a model with a unique name; and somebody else with the same records: another coordinator of the
/// file, or another root context where there is no file.
struct Kennel {
    explicit Kennel(char const* type) {
        coordinator = opened(type);
        root = contextOver(coordinator);
        main = childOf(root);
        there = contextOver(type == std::string("InMemory") ? coordinator : opened(type));
    }
    Ref<NSPersistentStoreCoordinator> opened(char const* type) const {
        using Type = NSAttributeType;
        return coordinatorOver(ModelBuilder()
                                   .entity("Person")
                                   .attribute("name", Type::String)
                                   .attribute("age", Type::Integer16)
                                   .attribute("nick", Type::String)
                                   .attribute("town", Type::String)
                                   .toMany("dogs", "Dog", {.inverse = "owner"})
                                   .unique({"name"})
                                   .entity("Dog")
                                   .toOne("owner", "Person", {.inverse = "dogs"})
                                   .build(),
                               type, file);
    }
    /// Names of people, sorted, and how many dogs, as a new child of a context sees them.
    static std::string seenBelow(Ref<NSManagedObjectContext> const& context) {
        auto const child = childOf(context);
        return listed(fetched(*child, "Person", nullptr, {by("name")}), "name") + " " +
               std::to_string(fetched(*child, "Dog").size());
    }
    std::string saved() const { return seenBelow(there); }

    TemporaryFolder folder;
    NSURL file = folder.url("kennel.db");
    Ref<NSPersistentStoreCoordinator> coordinator;
    Ref<NSManagedObjectContext> root, main, there;
};

class Uniqueness : public ::testing::TestWithParam<char const*> {
protected:
    Kennel kennel{GetParam()};
    Ref<NSManagedObjectContext> const root = kennel.root, main = kennel.main, there = kennel.there;
    Ref<NSError> error;

    Ref<NSManagedObject> handedUp(char const* entity, Dictionary const& values) {
        auto const worker = childOf(main);
        inserted(*worker, entity, values);
        EXPECT_TRUE(saves(*worker));
        return fetched(*main, entity).back();
    }
};

} // namespace

TEST_P(Uniqueness, RefusedChangesHoldUpNobodyAndAreTold) {
    auto const ann = handedUp("Person", {{"name", "Ann"}});
    handedUp("Person", {{"name", "Bob"}});
    auto const worker = childOf(main);
    inserted(*worker, "Dog", {{"owner", Value(worker->objectWithID(*ann->objectID()))}});
    EXPECT_TRUE(saves(*worker));
    inserted(*there, "Person", {{"name", "Ann"}});
    ASSERT_TRUE(saves(*there));

    std::string told;
    auto const listener = listening(root, NSManagedObjectContextDidRefuseChangesNotification, [&](auto const& notification) {
        told += std::to_string(notification->userInfo().dictionary()[NSRefusalErrorKey].template objectAs<NSError>()->code()) +
                ":" + std::to_string(notification->userInfo().dictionary()[NSInsertedObjectsKey].set().size()) + " ";
    });
    ASSERT_TRUE(saves(*main));
    ASSERT_TRUE(saves(*root));
    EXPECT_EQ(kennel.saved(), "Ann,Bob 0");
    EXPECT_EQ(told, "133021:1 133022:1 ");
    EXPECT_EQ(root->refusalReasons().size(), 2u);
    EXPECT_FALSE(root->hasChanges());
    EXPECT_EQ(Kennel::seenBelow(main), "Ann,Ann,Bob 1") << "shown until it is given up";

    auto const both = childOf(main);
    inserted(*both, "Person", {{"name", "Cid"}});
    EXPECT_TRUE(both->saveThrough(error)) << "somebody else's changes are not refused";
    both->objectWithID(*ann->objectID())->setValueForKey(7, "age");
    Ref<NSError> reported;
    both->saveToDisk({.completion = [&](auto const& reason) { reported = reason; }});
    ASSERT_TRUE(reported);
    EXPECT_EQ(reported->code(), 133022);
    EXPECT_EQ(kennel.saved(), "Ann,Bob,Cid 0");

    if (std::string_view(GetParam()) == "SQLite") { // which cannot be read for a while
        auto const refused = root->refusalReasons().size();
        SQLite::Connection(kennel.file.path()).execute("ALTER TABLE Person RENAME TO Hidden");
        EXPECT_THROW(root->rollback(), ErrorException);
        SQLite::Connection(kennel.file.path()).execute("ALTER TABLE Hidden RENAME TO Person");
        EXPECT_EQ(root->refusalReasons().size(), refused);
    }
    root->rollback();
    EXPECT_EQ(Kennel::seenBelow(main), "Ann,Bob,Cid 0");
    main->performBlockAndWait([&] { EXPECT_FALSE(ann->managedObjectContext()); });
    EXPECT_TRUE(root->refusalReasons().empty());
}

TEST_P(Uniqueness, RefusedChangesOfTheRootItselfStayUnsavedThereWhileOthersAreSaved) {
    handedUp("Person", {{"name", "Bob"}});
    ASSERT_TRUE(saves(*main));
    auto const ann = inserted(*root, "Person", {{"name", "Ann"}, {"age", 3}});
    inserted(*there, "Person", {{"name", "Ann"}});
    ASSERT_TRUE(saves(*there));
    EXPECT_FALSE(root->save(error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), 133021);
    EXPECT_TRUE(ann->isInserted());
    EXPECT_EQ(ann->valueForKey("age"), Value(3));
    ann->setValueForKey("Eva", "name");
    EXPECT_TRUE(saves(*root));
    EXPECT_EQ(kennel.saved(), "Ann,Bob,Eva 0");
    EXPECT_TRUE(root->refusalReasons().empty());
}

TEST_P(Uniqueness, ThePolicyDecidesWhatBecomesOfANewObjectWithTheValuesOfAnother) {
    using Policy = NSMergePolicyType;
    struct {
        Policy policy;
        char const* expected; // age, nick, town
        char const* overruled;
    } const rows[] = {{Policy::Error, "", ""},
                      {Policy::MergeByPropertyStoreTrump, "3 Nan Rome", "own age 7>3"},
                      {Policy::MergeByPropertyObjectTrump, "7 Nan Rome", "theirs age 3>7"},
                      {Policy::Overwrite, "7 Nan nil", "theirs age 3>7; theirs town Rome>-"},
                      {Policy::Rollback, "3 nil Rome", "own age 7>3; own nick Nan>-"}};
    int round = 0;
    for (auto const* place : {"in the store", "handed up", "in the same save"})
        for (auto const& [policy, expected, overruled] : rows) {
            SCOPED_TRACE(std::string(place) + ", policy " + std::to_string(static_cast<int>(policy)));
            auto const name = "P" + std::to_string(round++);
            auto const worker = childOf(main);
            worker->setMergePolicy(make<NSMergePolicy>(policy));
            auto const where = place == std::string("in the store") ? there
                               : place == std::string("handed up")  ? childOf(main)
                                                                    : worker;
            auto const first = inserted(*where, "Person", {{"name", name}, {"age", 3}, {"town", "Rome"}});
            if (where != worker) {
                ASSERT_TRUE(saves(*where));
            }
            auto const second = inserted(*worker, "Person", {{"name", name}, {"age", 7}, {"nick", "Nan"}});
            auto const dog = inserted(*worker, "Dog", {{"owner", Value(second)}});
            if (policy == Policy::Error) {
                EXPECT_FALSE(worker->save(error));
                ASSERT_EQ(error->code(), 133021);
                auto const conflict = error->userInfo()[NSConflictListKey].list().front().objectAs<NSMergeConflict>();
                EXPECT_EQ(conflict->sourceObject(), second);
                EXPECT_EQ(conflict->uniqueProperties(), std::vector<std::string>{"name"});
                EXPECT_EQ(conflict->existingObject()->valueForKey("age"), Value(3));
                second->setValueForKey(name + "b", "name");
                EXPECT_TRUE(saves(*worker)) << "nothing was lost";
                continue;
            }
            OverruleLog log;
            ASSERT_TRUE(saves(*worker));
            EXPECT_EQ(log.text(), overruled);
            EXPECT_TRUE(second->isDeleted() && !second->managedObjectContext());
            for (auto const& level : {worker, main, root}) {
                if (level != worker) {
                    ASSERT_TRUE(saves(*level));
                }
                auto const below = childOf(level);
                auto const found = fetched(*below, "Person", tests::where("name == %@", name));
                ASSERT_EQ(found.size(), 1u);
                auto const of = [&](char const* key) { return found[0]->valueForKey(key).description(); };
                EXPECT_EQ(of("age") + " " + of("nick") + " " + of("town"), expected);
                EXPECT_EQ(found[0]->mutableSetValueForKey("dogs").count(), 1u);
            }
            EXPECT_EQ(toOne(dog, "owner")->valueForKey("name"), Value(name));
        }
    EXPECT_TRUE(root->refusalReasons().empty());
}

TEST_P(Uniqueness, OfTwoSavedRecordsNeitherGivesWay) {
    inserted(*there, "Person", {{"name", "Ann"}});
    ASSERT_TRUE(saves(*there));
    handedUp("Person", {{"name", "Bob"}});
    for (auto const policy : {NSMergePolicyType::MergeByPropertyObjectTrump, NSMergePolicyType::MergeByPropertyStoreTrump}) {
        auto const worker = childOf(main);
        worker->setMergePolicy(make<NSMergePolicy>(policy));
        auto const bob = fetched(*worker, "Person", where("name == 'Bob'")).front();
        bob->setValueForKey("Ann", "name");
        bob->setValueForKey(5, "age");
        bool const keepsOld = policy == NSMergePolicyType::MergeByPropertyStoreTrump;
        EXPECT_EQ(worker->save(error), keepsOld);
        EXPECT_EQ(bob->valueForKey("name"), Value(keepsOld ? "Bob" : "Ann"));
        EXPECT_EQ(bob->valueForKey("age"), Value(5));
    }
    // Values may change hands within a save, and what a deletion frees may be taken.
    auto const worker = childOf(main);
    auto const ann = fetched(*worker, "Person", where("name == 'Ann'")).front();
    auto const bob = fetched(*worker, "Person", where("name == 'Bob'")).front();
    ann->setValueForKey("Bob", "name");
    bob->setValueForKey("Ann", "name");
    EXPECT_TRUE(saves(*worker));
    EXPECT_TRUE(main->saveThrough(error));
    worker->deleteObject(*ann);
    inserted(*worker, "Person", {{"name", "Bob"}});
    EXPECT_TRUE(saves(*worker));
    EXPECT_TRUE(main->saveThrough(error));
    EXPECT_EQ(kennel.saved(), "Ann,Bob 0");
}

TEST_P(Uniqueness, WhoHadTheValueAndChangesInTheSameSaveIsInTheWayToo) {
    auto const first = inserted(*there, "Person", {{"name", "Ann"}}), second = inserted(*there, "Person", {{"name", "Bob"}});
    ASSERT_TRUE(saves(*there));
    auto const worker = childOf(main);
    auto const people = fetched(*worker, "Person", nullptr, {by("name")});
    for (auto const& [taker, holder] :
         {std::pair(people[0], people[1]), {people[1], people[0]}}) { // whichever has the smaller key
        taker->setValueForKey(holder->valueForKey("name"), "name");
        holder->setValueForKey(5, "age");
        ASSERT_FALSE(worker->save(error));
        EXPECT_EQ(error->code(), 133021);
        worker->rollback();
    }
}

namespace {

/// Decides that everything stays as it is.
class StubbornPolicy : public NSMergePolicy {
public:
    bool resolveConflicts(std::vector<Ref<NSMergeConflict>> const& conflicts, Ref<NSError>& error) override {
        if (!NSMergePolicy::resolveConflicts(conflicts, error)) return false;
        for (auto const& each : conflicts) each->setResolvedValue(each->sourceObject()->valueForKey("name"), "name");
        return true;
    }
};

} // namespace

TEST_P(Uniqueness, APolicyThatChangesNothingCountsAsRefusing) {
    for (auto const* name : {"Ann", "Bob"}) inserted(*there, "Person", {{"name", name}});
    ASSERT_TRUE(saves(*there));
    auto const worker = childOf(main);
    worker->setMergePolicy(make<StubbornPolicy>(NSMergePolicyType::MergeByPropertyStoreTrump));
    fetched(*worker, "Person", where("name == 'Bob'")).front()->setValueForKey("Ann", "name");
    ASSERT_FALSE(worker->save(error));
    EXPECT_EQ(error->code(), 133021);
}

TEST_P(Uniqueness, ManyNewObjectsGiveWayToOneRecordAtOnce) {
    inserted(*there, "Person", {{"name", "Ann"}});
    ASSERT_TRUE(saves(*there));
    auto const worker = childOf(main);
    worker->setMergePolicy(NSMergeByPropertyStoreTrumpMergePolicy());
    for (int at = 0; at < 50; ++at)
        inserted(*worker, "Dog",
                 {{"owner", Value(inserted(*worker, "Person", {{"name", "Ann"}, {"nick", std::to_string(at)}}))}});
    ASSERT_TRUE(saves(*worker));
    EXPECT_EQ(Kennel::seenBelow(main), "Ann 50");
    auto const ann = fetched(*main, "Person").front();
    EXPECT_EQ(ann->valueForKey("nick"), Value("0")) << "what it lacked, of the first";
    EXPECT_EQ(ann->mutableSetValueForKey("dogs").count(), 50u);
}

TEST_P(Uniqueness, WhoSavesWhileASiblingIsBetweenItsLookAndItsHandingUpIsSeen) {
    auto const ann = handedUp("Person", {{"name", "Ann"}, {"age", 0}});
    auto const worker = childOf(main), sibling = childOf(main);
    auto const policy = make<SummingPolicy>("age");
    worker->setMergePolicy(policy);
    auto const increment = [&](NSManagedObjectContext& context) {
        auto const mine = context.objectWithID(*ann->objectID());
        mine->setValueForKey(mine->valueForKey("age").integer() + 1, "age");
    };
    increment(*worker);
    auto const eva = inserted(*worker, "Person", {{"name", "Eva"}, {"nick", "E"}});
    increment(*sibling);
    ASSERT_TRUE(saves(*sibling));
    policy->meanwhile = [&] {
        increment(*sibling);
        inserted(*sibling, "Person", {{"name", "Eva"}});
        ASSERT_TRUE(saves(*sibling));
    };
    ASSERT_TRUE(saves(*worker));
    EXPECT_EQ(childOf(main)->objectWithID(*ann->objectID())->valueForKey("age"), Value(3)) << "an increment is lost";
    EXPECT_EQ(Kennel::seenBelow(main), "Ann,Eva 0");
    EXPECT_FALSE(eva->managedObjectContext());
    EXPECT_EQ(fetched(*main, "Person", where("name == 'Eva'")).front()->valueForKey("nick"), Value("E"));
}

TEST(UniquenessOfMany, OfARowInWhichEachIsBehindTheNextLinksLeadToWhoIsLeft) {
    auto const coordinator = coordinatorOver(ModelBuilder()
                                                 .entity("Badge")
                                                 .attribute("number", NSAttributeType::String)
                                                 .attribute("code", NSAttributeType::String)
                                                 .unique({"number"})
                                                 .unique({"code"})
                                                 .entity("Guest")
                                                 .toOne("badge", "Badge")
                                                 .toMany("former", "Badge", {})
                                                 .build(),
                                             "InMemory", NSURL::fileURLWithPath("/row"));
    constexpr int count = 41; // 0 and 1 have the same number, 1 and 2 the same code, 2 and 3 the same number …
    struct Row {
        Ref<NSMergePolicy> policy;
        int (*left)(int at); // whom a guest leads to
    };
    for (auto const& [policy, left] : {Row{NSMergeByPropertyStoreTrumpMergePolicy(), [](int at) { return at - at % 2; }},
                                       Row{NSRollbackMergePolicy(), [](int at) { return at - at % 2; }},
                                       Row{NSMergeByPropertyObjectTrumpMergePolicy(), [](int) { return 0; }}}) {
        auto const root = contextOver(coordinator);
        root->setMergePolicy(policy);
        root->performBlockAndWait([&, left = left] {
            Objects badges, guests;
            for (int at = 0; at < count; ++at) {
                auto const name = [&](int half) {
                    return Value(std::to_string(static_cast<int>(policy->mergeType())) + " " + std::to_string(half));
                };
                badges.push_back(inserted(*root, "Badge", {{"number", name(at / 2)}, {"code", name((at + 1) / 2)}}));
                guests.push_back(inserted(*root, "Guest", {{"badge", Value(badges.back())}}));
                guests.back()->mutableSetValueForKey("former").addObject(badges.back());
            }
            ASSERT_TRUE(saves(*root));
            for (int at = 0; at < count; ++at) {
                auto const& badge = badges[static_cast<std::size_t>(left(at))];
                EXPECT_EQ(guests[static_cast<std::size_t>(at)]->valueForKey("badge").objectAs<NSManagedObject>(), badge) << at;
                EXPECT_EQ(guests[static_cast<std::size_t>(at)]->mutableSetValueForKey("former").allObjects(), Objects{badge})
                    << at;
            }
        });
    }
}

INSTANTIATE_TEST_SUITE_P(Stores, Uniqueness, bothStores, storeName);
