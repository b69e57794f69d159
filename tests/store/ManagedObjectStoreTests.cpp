#include "Tessarin/platform/foundation/bundles/Gestalt.h"
#include "Tessarin/platform/objectgraph/context/OverruledChanges.h"
#include "tests/store/StoreFixture.h"

#include <algorithm>
#include <cstdlib>
#include <future>
#include <set>

class XCTest : public Tessarin::NSObject {}; // what a test program's main registers

namespace Tessarin {
namespace {
using namespace tests;

/// What a subclass is told, in order.
class Listening : public ManagedObjectStore {
public:
    std::string told;
    void setMainThreadContext(Ref<NSManagedObjectContext> context) override {
        told += context->parentContext() ? "late " : "context ";
        ManagedObjectStore::setMainThreadContext(std::move(context));
    }
    void didCreateDatabase() override { told += mainThreadContext() && privateContext() ? "created " : "early "; }
};

TEST(ManagedObjectStore, StandsOnThreeLevels) {
    StoreHome home;
    auto const store = home.store<Listening>();
    EXPECT_EQ(store->told, "context created ");
    auto const main = store->mainThreadContext(), root = store->privateContext(), worker = store->createWorkerContext("W");
    using Type = NSManagedObjectContextConcurrencyType;
    struct {
        Ref<NSManagedObjectContext> context;
        Type type;
        Ref<NSManagedObjectContext> parent;
        char const* name;
    } const rows[] = {{root, Type::PrivateQueue, nullptr, "Private Context"},
                      {main, Type::MainQueue, root, "Main Thread Context"},
                      {worker, Type::PrivateQueue, main, "W"},
                      {store->createWorkerContext(), Type::PrivateQueue, main, "Worker Context"}};
    std::set<Ref<NSMergePolicy>> policies;
    for (auto const& row : rows) {
        EXPECT_EQ(row.context->concurrencyType(), row.type);
        EXPECT_EQ(row.context->parentContext(), row.parent);
        EXPECT_EQ(row.context->name(), row.name);
        EXPECT_EQ(row.context->mergePolicy()->mergeType(), NSMergePolicyType::MergeByPropertyStoreTrump);
        policies.insert(row.context->mergePolicy());
    }
    EXPECT_EQ(policies.size(), std::size(rows)) << "each has one of its own";
    EXPECT_EQ(store->dispatch()->type(), 17u);
    EXPECT_EQ(store->persistentStoreCoordinator()->persistentStores().size(), 1u);
    EXPECT_EQ(home.store<Listening>()->told, "context ") << "the file was there before";
    store->modifyMainThreadContext([](auto&) {});
    EXPECT_EQ(store->told, "context created late ") << "modification goes through the setter";
}

/// Puts the settings of the class back.
struct Settings {
    ~Settings() {
        ManagedObjectStore::setAppGroupIdentifier("", std::nullopt);
        ManagedObjectStore::setFilename({});
        ManagedObjectStore::setModelURL({});
    }
};

TEST(ManagedObjectStore, NamesAndFoldersComeFromArgumentsThenTheClass) {
    StoreHome home;
    Settings const settings;
    ManagedObjectStore::setModelURL(home.url("People.xcdatamodel"));
    ManagedObjectStore::setAppGroupIdentifier("org.example.none", "A"); // no container: the documents
    ManagedObjectStore::setAppGroupIdentifier("org.example.none", std::nullopt);
    EXPECT_EQ(ManagedObjectStore::filename(), "A");
    EXPECT_EQ(home.store(StoreOptions{})->storeURL(), home.documents("A"));
    EXPECT_TRUE(std::filesystem::is_regular_file(home.folder.path("Documents/A/A.db")));
    EXPECT_EQ(home.store(StoreOptions{.filename = "B"})->storeURL(), home.documents("B"));
    std::filesystem::create_directories(home.folder.path("data/group-containers/org.example.group"));
    ManagedObjectStore::setAppGroupIdentifier("org.example.group", "C");
    EXPECT_EQ(home.store(StoreOptions{})->storeURL(), home.url("data/group-containers/org.example.group/C"));
    EXPECT_EQ(ManagedObjectStore::modelName(), std::nullopt);
    EXPECT_EQ(ManagedObjectStore::generatedModelURL(), std::nullopt);
}

TEST(ManagedObjectStore, TestsKeepAwayFromTheApplicationsData) {
    StoreHome home;
    // In a process of its own, since a class stays registered.
    auto const inTest = [&] {
        registerClass<::XCTest>();
        auto const right = home.store("A")->storeURL() == home.documents("UnitTest-A") &&
                           std::filesystem::exists(home.folder.path("Documents/UnitTest-A/UnitTest-A.db"));
        std::filesystem::remove_all(home.folder.path());
        std::_Exit(right ? 0 : 1);
    };
    EXPECT_EXIT(inTest(), testing::ExitedWithCode(0), "");
}

TEST(ManagedObjectStore, ModelWithoutEntitiesGivesWayToTheBundle) {
    StoreHome home;
    home.folder.write("Empty.xcdatamodel/contents", "<model/>");
    home.folder.write("Empty.xcdatamodel/Inner.xcdatamodel/contents", peopleAndPets);
    home.folder.write("Bundle/Resources/People.xcdatamodel/contents", peopleAndPets);
    for (auto const* location : {"Empty.xcdatamodel", "Bundle"})
        EXPECT_TRUE(home.store(StoreOptions{.modelURL = home.url(location), .filename = "A"})->model()->entityNamed("Pet"))
            << location;
}

TEST(ManagedObjectStore, MisuseIsFatal) {
    struct Hollow : ManagedObjectStore {
        void init(StoreOptions) override {}
    };
    EXPECT_DEATH(make<ManagedObjectStore>(), "unimplemented initializer 'init\\(\\)' for class 'Tessarin.ManagedObjectStore'");
    EXPECT_DEATH(make<ManagedObjectStore>(StoreOptions{}), "file name");
    for (auto const* location : {"/usr", "/nothing"}) // a bundle without a model, no bundle; nor has the main bundle one
        EXPECT_DEATH(make<ManagedObjectStore>(StoreOptions{.modelURL = NSURL::fileURLWithPath(location), .filename = "A"}),
                     "no model");
    EXPECT_DEATH(make<Hollow>(StoreOptions{})->metadata("a"), "no store");
    EXPECT_DEATH((*make<Hollow>(StoreOptions{}))["a"] = 1, "no store");
}

TEST(ManagedObjectStore, WorkersSaveClimbsToTheFile) {
    StoreHome home;
    SaveLog log;
    auto const store = home.store();
    auto const* const levels = "Worker Context; Main Thread Context; Private Context; ";
    saveOne(*store, "Ada");
    waitForFile(*store);
    EXPECT_EQ(log.text(), levels);
    EXPECT_EQ(namesInFile(*store), "Ada");
    log.clear();
    store->importBlock([](auto const& worker) { insert(*worker, "Person", "Bob"); });
    EXPECT_TRUE(eventually([&] { return log.text() == levels; }));
    EXPECT_EQ(namesInFile(*store), "Ada,Bob");
}

TEST(ManagedObjectStore, ImportsWaitWhileTheFileIsBehind) {
    StoreHome home;
    auto const store = home.store(StoreOptions{
        .modelURL = home.url("People.xcdatamodel"), .filename = "Notes", .mostPendingSaves = 2});
    auto const& root = store->privateContext();
    dispatch_suspend(root->queue());
    std::atomic<std::size_t> pending = 0; // when the last import began
    std::atomic<bool> isLast = false;
    for (std::size_t count = 1; count <= 3; ++count) {
        store->importBlock([&, count](auto const& worker) {
            pending = root->pendingSaves();
            insert(*worker, "Person", std::to_string(count));
            isLast = count == 3;
        });
        if (count < 3) { EXPECT_TRUE(eventually([&] { return root->pendingSaves() == count; })); }
    }
    auto const registered = store->createWorkerContext("behind the third");
    EXPECT_TRUE(eventually([&] { return std::ranges::any_of(store->activeContexts(), [&](auto const& entry) {
        return entry->context() == registered;
    }); }));
    EXPECT_FALSE(isLast);
    dispatch_resume(root->queue());
    EXPECT_TRUE(eventually([&] { return isLast.load(); }));
    EXPECT_LT(pending, 2u);
    EXPECT_TRUE(eventually([&] { return namesInFile(*store) == "1,2,3"; }));
}

TEST(ManagedObjectStore, MainThreadMaySaveItsWorkersAndWait) {
    StoreHome home;
    auto const store = home.store();
    onMainThread([&] {
        auto const worker = store->createWorkerContext();
        for (bool const toDisk : {false, true})
            worker->performBlockAndWait([&] {
                insert(*worker, "Person", toDisk ? "Bob" : "Ada");
                worker->saveAndWait({.toDisk = toDisk});
            });
    });
    EXPECT_EQ(namesInFile(*store), "Ada,Bob") << "with toDisk it is there when the save returns";
    waitForFile(*store);
}

TEST(ManagedObjectStore, FailedParentLeavesTheGroupAndItsChangesWait) {
    StoreHome home;
    auto const store = home.store();
    Ref<NSManagedObject> nameless;
    store->mainThreadContext()->performBlockAndWait([&] { nameless = store->mainThreadContext()->insertEntityNamed("Pet"); });
    auto const printed = printedBy([&] {
        saveOne(*store, "Ada");
        waitForFile(*store);
    });
    EXPECT_TRUE(printed.starts_with("Error while saving context: ")) << printed;
    EXPECT_EQ(namesInFile(*store), "");
    store->mainThreadContext()->performBlockAndWait([&] { (*nameless)["name"] = "Rex"; });
    saveOne(*store, "Bob");
    waitForFile(*store);
    EXPECT_EQ(namesInFile(*store), "Ada,Bob");
}

TEST(ManagedObjectStore, SavesAreMergedIntoTheOtherWorkersOfThisStoreOnly) {
    StoreHome home;
    auto const store = home.store("A"), other = home.store("B");
    std::vector<Ref<NSManagedObjectContext>> workers;
    std::vector<Ref<NSManagedObject>> adas;
    for (auto const& each : {store, other}) {
        saveOne(*each, "Ada");
        waitForFile(*each);
        for (int i = 0; i < 2; ++i) {
            workers.push_back(each->createWorkerContext());
            workers.back()->performBlockAndWait([&] { adas.push_back(workers.back()->anyObjectNamed("Person")); });
        }
        EXPECT_TRUE(eventually([&] { return each->activeContexts().size() >= 2; }));
    }
    ASSERT_EQ(adas[0]->recordKey(), adas[2]->recordKey()) << "or the other store's record could not be mistaken for this one";
    auto const rename = [&](NSManagedObjectContext& context, std::string const& name) {
        context.performBlockAndWait([&] {
            (*context.anyObjectNamed("Person"))["name"] = name;
            context.saveAndWait();
        });
    };
    auto const seen = [&](int which) {
        waitForFile(*store);
        waitForFile(*other);
        Value name;
        workers[which]->performBlockAndWait([&] { name = adas[which]->valueForKey("name"); }); // behind the merges
        return name;
    };
    for (int i = 0; i < 4; ++i) EXPECT_EQ(seen(i), "Ada");
    workers[1]->performBlockAndWait([&] { (*adas[1])["age"] = 36; }); // unsaved
    rename(*workers[0], "Eve");
    EXPECT_EQ(seen(1), "Eve");
    EXPECT_EQ(shown(*adas[1], "age"), 36) << "unsaved changes stay";
    rename(*store->privateContext(), "Zoe");
    EXPECT_EQ(seen(0), "Zoe");
    EXPECT_EQ(seen(1), "Zoe");
    for (int i : {2, 3}) EXPECT_EQ(seen(i), "Ada");
    EXPECT_EQ(namesInFile(*other), "Ada");
}

TEST(ManagedObjectStore, AnEditThatLosesToAnotherProcessIsToldWhereItWasMade) {
    StoreHome home;
    auto const store = home.store(), other = home.store();
    saveOne(*store, "Ada");
    waitForFile(*store);
    std::promise<std::string> told;
    auto const listener = listening(nullptr, NSManagedObjectContextDidOverruleChangesNotification, [&](auto const& notification) {
        auto const changes = overruledChanges(*notification);
        auto const& change = changes.front();
        EXPECT_TRUE(Dispatcher::inMainQueue() && notification->object() == store->mainThreadContext() && changes.size() == 1);
        EXPECT_EQ((*change.object)["name"].get(), "Eva") << "it shows the other value already";
        told.set_value(change.attribute + " " + change.lost.description() + " " + change.won.description());
    });
    auto const rename = [](ManagedObjectStore& each, char const* name) {
        auto const context = each.mainThreadContext();
        context->performBlockAndWait([&] { (*context->allObjects("Person").front())["name"] = name; });
    };
    rename(*store, "Ann");
    rename(*other, "Eva");
    for (auto const& each : {other, store}) {
        onMainThread([&] { each->mainThreadContext()->saveAndWait(); });
        waitForFile(*each);
    }
    EXPECT_EQ(told.get_future().get(), "name Ann Eva");
}

TEST(ManagedObjectStore, RootsOwnSaveEntersNoGroup) {
    StoreHome home;
    auto const store = home.store();
    SaveLog const log;
    store->privateContext()->performBlockAndWait([&] {
        insert(*store->privateContext(), "Person", "Ada");
        store->privateContext()->saveAndWait();
        EXPECT_EQ(dispatch_group_wait(store->saveDispatchGroup(), DISPATCH_TIME_NOW), 0);
    });
    EXPECT_EQ(log.text(), "Private Context; ");
}

TEST(ManagedObjectStore, RegistryLosesNoneAndKeepsTheStoreWhileItHasEntries) {
    StoreHome home;
    auto store = home.store();
    WeakRef<ManagedObjectStore> const watched = store;
    std::vector<Ref<NSManagedObjectContext>> workers(64);
    dispatch_apply(workers.size(), nullptr, [&](std::size_t at) { workers[at] = store->createWorkerContext(); });
    EXPECT_TRUE(eventually([&] { return store->activeContexts().size() == workers.size(); }));
    store->registerContext(workers[0]); // twice: nobody checks
    EXPECT_TRUE(eventually([&] { return store->activeContexts().size() == workers.size() + 1; }));
    store->unregisterContext(workers[0]);
    EXPECT_TRUE(eventually([&] { return store->activeContexts().size() == workers.size() - 1; }));
    EXPECT_EQ(store->activeContexts().front()->store(), store);
    workers.resize(2);
    EXPECT_EQ(store->activeContexts().size(), 63u) << "entries of dead contexts linger";
    EXPECT_EQ(std::ranges::count_if(store->activeContexts(), [](auto const& entry) { return !entry->context(); }), 62);
    auto* const unowned = store.get();
    store = nullptr;
    ASSERT_FALSE(watched.expired()) << "held by its entries";
    unowned->unregisterContext(workers[1]);
    EXPECT_TRUE(eventually([&] { return watched.expired(); }));
}

TEST(ManagedObjectStore, DeletesAllDataAndReplacesTheMainContext) {
    StoreHome home;
    auto const store = home.store();
    auto const worker = store->createWorkerContext();
    auto const before = store->mainThreadContext();
    auto const fill = [&] {
        worker->performBlockAndWait([&] {
            for (auto const* name : {"Ada", "Bob"})
                (*insert(*worker, "Pet", "of " + std::string{name}))["owner"] = insert(*worker, "Person", name);
        });
        worker->saveAndWait({.toDisk = true});
        waitForFile(*store);
    };
    auto const deleteFrom = [&](std::optional<std::vector<Ref<NSEntityDescription>>> entities) {
        auto const done = dispatch_semaphore_create(0);
        auto const old = store->mainThreadContext();
        store->deleteAllData(std::move(entities), [&] {
            EXPECT_TRUE(Dispatcher::inMainQueue());
            EXPECT_NE(store->mainThreadContext(), old);
            dispatch_semaphore_signal(done);
        });
        dispatch_semaphore_wait(done, DISPATCH_TIME_FOREVER);
    };
    fill();
    deleteFrom(std::vector{store->model()->entitiesByName().at("Pet")});
    EXPECT_EQ(namesInFile(*store), "Ada,Bob");
    EXPECT_EQ(namesInFile(*store, "Pet"), "");
    deleteFrom({});
    EXPECT_EQ(namesInFile(*store), "");
    EXPECT_EQ(worker->parentContext(), before) << "workers keep the old one";
    EXPECT_EQ(store->createWorkerContext()->parentContext(), store->mainThreadContext());
}

TEST(ManagedObjectStore, MetadataReachesTheFileWithTheNextSave) {
    StoreHome home;
    auto const store = home.store();
    (*store)["lastSync"] = 42;
    store->modifyMetadata("seen", [](Value& value) { value = value.isAbsent() ? "first" : "again"; });
    auto const before = store->persistentStoreCoordinator()->persistentStores().front()->metadata();
    (*store)["missing"] = {};
    EXPECT_EQ(store->persistentStoreCoordinator()->persistentStores().front()->metadata(), before);
    EXPECT_TRUE((*home.store())["lastSync"].get().isAbsent());
    store->privateContext()->saveAndWait(); // without any other change
    auto const again = home.store();
    EXPECT_EQ((*again)["lastSync"].get(), 42);
    EXPECT_EQ((*again)["seen"].get(), "first");
    EXPECT_TRUE((*again)["NSStoreUUID"].get().isText());
    (*again)["lastSync"] = {};
    again->privateContext()->saveAndWait();
    EXPECT_TRUE((*home.store())["lastSync"].get().isAbsent());
}

TEST(ManagedObjectStore, MigratesWhateverTheOptionsSay) {
    StoreHome home;
    auto const store = home.store();
    saveOne(*store, "Ada");
    waitForFile(*store);
    std::string grown = peopleAndPets;
    grown.insert(grown.find("<relationship"), R"(<attribute name="city" optional="YES" attributeType="String"/>)");
    home.folder.write("Grown.xcdatamodel/contents", grown);
    auto const migrated = home.store(StoreOptions{.modelURL = home.url("Grown.xcdatamodel"), .filename = "Notes",
        .options = {{NSMigratePersistentStoresAutomaticallyOption, false}, {NSInferMappingModelAutomaticallyOption, false}}});
    EXPECT_EQ(namesInFile(*migrated), "Ada") << "it was wiped instead";
}

} // namespace
} // namespace Tessarin
