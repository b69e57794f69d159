// Names that are no paths, and what becomes of what cannot be opened.
#include "Tessarin/platform/objectgraph/persistence/stores/StoreClockPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include "tests/store/StoreFixture.h"

#include <iterator>

namespace Tessarin {
namespace {
using namespace tests;

namespace fs = std::filesystem;

TEST(StoreNames, WhatIsNoFileNameIsFatalBeforeAnythingIsTouched) {
    StoreHome home;
    home.folder.write("Documents/diary.txt", "mine");
    for (auto const& name : {std::string(), std::string("."), std::string(".."), std::string("../Pictures"),
                             std::string("Notes 11/2026"), std::string("a\0b", 3), std::string(245, 'n')}) {
        auto const sentence = "file name must have 1 to 244 bytes, without \"/\" and NUL";
        EXPECT_DEATH(home.store(name), sentence) << name;
        EXPECT_DEATH(
            (ManagedObjectStore::setFilename(name), home.store(StoreOptions{.modelURL = home.url("People.xcdatamodel")})),
            sentence)
            << name;
        EXPECT_DEATH((ManagedObjectStore::setAppGroupIdentifier("", name),
                      home.store(StoreOptions{.modelURL = home.url("People.xcdatamodel")})),
                     sentence);
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(home.folder.path("Documents")), {}), 1);
    for (auto const& name : {std::string(200, 'n'), std::string("50% ..?#")})
        EXPECT_TRUE(fs::exists(home.store(name)->storeURL().path() + "/" + name + ".db"));
}

/// The file existed before.
struct Replaced : ManagedObjectStore {
    void didCreateDatabase() override { ADD_FAILURE() << "nothing was created"; }
};

TEST(StoreReplacement, FolderGoesAsideWithAllItHoldsAndTheApplicationLearnsOfIt) {
    StoreHome home;
    std::vector<Ref<NSNotification>> told;
    auto const listener =
        listening(nullptr, ManagedObjectStoreDidReplaceNotification, [&](auto const& note) { told.push_back(note); });
    EXPECT_FALSE(home.store("Other")->replacement());
    for (int number = 1; number <= 5; ++number) {
        fs::remove_all(home.folder.path("Documents/Notes"));
        home.folder.write("Documents/Notes/Notes.db", "no store");
        home.folder.write("Documents/Notes/Notes.db-wal", "its log");
        home.folder.write("Documents/Notes/my-diary.txt", "mine " + std::to_string(number));
        auto const store = home.store<Replaced>();
        auto const copy = "Documents/.Notes.rescued/" + std::to_string(number);
        ASSERT_TRUE(store->replacement());
        EXPECT_EQ(store->replacement()->copy, home.url(copy));
        EXPECT_EQ(home.folder.read(copy + "/Notes.db-wal"), "its log");
        EXPECT_FALSE(fs::exists(home.folder.path("Documents/Notes/my-diary.txt")));
        ASSERT_EQ(told.size(), static_cast<std::size_t>(number));
        auto const& details = told.back()->userInfo().dictionary();
        EXPECT_EQ(told.back()->object(), store);
        EXPECT_EQ(details["error"].object(), store->replacement()->reason);
        EXPECT_EQ(details["copy"], Value(home.url(copy)));
        closing(*store).wait(); // its log, too, whose name the next one has
    }
    for (int number = 1; number <= 5; ++number)
        EXPECT_EQ(home.folder.read("Documents/.Notes.rescued/" + std::to_string(number) + "/my-diary.txt"),
                  "mine " + std::to_string(number));

    fs::remove_all(home.folder.path("Documents/Notes"));
    home.folder.write("Documents/Notes", "a text in place of the folder");
    EXPECT_EQ(home.folder.read("Documents/.Notes.rescued/" + home.store()->replacement()->copy->lastPathComponent()),
              "a text in place of the folder");
}

TEST(StoreReplacement, WhatWillPassIsWaitedForAndTouchesNothing) {
    StoreHome home;
    auto const patient = [&](std::string const& name) {
        return StoreOptions{.modelURL = home.url("People.xcdatamodel"), .filename = name, .timeLimit = 0.3};
    };
    auto const codeOf = [&](std::string const& name) -> std::int64_t {
        try {
            home.store(patient(name));
            return 0;
        } catch (ErrorException const& failure) { return failure.error()->code(); }
    };
    { // another connection has it open
        home.store();
        SQLite::Connection open(home.folder.path("Documents/Notes/Notes.db"));
        open.execute("PRAGMA user_version = 0; PRAGMA application_id = 7"); // another application's
        EXPECT_EQ(codeOf("Notes"), static_cast<std::int64_t>(StoreErrorCode::StoreOpen));
        EXPECT_EQ(open.integer("PRAGMA application_id"), 7);
    }
    EXPECT_EQ(home.store()->replacement()->copy, home.url("Documents/.Notes.rescued/1")) << "now nobody has";
    // The folder of the copies cannot be made.
    home.folder.write("Documents/.B.rescued", "in the way");
    home.folder.write("Documents/B/B.db", "no store");
    EXPECT_NE(codeOf("B"), 0);
    EXPECT_EQ(home.folder.read("Documents/B/B.db"), "no store");
    // A link that leads nowhere, and a read-only store.
    fs::create_directory(home.folder.path("Documents/C"));
    fs::create_symlink(home.folder.path("nowhere"), home.folder.path("Documents/C/C.db"));
    EXPECT_EQ(codeOf("C"), static_cast<std::int64_t>(StoreErrorCode::StorePlace));
    EXPECT_TRUE(fs::is_symlink(home.folder.path("Documents/C/C.db")));
    auto options = patient("B");
    options.options.set(NSReadOnlyPersistentStoreOption, true);
    fs::remove(home.folder.path("Documents/.B.rescued"));
    EXPECT_THROW(home.store(std::move(options)), ErrorException);
    EXPECT_FALSE(fs::exists(home.folder.path("Documents/.B.rescued")));
}

TEST(StoreReplacement, AFolderThatCouldNotBeMadeIsMadeLater) {
    StoreHome home;
    static std::string link;
    link = home.folder.path("Documents/Notes");
    fs::create_directories(home.folder.path("Documents"));
    fs::create_directory_symlink(home.folder.path("nowhere"), link);
    auto const clock = storeClock();
    storeClock() = {clock.now, [](double) { fs::remove(link); }}; // at the first pause
    EXPECT_TRUE(fs::exists(home.store()->storeURL().path() + "/Notes.db"));
    storeClock() = clock;
}

TEST(StoreReplacement, ApplicationMayThrowInsteadOfStartingEmpty) {
    StoreHome home;
    home.folder.write("Documents/Notes/Notes.db", "no store");
    auto const asking = [&](bool throws, int& asked) {
        return StoreOptions{.modelURL = home.url("People.xcdatamodel"),
                            .filename = "Notes",
                            .onRefusal = [&home, &asked, throws](Ref<NSError> const& error, MigrationPlan const* plan,
                                                                 std::optional<NSURL> const& copy) {
                                ++asked;
                                EXPECT_EQ(plan, nullptr);
                                EXPECT_EQ(copy, home.url("Documents/.Notes.rescued/1"));
                                EXPECT_EQ(home.folder.read("Documents/.Notes.rescued/1/Notes.db"), "no store");
                                if (throws) throw ErrorException(error);
                                return StoreOptions::AfterRefusal::Salvage; // nothing can be: it is no damaged store
                            }};
    };
    int asked = 0;
    for (int time = 0; time < 2; ++time) EXPECT_THROW(home.store(asking(true, asked)), ErrorException);
    EXPECT_EQ(home.folder.read("Documents/Notes/Notes.db"), "no store");
    EXPECT_EQ(home.store(asking(false, asked))->replacement()->copy, home.url("Documents/.Notes.rescued/1"));
    EXPECT_EQ(asked, 3);
}

TEST(StoreReplacement, WhatCanBeReadOfADamagedStoreIsInTheNewOneOnRequest) {
    StoreHome home;
    fs::create_directories(home.folder.path("Documents/Notes"));
    auto const file = home.url("Documents/Notes/Notes.db");
    {
        auto const context = contextOver(coordinatorOver(peopleModel(), NSSQLiteStoreType, file));
        inserted(*context, "Person", {{"name", "Ann"}});
        inserted(*context, "Pet", {{"name", "Rex"}});
        ASSERT_TRUE(saves(*context));
    }
    auto const page = SQLite::Connection(file.path()).integer("SELECT rootpage FROM sqlite_schema WHERE name = 'Pet'");
    auto bytes = home.folder.read("Documents/Notes/Notes.db");
    bytes.replace(static_cast<std::size_t>(page - 1) * 4096, 4096, std::string(4096, '\0'));
    home.folder.write("Documents/Notes/Notes.db", bytes);
    auto const store = home.store(StoreOptions{.modelURL = home.url("People.xcdatamodel"), .filename = "Notes",
                                               .onRefusal = [](auto const&...) { return StoreOptions::AfterRefusal::Salvage; }});
    ASSERT_TRUE(store->replacement() && store->replacement()->salvaged);
    EXPECT_FALSE(store->replacement()->salvaged->isComplete());
    EXPECT_EQ(namesInFile(*store), "Ann");
    EXPECT_EQ(namesInFile(*store, "Pet"), "");
}

} // namespace
} // namespace Tessarin
