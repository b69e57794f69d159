#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "tests/store/StoreFixture.h"
#include <future>

namespace Tessarin {
namespace {
using namespace tests;
namespace fs = std::filesystem;

constexpr auto readOnlyCode = static_cast<std::int64_t>(StoreErrorCode::StoreReadOnly);
constexpr auto cancelledCode = static_cast<std::int64_t>(StoreErrorCode::StoreOpeningCancelled);

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
    for (auto const& context : {store->privateContext(), store->mainThreadContext(), store->createWorkerContext()})
        EXPECT_EQ(context->mergePolicy(), policy) << context->name();
    store->deleteAllData([] {});
    EXPECT_TRUE(eventually([&] { return store->mainThreadContext()->mergePolicy() == policy; })) << "the next main context, too";
    EXPECT_DEATH(home.store(StoreOptions{.filename = "A", .directory = *NSURL::URLWithString("https://example.org/")}),
                 "directory");
    EXPECT_DEATH(home.store(StoreOptions{.inMemory = true, .readOnly = true}), "read only");

    auto const one = home.store(StoreOptions{.model = peopleModel(), .inMemory = true}),
               other = home.store(StoreOptions{.model = peopleModel(), .inMemory = true});
    (*one)["seen"] = 3;
    one->importBlock([](auto const& context) { insert(*context, "Person", "Ada"); });
    EXPECT_TRUE(eventually([&] { return countInStore(*one->privateContext(), "Person") == 1; }));
    EXPECT_TRUE((*one)["seen"].get() == 3 && (*other)["seen"].get().isAbsent());
    EXPECT_EQ(countInStore(*other->privateContext(), "Person"), 0) << "two stores";
    EXPECT_FALSE(fs::exists(home.folder.path("Documents")));
}

TEST(StoreOptions, AStoreThatIsReadOnlySaysSoAtEachLevelAndKeepsTheChanges) {
    StoreHome home;
    auto const writer = home.store();
    saveOne(*writer, "Ada");
    waitForFile(*writer);
    auto const store = home.store(StoreOptions{.model = peopleModel(), .filename = "Notes", .readOnly = true});
    for (auto const& context : {store->createWorkerContext(), store->mainThreadContext(), store->privateContext()})
        context->performBlockAndWait([&] {
            auto const ada = context->allObjects("Person").front();
            (*ada)["name"] = "Eva";
            EXPECT_EQ(codeOfSave(*context), readOnlyCode) << context->name();
            EXPECT_TRUE((*ada)["name"].get() == "Eva" && context->hasChanges());
            context->rollback();
            EXPECT_EQ(codeOfSave(*context), 0) << "there is nothing to save";
        });
    EXPECT_EQ(namesInFile(*writer), "Ada");
    EXPECT_THROW(home.store(StoreOptions{.model = peopleModel(), .filename = "None", .readOnly = true, .timeLimit = 0.01}),
                 ErrorException);
    EXPECT_FALSE(fs::exists(home.folder.path("Documents/None")));
}

/// "opened", or the error: as the completion is told.
std::future<std::string> opened(
    StoreOptions options, std::function<void(Ref<StoreOpening>)> then = [](auto const&) {}) {
    auto told = std::make_shared<std::promise<std::string>>();
    options.model = options.modelURL ? nullptr : peopleModel();
    then(ManagedObjectStore::open(std::move(options), [told](auto const& store, auto const& error) {
        if (store) saveOne(*store, "Ada"), store->setActiveContexts({});
        EXPECT_TRUE(Dispatcher::inMainQueue() && bool(store) == !error);
        told->set_value(store ? "opened" : std::to_string(error->code()) + error->localizedDescription());
    }));
    return told->get_future();
}

TEST(StoreOpening, GivesTheStoreOrWhyThereIsNoneOnTheMainQueue) {
    StoreHome home;
    std::string grown = peopleAndPets, progress;
    grown.insert(grown.find("<relationship"), R"(<attribute name="city" optional="YES" attributeType="String"/>)");
    home.folder.write("Grown.xcdatamodel/contents", grown);
    home.folder.write("Documents/file", "where a folder should be");
    home.folder.write("Documents/Broken/Broken.db", std::string(5000, 'x'));
    auto first = opened({.filename = "Notes"}), second = opened({.filename = "Notes"}); // of the same file at the same time
    EXPECT_EQ(first.get() + second.get(), "openedopened");
    EXPECT_EQ(
        opened({.modelURL = home.url("Grown.xcdatamodel"),
                .filename = "Notes",
                .onProgress =
                    [&](StoreProgress const& now) { progress += Dispatcher::inMainQueue() ? now.name + ";" : "elsewhere"; }})
            .get(),
        "opened");
    EXPECT_TRUE(progress.starts_with("Person;") && progress.find("elsewhere") == progress.npos) << progress;
    auto const none = opened({.filename = "A", .directory = home.url("Documents/file"), .timeLimit = 0.01}).get();
    EXPECT_NE(none.find("Not a directory"), std::string::npos) << none;
    EXPECT_DEATH(opened({}), "file name");

    auto const cancels = [](Ref<StoreOpening> const& opening) { opening->cancel(); };
    EXPECT_TRUE(opened({.filename = "A", .directory = home.url("Documents/file")}, cancels)
                    .get()
                    .starts_with(std::to_string(cancelledCode)));
    std::promise<Ref<StoreOpening>> handle;
    auto const refused = opened({.filename = "Broken",
                                 .onRefusal =
                                     [&](auto const&...) {
                                         handle.get_future().get()->cancel();
                                         return StoreOptions::AfterRefusal::StartEmpty;
                                     }},
                                [&](auto const& opening) { handle.set_value(opening); })
                             .get();
    EXPECT_TRUE(refused.starts_with(std::to_string(cancelledCode))) << refused;
    EXPECT_EQ(home.folder.read("Documents/Broken/Broken.db"), std::string(5000, 'x')) << "it was replaced";
}

} // namespace
} // namespace Tessarin
