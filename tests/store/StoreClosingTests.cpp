#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/objectgraph/undo/UndoManager.h"
#include "tests/store/StoreFixture.h"
#include <atomic>
#include <thread>

namespace Tessarin {
namespace {
using namespace tests;
namespace fs = std::filesystem;
using Unsaved = ManagedObjectStore::WhenUnsaved;
constexpr auto closedCode = static_cast<std::int64_t>(StoreErrorCode::StoreClosed);

std::int64_t codeOf(Ref<NSError> const& error) { return error ? error->code() : 0; }

TEST(StoreClosing, WhatWasAskedForBeforeIsInTheFileWhichIsFree) {
    StoreHome home;
    auto store = home.store(StoreOptions{.model = peopleModel(), .filename = "Notes", .mostPendingSaves = 1});
    auto const main = store->mainThreadContext(), worker = store->createWorkerContext();
    std::future<Ref<NSError>> first, second;
    onMainThread([&] { // which waits for nothing here: all that has to come through it is still to come
        insert(*main, "Person", "main");
        main->saveAndWait();
        for (int count = 0; count < 5; ++count) // the gate lets one in at a time
            store->importBlock([&, count](auto const& context) {
                insert(*context, "Person", "import");
                if (count == 4) second = closing(*store); // within an import, of which the first call waits
            });
        worker->performBlock([&] { insert(*worker, "Person", "queued"), worker->saveAndWait(); });
        first = closing(*store);
    });
    EXPECT_FALSE(first.get() || second.get() || closing(*store).get());
    EXPECT_TRUE(store->isClosed() && store->activeContexts().empty());
    EXPECT_FALSE(fs::exists(home.folder.path("Documents/Notes/Notes.db-wal"))) << "somebody has it open";
    EXPECT_EQ(namesInFile(*store), "import,import,import,import,import,main,queued");
    WeakRef<ManagedObjectStore> const weak = store;
    store.reset();
    EXPECT_TRUE(eventually([&] { return weak.expired(); })) << "workers that live on keep it no longer";
}

TEST(StoreClosing, AfterwardsContextsAndObjectsSaySo) {
    for (bool const inMemory : {false, true}) {
        StoreHome home;
        auto const store = home.store(StoreOptions{.model = peopleModel(), .filename = "Notes", .inMemory = inMemory});
        auto const worker = saveOne(*store, "Ada"), main = store->mainThreadContext(), root = store->privateContext();
        auto const ada = fetched(*worker, "Person").front();
        Ref<UndoManager> undo;
        worker->performBlockAndWait([&] {
            undo = worker->undoManager();
            (*ada)["name"] = "Eve";
            Ref<NSError> error;
            EXPECT_TRUE(undo->undo() && worker->save(error));
        });
        EXPECT_FALSE(closing(*store).get());
        for (auto const& context : {worker, main, root})
            context->performBlockAndWait([&] {
                SCOPED_TRACE(context->name());
                EXPECT_FALSE(undo->canRedo());
                Ref<NSError> error;
                auto const request = make<NSFetchRequest>("Person");
                EXPECT_TRUE(context->executeFetchRequest(*request, error).empty() && codeOf(error) == closedCode);
                EXPECT_TRUE(context->countForFetchRequest(*request, error) == NSNotFound && codeOf(error) == closedCode);
                EXPECT_TRUE(!context->executeRequest(*make<NSBatchDeleteRequest>(request), error) && codeOf(error) == closedCode);
                EXPECT_TRUE(context->save(error)) << "nothing is to be saved";
                insert(*context, "Person", "late");
                EXPECT_TRUE(!context->save(error) && codeOf(error) == closedCode && context->hasChanges());
            });
        worker->performBlockAndWait([&] {
            EXPECT_EQ((*ada)["name"].get(), "Ada") << "it is in memory";
            EXPECT_THROW((*ada)["pets"].get(), ErrorException);
        });
        std::promise<void> deleted;
        auto const printed = printedBy([&] {
            store->importBlock([&](auto const& context) {
                insert(*context, "Person", "late");
                context->saveAndWait();
                store->deleteAllData([&] { deleted.set_value(); });
            });
            deleted.get_future().wait();
            EXPECT_TRUE(eventually([&] { return store->activeContexts().empty(); }));
        });
        EXPECT_NE(printed.find("closed"), std::string::npos) << printed;
        if (!inMemory) {
            EXPECT_EQ(namesInFile(*store), "Ada");
        }
    }
}

TEST(StoreClosing, WhatCannotBeSavedKeepsItOpenUnlessGivenUp) {
    for (auto const unsaved : {Unsaved::StayOpen, Unsaved::GiveUp}) {
        StoreHome home;
        auto const store = home.store(StoreOptions{.model = peopleModel(), .filename = "Notes", .mostPendingSaves = 1});
        auto const place = home.folder.path("Documents/Notes"), aside = home.folder.path("aside");
        saveOne(*store, "Ada"); // reserves keys, too
        waitForFile(*store);
        fs::rename(place, aside);
        for (auto const* name : {"Bob", "Cid", "Dan"}) // some fail at the root, and others wait for it
            store->importBlock([name](auto const& context) { insert(*context, "Person", name); });
        ASSERT_TRUE(eventually([&] { return store->privateContext()->pendingSaves() != 0; }));
        EXPECT_EQ(codeOf(closing(*store, unsaved).get()), static_cast<std::int64_t>(StoreErrorCode::StoreSave));
        EXPECT_EQ(store->isClosed(), unsaved == Unsaved::GiveUp);
        fs::rename(aside, place);
        EXPECT_FALSE(closing(*store).get());
        EXPECT_EQ(namesInFile(*store), unsaved == Unsaved::GiveUp ? "Ada" : "Ada,Bob,Cid,Dan");
    }
}

TEST(StoreClosing, ASaveBesideItIsInTheFileOrSaysThatItIsNot) {
    StoreHome home;
    auto const store = home.store(), other = home.store(); // of the same file
    std::atomic<int> saved = 0, begun = 0;
    std::vector<std::thread> savers;
    for (int count = 0; count < 3; ++count)
        savers.emplace_back([&] {
            auto const worker = childOf(store->mainThreadContext()); // which the store does not know
            for (std::int64_t code = 0; code == 0 && ++begun < 20'000; saved += code == 0) {
                inserted(*worker, "Person", {{"name", "x"}});
                code = codeOfSave(*worker);
                EXPECT_TRUE(code == 0 || code == closedCode) << code;
                // Who runs far ahead of the levels above keeps their queues busy, and a close waits its turn there.
                auto const pending = [&] {
                    return store->mainThreadContext()->pendingSaves() + store->privateContext()->pendingSaves();
                };
                while (!store->isClosed() && pending() > 8) std::this_thread::yield();
            }
        });
    EXPECT_TRUE(eventually([&] { return saved > 30; }));
    EXPECT_FALSE(closing(*store).get());
    for (auto& saver : savers) saver.join();
    EXPECT_LT(begun, 20'000) << "it waited for who goes on saving";
    EXPECT_EQ(countInStore(*other->privateContext(), "Person"), saved) << "the other store goes on";
}

TEST(StoreClosing, AStoreThatIsLetGoOfWithoutItLosesNothing) {
    StoreHome home;
    onMainThread([&] {
        auto const store = home.store();
        insert(*store->mainThreadContext(), "Person", "Ada");
        store->mainThreadContext()->saveAndWait(); // the root saves later
    });
    EXPECT_TRUE(eventually([&] { return namesInFile(*home.store()) == "Ada"; }));
}

} // namespace
} // namespace Tessarin
