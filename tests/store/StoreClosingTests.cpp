#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "tests/store/StoreFixture.h"
#include <atomic>
#include <future>
#include <thread>

namespace Tessarin {
namespace {
using namespace tests;
namespace fs = std::filesystem;
using Unsaved = ManagedObjectStore::WhenUnsaved;
constexpr auto closedCode = static_cast<std::int64_t>(StoreErrorCode::StoreClosed);

std::int64_t codeOf(Ref<NSError> const& error) { return error ? error->code() : 0; }

/// What the completion is told, and that it comes on the main queue.
std::future<Ref<NSError>> closing(ManagedObjectStore& store, Unsaved unsaved = Unsaved::StayOpen) {
    auto told = std::make_shared<std::promise<Ref<NSError>>>();
    store.close(
        [told](Ref<NSError> const& error) {
            EXPECT_TRUE(Dispatcher::inMainQueue());
            told->set_value(error);
        },
        unsaved);
    return told->get_future();
}

TEST(StoreClosing, WhatWasAskedForBeforeIsInTheFileWhichIsFree) {
    StoreHome home;
    auto store = home.store(StoreOptions{.model = peopleModel(), .filename = "Notes", .mostPendingSaves = 1});
    auto const main = store->mainThreadContext();
    auto const worker = store->createWorkerContext();
    std::future<Ref<NSError>> first, second;
    std::atomic<int> imports = 0;
    onMainThread([&] { // which waits for nothing here: all that has to come through it is still to come
        insert(*main, "Person", "main");
        main->saveAndWait();
        for (int count = 0; count < 5; ++count) // the gate lets one in at a time
            store->importBlock([&, count](auto const& context) {
                insert(*context, "Person", "import");
                ++imports;
                if (count == 4) second = closing(*store); // within an import, of which the first call waits
            });
        worker->performBlock([&] {
            insert(*worker, "Person", "queued");
            worker->saveAndWait();
        });
        first = closing(*store);
        EXPECT_FALSE(store->isClosed());
    });
    EXPECT_FALSE(first.get());
    EXPECT_TRUE(store->isClosed() && imports == 5);
    EXPECT_FALSE(second.get());
    EXPECT_FALSE(closing(*store).get()) << "once more";
    EXPECT_FALSE(fs::exists(home.folder.path("Documents/Notes/Notes.db-wal"))) << "somebody has it open";
    EXPECT_TRUE(store->activeContexts().empty());
    fs::rename(home.folder.path("Documents/Notes"), home.folder.path("Documents/Moved"));
    WeakRef<ManagedObjectStore> const weak = store;
    store.reset();
    EXPECT_TRUE(eventually([&] { return weak.expired(); })) << "workers that live on keep it no longer";
    fs::rename(home.folder.path("Documents/Moved"), home.folder.path("Documents/Notes"));
    EXPECT_EQ(namesInFile(*home.store()), "import,import,import,import,import,main,queued");
}

TEST(StoreClosing, AfterwardsContextsAndObjectsSaySo) {
    for (bool const inMemory : {false, true}) {
        StoreHome home;
        auto const store = home.store(StoreOptions{.model = peopleModel(), .filename = "Notes", .inMemory = inMemory});
        for (auto const* name : {"Ada", "Eva"}) saveOne(*store, name);
        waitForFile(*store);
        auto const worker = store->createWorkerContext(), main = store->mainThreadContext(), root = store->privateContext();
        auto const ada = fetched(*worker, "Person", nullptr, {by("name")}).front();
        worker->performBlockAndWait([&] { EXPECT_EQ((*ada)["name"].get(), "Ada"); });
        EXPECT_FALSE(closing(*store).get());
        for (auto const& context : {worker, main, root})
            context->performBlockAndWait([&] {
                Ref<NSError> error;
                EXPECT_TRUE(context->executeFetchRequest(*make<NSFetchRequest>("Person"), error).empty());
                EXPECT_EQ(codeOf(error), closedCode) << context->name();
                EXPECT_EQ(context->countForFetchRequest(*make<NSFetchRequest>("Person"), error), NSNotFound);
                EXPECT_EQ(codeOf(error), closedCode);
                EXPECT_FALSE(context->executeRequest(*make<NSBatchDeleteRequest>(make<NSFetchRequest>("Person")), error));
                EXPECT_EQ(codeOf(error), closedCode);
                EXPECT_TRUE(context->save(error)) << "nothing is to be saved";
                auto const added = insert(*context, "Person", "late");
                EXPECT_FALSE(context->save(error));
                EXPECT_EQ(codeOf(error), closedCode) << error->description();
                EXPECT_FALSE(context->saveThrough(error));
                EXPECT_TRUE(context->hasChanges() && added->isInserted());
            });
        worker->performBlockAndWait([&] {
            EXPECT_EQ((*ada)["name"].get(), "Ada") << "it is in memory";
            EXPECT_THROW((*ada)["pets"].get(), ErrorException);
            (*ada)["name"] = "Ann";
        });
        EXPECT_EQ(codeOfSave(*worker), closedCode) << "an update";
        Ref<NSError> error;
        store->persistentStoreCoordinator()->verify(error);
        EXPECT_EQ(codeOf(error), inMemory ? 0 : closedCode);
        std::promise<void> imported, deleted;
        (*store)["seen"] = 3;
        auto const printed = printedBy([&] {
            store->importBlock([](auto const& context) { insert(*context, "Person", "late"); });
            store->importBlock([&](auto const&) { imported.set_value(); });
            imported.get_future().wait();
            store->deleteAllData([&] { deleted.set_value(); });
            deleted.get_future().wait();
        });
        EXPECT_NE(printed.find("closed"), std::string::npos) << printed;
        EXPECT_TRUE(store->activeContexts().empty());
        if (!inMemory) {
            EXPECT_EQ(namesInFile(*store), "Ada,Eva");
        }
    }
}

TEST(StoreClosing, WhatCannotBeSavedKeepsItOpenUnlessGivenUp) {
    for (auto const unsaved : {Unsaved::StayOpen, Unsaved::GiveUp}) {
        StoreHome home;
        auto const store = home.store(StoreOptions{.model = peopleModel(), .filename = "Notes", .mostPendingSaves = 1});
        auto const main = store->mainThreadContext();
        Ref<NSManagedObject> nameless;
        main->performBlockAndWait([&] { nameless = main->insertEntityNamed("Pet"); });
        saveOne(*store, "Ada"); // which stays at the main level, whose own changes are not valid
        waitForFile(*store);
        auto const error = closing(*store, unsaved).get();
        ASSERT_TRUE(error) << "or it was lost";
        EXPECT_NE(error->localizedDescription().find("Pet.name"), std::string::npos) << error->description();
        EXPECT_EQ(store->isClosed(), unsaved == Unsaved::GiveUp);
        main->performBlockAndWait([&] { (*nameless)["name"] = "Rex"; });
        EXPECT_EQ(codeOfSave(*main), store->isClosed() ? closedCode : 0);
        EXPECT_FALSE(closing(*store).get());
        EXPECT_EQ(namesInFile(*store), unsaved == Unsaved::GiveUp ? "" : "Ada");
    }
}

TEST(StoreClosing, AFileThatCannotBeWrittenHangsNobody) {
    StoreHome home;
    auto const store = home.store(StoreOptions{.model = peopleModel(), .filename = "Notes", .mostPendingSaves = 1});
    auto const place = home.folder.path("Documents/Notes"), aside = home.folder.path("aside");
    saveOne(*store, "Ada");
    waitForFile(*store);
    fs::rename(place, aside);
    for (auto const* name : {"Bob", "Cid", "Dan"}) // some fail at the root, and others wait for it
        store->importBlock([name](auto const& context) { insert(*context, "Person", name); });
    ASSERT_TRUE(eventually([&] { return store->privateContext()->pendingSaves() != 0; }));
    EXPECT_EQ(codeOf(closing(*store).get()), static_cast<std::int64_t>(StoreErrorCode::StoreSave));
    EXPECT_FALSE(store->isClosed());
    fs::rename(aside, place);
    EXPECT_FALSE(closing(*store).get());
    EXPECT_EQ(namesInFile(*store), "Ada,Bob,Cid,Dan");
}

TEST(StoreClosing, ASaveBesideItIsInTheFileOrSaysThatItIsNot) {
    StoreHome home;
    auto const store = home.store(StoreOptions{.model = peopleModel(), .filename = "Notes"});
    auto const other = home.store(StoreOptions{.model = peopleModel(), .filename = "Notes"}); // of the same file
    std::atomic<int> saved = 0, refused = 0, begun = 0;
    std::vector<std::thread> savers;
    for (int count = 0; count < 3; ++count)
        savers.emplace_back([&] {
            auto const worker = store->createWorkerContext();
            for (std::int64_t code = 0; code == 0;) {
                inserted(*worker, "Person", {{"name", "x"}});
                code = codeOfSave(*worker);
                if (code == 0) ++saved;
                EXPECT_TRUE(code == 0 || code == closedCode) << code;
                if (++begun > 100'000) break;
            }
            ++refused;
        });
    ASSERT_TRUE(eventually([&] { return saved > 30; }));
    EXPECT_FALSE(closing(*store).get());
    for (auto& saver : savers) saver.join();
    EXPECT_EQ(refused, 3);
    EXPECT_EQ(countInStore(*other->privateContext(), "Person"), saved) << "the other store goes on";
    EXPECT_EQ(codeOfSave(*saveOne(*other, "y")), 0);
}

TEST(StoreClosing, AStoreThatIsLetGoOfWithoutItLosesNothing) {
    StoreHome home;
    auto const context = [&] { return home.store()->mainThreadContext(); }();
    onMainThread([&] {
        auto store = home.store("Other");
        insert(*store->mainThreadContext(), "Person", "Ada");
        store->mainThreadContext()->saveAndWait(); // the root saves later
    });
    EXPECT_TRUE(eventually([&] { return namesInFile(*home.store("Other")) == "Ada"; }));
    EXPECT_TRUE(fetched(*context, "Person").empty()) << "a context keeps what it reads from";
}

} // namespace
} // namespace Tessarin
