#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "tests/store/StoreFixture.h"
#include <future>

namespace Tessarin {
namespace {
using namespace tests;
namespace fs = std::filesystem;

std::int64_t codeOf(Ref<NSError> const& error) { return error ? error->code() : 0; }
constexpr auto readOnlyCode = static_cast<std::int64_t>(StoreErrorCode::StoreReadOnly);

TEST(StoreOptions, NameModelPlaceAndPolicy) {
    StoreHome home;
    auto const policy = make<NSMergePolicy>(NSMergePolicyType::Overwrite);
    auto const store = home.store(StoreOptions{.model = peopleModel(),
                                               .modelURL = home.url("no model"),
                                               .filename = "Trip",
                                               .directory = home.url("My Documents/2026"),
                                               .mergePolicy = policy});
    EXPECT_TRUE(fs::is_regular_file(home.folder.path("My Documents/2026/Trip/Trip.db")))
        << "the folder is made, like all before it";
    EXPECT_FALSE(fs::exists(home.folder.path("Documents")));
    for (auto const& context : {store->privateContext(), store->mainThreadContext(), store->createWorkerContext()})
        EXPECT_EQ(context->mergePolicy(), policy) << context->name();
    store->deleteAllData([] {});
    EXPECT_TRUE(eventually([&] { return store->mainThreadContext()->mergePolicy() == policy; })) << "the next main context, too";

    home.folder.write("file", "not a folder");
    Ref<NSError> error;
    try {
        home.store(StoreOptions{.model = peopleModel(), .filename = "A", .directory = home.url("file"), .timeLimit = 0});
    } catch (ErrorException const& failure) {
        error = failure.error();
    }
    EXPECT_NE(error->localizedDescription().find("Not a directory"), std::string::npos) << error->description();
    EXPECT_DEATH(home.store(StoreOptions{.filename = "A", .directory = *NSURL::URLWithString("https://example.org/")}),
                 "directory");
    EXPECT_DEATH(home.store(StoreOptions{.inMemory = true, .readOnly = true}), "read only");
}

TEST(StoreOptions, InMemoryNothingIsSharedAndNothingIsInAFile) {
    StoreHome home;
    auto const one = home.store(StoreOptions{.model = peopleModel(), .inMemory = true});
    auto const other = home.store(StoreOptions{.model = peopleModel(), .inMemory = true});
    (*one)["seen"] = 3;
    one->importBlock([](auto const& context) { insert(*context, "Person", "Ada"); });
    EXPECT_TRUE(eventually([&] { return countInStore(*one->privateContext(), "Person") == 1; }));
    EXPECT_EQ((*one)["seen"].get(), 3);
    EXPECT_EQ(countInStore(*other->privateContext(), "Person"), 0);
    EXPECT_TRUE((*other)["seen"].get().isAbsent());
    std::promise<void> deleted;
    one->deleteAllData([&] { deleted.set_value(); });
    deleted.get_future().wait();
    EXPECT_EQ(countInStore(*one->privateContext(), "Person"), 0);
    EXPECT_FALSE(fs::exists(home.folder.path("Documents")));
}

TEST(StoreOptions, AStoreThatIsReadOnlySaysSoAtEachLevelAndKeepsTheChanges) {
    StoreHome home;
    waitForFile(*home.store()), waitForFile(*[&] {
        auto store = home.store();
        saveOne(*store, "Ada");
        return store;
    }());
    auto const before = home.folder.read("Documents/Notes/Notes.db");
    auto const store = home.store(StoreOptions{.model = peopleModel(), .filename = "Notes", .readOnly = true});
    for (auto const& context : {store->createWorkerContext(), store->mainThreadContext(), store->privateContext()})
        context->performBlockAndWait([&] {
            auto const ada = context->allObjects("Person").front();
            (*ada)["name"] = "Eva";
            Ref<NSError> error;
            EXPECT_FALSE(context->save(error)) << context->name();
            EXPECT_EQ(codeOf(error), readOnlyCode) << context->name();
            EXPECT_TRUE((*ada)["name"].get() == "Eva" && context->hasChanges());
            context->rollback();
            EXPECT_TRUE(context->save(error)) << "there is nothing to save";
        });
    EXPECT_EQ(home.folder.read("Documents/Notes/Notes.db"), before);
    EXPECT_THROW(home.store(StoreOptions{.model = peopleModel(), .filename = "None", .readOnly = true, .timeLimit = 0.01}),
                 ErrorException);
    EXPECT_FALSE(fs::exists(home.folder.path("Documents/None")));
}

/// What an opening gave, once it gave it.
template <class Store = ManagedObjectStore> struct Outcome {
    Ref<Store> store;
    Ref<NSError> error;
    bool isOnMain = false;
};
template <class Store> auto openedInto(std::promise<Outcome<Store>>& given) {
    return [&](Ref<Store> const& store, Ref<NSError> const& error) {
        given.set_value({store, error, Dispatcher::inMainQueue()});
    };
}

struct Noted : ManagedObjectStore {
    bool wasCreated = false;
    void didCreateDatabase() override { wasCreated = true; }
};

TEST(StoreOpening, GivesTheStoreOrWhyThereIsNoneOnTheMainQueue) {
    StoreHome home;
    auto const options = [&](double limit) {
        return StoreOptions{.model = peopleModel(), .filename = "Notes", .timeLimit = limit};
    };
    std::promise<Outcome<Noted>> first, second;
    auto opening = ManagedObjectStore::open<Noted>(options(60), openedInto(first));
    ManagedObjectStore::open<Noted>(options(60),
                                    openedInto(second)); // of the same file at the same time; nobody keeps the handle
    for (auto* given : {&first, &second}) {
        auto const outcome = given->get_future().get();
        ASSERT_TRUE(outcome.store && !outcome.error && outcome.isOnMain);
        EXPECT_TRUE(outcome.store->mainThreadContext());
        opening->cancel(); // too late for both
        saveOne(*outcome.store, "Ada");
        waitForFile(*outcome.store);
        outcome.store->setActiveContexts({});
    }
    home.folder.write("Documents/Locked", "a file where the folder should be");
    std::promise<Outcome<>> none;
    ManagedObjectStore::open(
        {.model = peopleModel(), .filename = "A", .directory = home.url("Documents/Locked"), .timeLimit = 0.01},
        openedInto(none));
    auto const outcome = none.get_future().get();
    EXPECT_TRUE(!outcome.store && outcome.isOnMain);
    EXPECT_NE(outcome.error->localizedDescription().find("Not a directory"), std::string::npos);
    EXPECT_DEATH(ManagedObjectStore::open({.model = peopleModel()}, {}), "file name");
}

TEST(StoreOpening, ACancelledOneReplacesNothing) {
    StoreHome home;
    home.folder.write("Documents/file", "a file where the folder should be");
    home.folder.write("Documents/Broken/Broken.db", std::string(5000, 'x'));
    std::promise<Outcome<>> waiting, refused, migrating;
    auto const forEver = ManagedObjectStore::open(
        {.model = peopleModel(), .filename = "A", .directory = home.url("Documents/file")}, openedInto(waiting));
    forEver->cancel();
    Ref<StoreOpening> judging;
    dispatch_group_t const begun = dispatch_group_create();
    dispatch_group_enter(begun);
    judging = ManagedObjectStore::open({.model = peopleModel(),
                                        .filename = "Broken",
                                        .onRefusal =
                                            [&](auto const&...) {
                                                dispatch_group_wait(begun, DISPATCH_TIME_FOREVER);
                                                judging->cancel();
                                                return StoreOptions::AfterRefusal::StartEmpty;
                                            }},
                                       openedInto(refused));
    dispatch_group_leave(begun);
    for (auto* given : {&waiting, &refused}) {
        auto const outcome = given->get_future().get();
        EXPECT_FALSE(outcome.store);
        EXPECT_EQ(codeOf(outcome.error), static_cast<std::int64_t>(StoreErrorCode::StoreOpeningCancelled));
    }
    EXPECT_EQ(home.folder.read("Documents/Broken/Broken.db"), std::string(5000, 'x'));
    forEver->cancel(); // after the completion
    EXPECT_FALSE(fs::exists(home.folder.path("Documents/.Broken.rescued/1/Broken")));
}

TEST(StoreOpening, ProgressIsToldOnTheMainQueueBeforeTheCompletion) {
    StoreHome home;
    saveOne(*home.store(), "Ada");
    std::string grown = peopleAndPets;
    grown.insert(grown.find("<relationship"), R"(<attribute name="city" optional="YES" attributeType="String"/>)");
    home.folder.write("Grown.xcdatamodel/contents", grown);
    std::string told; // on the main queue
    std::promise<Outcome<>> given;
    auto const opening = ManagedObjectStore::open(
        {.modelURL = home.url("Grown.xcdatamodel"),
         .filename = "Notes",
         .onProgress =
             [&](StoreProgress const& now) { told += (Dispatcher::inMainQueue() ? "" : "elsewhere ") + now.name + ";"; }},
        openedInto(given));
    EXPECT_TRUE(given.get_future().get().store);
    EXPECT_TRUE(told.starts_with("Person;") && told.find("elsewhere") == told.npos) << told;
    EXPECT_EQ(opening->progress().fraction, 1);
}

} // namespace
} // namespace Tessarin
