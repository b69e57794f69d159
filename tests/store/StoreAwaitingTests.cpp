// Coroutines that wait for a store: work in the background, and fetches.
#include "tests/store/StoreFixture.h"

#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "tests/support/Tasks.h"
#include <future>
#include <gtest/gtest.h>
#include <stdexcept>

namespace Tessarin {
namespace {

using namespace tests;

std::string here() { return dispatch_queue_get_label(nullptr); }

void insertPeople(NSManagedObjectContext& context, int count) {
    for (int i = 0; i < count; ++i) context.insertNewObject("Person")->setValueForKey("p" + std::to_string(i), "name");
}

Task<std::string> importAndLook(Ref<ManagedObjectStore> store) {
    co_await Dispatcher::main();
    int const count = 7;
    auto const inserted = co_await store->background([count](Ref<NSManagedObjectContext> const& context) {
        insertPeople(*context, count);
        return std::make_unique<int>(count);
    });
    auto const place = here();
    co_await store->background([](auto const& context) { insertPeople(*context, 1); }); // nothing to return
    auto const request = make<NSFetchRequest>("Person");
    request->setSortDescriptors({by("name")});
    auto const [people, error] = co_await store->mainThreadContext()->fetchAsync(*request);
    co_return place + "," + here() + "," + std::to_string(*inserted) + "," + std::to_string(people.size()) + "," +
        people[7]->valueForKey("name").description() + (error ? "!" : "");
}

TEST(StoreAwaiting, WorkIsSavedWhenTheTaskGoesOnWhereItWas) {
    StoreHome home;
    EXPECT_EQ(*endOf(importAndLook(home.store())), "main,main,7,8,p6");
    auto const fromAQueue = [](Ref<ManagedObjectStore> store, std::string captured) -> Task<std::string> {
        auto const queue = dispatch_queue_create("own", DISPATCH_QUEUE_SERIAL);
        co_await queue;
        auto work = store->background([captured](auto const&) { return captured + "," + here(); });
        auto const result = co_await work;
        co_return result + "," + here();
    };
    std::string const text(40, 'x');
    EXPECT_EQ(*endOf(fromAQueue(home.store("Other"), text)), text + ",NSManagedObjectContext,own");
}

TEST(StoreAwaiting, WhatWorkThrowsArrivesAndNothingIsSaved) {
    StoreHome home;
    auto const run = [](Ref<ManagedObjectStore> store) -> Task<std::string> {
        co_await Dispatcher::main();
        std::string said;
        try {
            co_await store->background([](auto const& context) {
                insertPeople(*context, 3);
                throw std::runtime_error("halfway");
            });
        } catch (std::runtime_error const& error) { said = error.what(); }
        co_return said + std::to_string(store->mainThreadContext()->count("Person", nullptr));
    };
    EXPECT_EQ(*endOf(run(home.store())), "halfway0");
}

TEST(StoreAwaiting, CancellingEndsTheTaskAndGivesTheFetchUp) {
    StoreHome home;
    auto const store = home.store();
    bool hasRun = false, wentOn = false;
    auto const wait = [](Ref<ManagedObjectStore> over, int kind, bool& ran, bool& on) -> Task<> {
        co_await Dispatcher::main();
        auto const request = make<NSFetchRequest>("Person");
        if (kind == 0) co_await over->mainThreadContext()->fetchAsync(*request);
        if (kind == 1) co_await over->background([&ran](auto const&) { ran = true; });
        if (kind == 2) {
            auto const [people, error] = co_await over->mainThreadContext()->fetchAsync(*make<NSFetchRequest>("Unicorn"));
            EXPECT_EQ(error->code(), std::int64_t(StoreErrorCode::UnknownEntity));
            EXPECT_TRUE(people.empty());
        }
        on = true;
    };
    for (int const kind : {0, 1, 2}) {
        auto task = wait(store, kind, hasRun, wentOn);
        onMainThread([&] {
            task.start();            // its hop to the main queue waits for this to end
            if (kind != 2) task.cancel();
        });
        EXPECT_EQ(endOf(task).isCancelled(), kind != 2);
    }
    EXPECT_TRUE(wentOn);
    EXPECT_FALSE(hasRun);
    for (int round = 0; round < 40; ++round) { // and at any moment
        auto task = wait(store, round % 2, hasRun, wentOn);
        task.start();
        for (int i = 0; i < round % 5; ++i) Dispatcher::main()->sync([] {});
        task.cancel();
        EXPECT_TRUE(eventually([&] { return task.isDone(); }));
    }
}

} // namespace
} // namespace Tessarin
