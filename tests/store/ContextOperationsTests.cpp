#include "tests/store/StoreFixture.h"

#include <algorithm>

namespace Tessarin {
namespace {
using namespace tests;

Ref<NSPredicate> named(std::string const& name) { return NSPredicate::predicateWithFormat("name == %@", name); }

std::string names(auto const& objects) {
    std::string text;
    for (auto const& each : objects) text += each->valueForKey("name").description() + " ";
    return text;
}

TEST(ContextOperations, FetchCountAndFindByNameAndByClass) {
    auto const root = contextInMemory();
    root->performBlockAndWait([&] {
        for (auto const* name : {"Cyd", "Ada", "Bob"}) insert(*root, "Person", name);
        root->saveAndWait();
        insert(*root, "Person", "Dan"); // not saved
        auto const byName = by("name");
        EXPECT_EQ(names(root->allObjects("Person", {.sortedBy = {byName}})), "Ada Bob Cyd Dan ");
        EXPECT_EQ(names(root->allObjects<Person>({.predicate = named("Bob")})), "Bob ");
        EXPECT_EQ(root->allObjects("Person").size(), 4u);
        EXPECT_EQ(root->count("Person"), 4);
        EXPECT_EQ(root->count("Person", named("Ada")), 1);
        EXPECT_EQ(names(std::vector{root->anyObject<Person>({.sortBy = {byName->reversedSortDescriptor()}})}), "Dan ");
        EXPECT_FALSE(root->anyObjectNamed("Person", {.predicate = named("Eve")}));
        EXPECT_TRUE(root->insertObject<Pet>());
        EXPECT_EQ(root->fetchRequest("Pet")->entityName(), "Pet");
    });
}

TEST(ContextOperations, AnyObjectPrefersMemoryUnlessItIsToSort) {
    auto const root = contextInMemory(), worker = childOf(root);
    root->performBlockAndWait([&] {
        insert(*root, "Person", "Ada");
        insert(*root, "Pet", "Rex");
        root->saveAndWait();
    });
    worker->performBlockAndWait([&] {
        auto const fault = worker->anyObjectNamed("Person");
        ASSERT_TRUE(fault);
        ASSERT_TRUE(fault->isFault()) << "or the case below is another one";
        EXPECT_EQ(worker->anyObjectNamed("Person"), fault);
        auto const fresh = insert(*worker, "Person", "Bob");
        insert(*worker, "Pet", "Tom");
        EXPECT_EQ(worker->anyObjectNamed("Person"), fresh) << "the first in memory that is no fault";
        EXPECT_EQ(worker->anyObjectNamed("Person", {.predicate = named("Ada")}), fault) << "fetched, since memory has no match";
        EXPECT_EQ(worker->anyObject<Person>({.sortBy = {by("name")}}), fault);
    });
}

TEST(ContextOperations, FetchErrorsPrintTheirLine) {
    auto const root = contextInMemory();
    root->performBlockAndWait([&] {
        std::int64_t counted = 0;
        auto const line = printedBy([&] { counted = root->count("Ghost"); });
        EXPECT_EQ(counted, NSNotFound);
        EXPECT_TRUE(line.starts_with("Error while counting fetch request for Ghost: ")) << line;
        for (auto const& printed : {printedBy([&] { EXPECT_TRUE(root->allObjects("Ghost").empty()); }),
                                    printedBy([&] { EXPECT_FALSE(root->anyObjectNamed("Ghost")); })}) {
            EXPECT_TRUE(printed.starts_with("Error (Error Domain=")) << printed;
            EXPECT_NE(printed.find("} executing fetch request: <NSFetchRequest> (entity: Ghost;"), printed.npos)
                << printed; // never closed
            EXPECT_EQ(std::ranges::count(printed, '\n'), 1);
        }
        auto const inMemory = insert(*root, "Person", "Ada\r\n\v\f\x1B[2J\xC2\x85\xE2\x80\xA8\\ ü");
        auto const unknown = NSPredicate::predicateWithFormat("nmae == %@", "A\nB\xE2\x80\xA9");
        auto const line2 = printedBy([&] { EXPECT_FALSE(root->anyObjectNamed("Person", {.predicate = unknown})); });
        EXPECT_TRUE(line2.starts_with("Error (Error Domain=")) << line2;
        EXPECT_NE(line2.find("no key \"nmae\"; the nearest: \"name\""), line2.npos) << line2;
        EXPECT_EQ(std::ranges::count(line2, '\n'), 1);
        EXPECT_EQ(line2.find("\xE2\x80\xA9"), line2.npos);
        auto const logged = printedBy([&] { inMemory->log(); });
        EXPECT_NE(logged.find(R"(name = Ada\r\n\u000B\u000C\u001B[2J\u0085\u2028\ ü;)"), logged.npos) << logged;
        EXPECT_EQ(std::ranges::count(logged, '\n'), 1);
        EXPECT_EQ(printedBy([&] { EXPECT_THROW(root->deleteRecords("Ghost", {.matching = named("x")}), ErrorException); }), "");
    });
}

TEST(ContextOperations, DeleteRecordsTakesOneOrAllAndSavesNothing) {
    auto const root = contextInMemory();
    root->performBlockAndWait([&] {
        for (int i = 0; i < 5; ++i) insert(*root, "Person", "Ada");
        insert(*root, "Person", "Bob");
        root->saveAndWait();
        EXPECT_TRUE(root->deleteRecords("Person", {.matching = named("Ada")}));
        EXPECT_EQ(root->count("Person"), 5);
        EXPECT_TRUE(root->deleteRecords("Person", {.matching = named("Ada"), .singleRecord = false}));
        EXPECT_EQ(root->count("Person"), 1);
        EXPECT_FALSE(root->deleteRecords("Person", {.matching = named("Ada")}));
    });
    EXPECT_EQ(countInStore(*root, "Person"), 6);
}

TEST(ContextOperations, SaveToDiskSavesTheAncestorsInOrderBeforeTheCompletion) {
    auto const root = contextInMemory(), middle = childOf(root), worker = childOf(middle);
    root->setName("root");
    middle->setName("middle");
    worker->setName("worker");
    for (bool const wait : {true, false}) {
        SaveLog const log;
        std::string atCompletion;
        auto const done = dispatch_semaphore_create(0);
        worker->performBlockAndWait([&] { insert(*worker, "Person", "Ada"); });
        worker->saveAndWait({.wait = wait, .toDisk = true, .completion = [&](Ref<NSError> const& error) {
                                 EXPECT_FALSE(error);
                                 EXPECT_TRUE(queueIsHeld(worker->queue()));
                                 atCompletion = log.text();
                                 dispatch_semaphore_signal(done);
                             }});
        EXPECT_EQ(dispatch_semaphore_wait(done, wait ? DISPATCH_TIME_NOW : DISPATCH_TIME_FOREVER), 0) << "with wait it has run";
        EXPECT_EQ(atCompletion, "worker; middle; root; ");
    }
    SaveLog const log;
    worker->saveAndWait();
    EXPECT_EQ(log.text(), "worker; ") << "without toDisk one level; without changes all the same";
}

TEST(ContextOperations, FailedSavesPrintAndStopThereAndFailedAncestorsDoNot) {
    auto const root = contextInMemory(), middle = childOf(root), worker = childOf(middle);
    root->setName("root");
    Ref<NSError> error;
    auto const report = [&](Ref<NSError> const& reported) { error = reported; };
    SaveLog const log;
    Ref<NSManagedObject> nameless;
    worker->performBlockAndWait([&] { nameless = worker->insertEntityNamed("Pet"); });
    auto const printed = printedBy([&] { worker->saveAndWait({.toDisk = true, .completion = report}); });
    ASSERT_TRUE(error);
    EXPECT_EQ(printed, "Error while saving context: " + error->description() + "\n");
    EXPECT_EQ(log.text(), "");

    middle->performBlockAndWait([&] { middle->insertEntityNamed("Pet"); }); // will keep `middle` from being saved
    worker->performBlockAndWait([&] { (*nameless)["name"] = "Rex"; });
    EXPECT_EQ(printedBy([&] { worker->saveAndWait({.toDisk = true, .completion = report}); }), "");
    EXPECT_FALSE(error);
    EXPECT_EQ(log.text(), "; root; ") << "the worker, then the root in spite of what is between";
}

TEST(ContextOperations, RefreshAllFaultsLeavesLoadedObjectsAlone) {
    auto const root = contextInMemory(), worker = childOf(root);
    worker->performBlockAndWait([&] {
        Ref<NSManagedObject> ada, bob;
        root->performBlockAndWait([&] {
            ada = insert(*root, "Person", "Ada");
            bob = insert(*root, "Person", "Bob");
            root->saveAndWait();
        });
        auto const loaded = worker->reconstitute(ada), fault = worker->reconstitute(bob);
        EXPECT_EQ(loaded->valueForKey("name"), "Ada");
        ASSERT_TRUE(fault->isFault());
        fault->refreshInContext(); // reads the values; the fault stays one
        root->performBlockAndWait([&] {
            for (auto const& each : {ada, bob}) (*each)["name"] = "new";
            root->saveAndWait();
        });
        worker->refreshAllFaults();
        EXPECT_EQ(loaded->valueForKey("name"), "Ada");
        EXPECT_EQ(fault->valueForKey("name"), "new");
    });
}

} // namespace
} // namespace Tessarin
