#include "OtherProcess.h"
#include "Tessarin/platform/objectgraph/live/LiveList.h"
#include "Tessarin/platform/sqlite/Connection.h"

#include <fcntl.h>
#include <iostream>
#include <sstream>
#include <sys/syscall.h>

namespace Tessarin::tests {
namespace {

bool diesBeforeItsNotice = false;

} // namespace
} // namespace Tessarin::tests

/// In place of the C library's, for the library, too: the call by which a notice is touched.
extern "C" int utimensat(int folder, char const* path, timespec const* times, int flags) noexcept {
    if (Tessarin::tests::diesBeforeItsNotice) ::raise(SIGKILL);
    return static_cast<int>(::syscall(SYS_utimensat, folder, path, times, flags));
}

namespace Tessarin::tests {
namespace {

namespace fs = std::filesystem;

StoreOptions optionsFor(std::string const& folder) {
    return {.model = peopleModel(), .filename = "Shared", .directory = NSURL::fileURLWithPath(folder)};
}

/// Words: "+A" adds a person, "-A" deletes one, "A=7" is an age, "A>B" is the boss, "!" all get the age 99 in one batch, "0" deletes
/// all, "purge" forgets the history, "mute" is killed before it touches the notice.
void edit(ManagedObjectStore& store, std::string const& words) {
    auto const worker = store.createWorkerContext();
    auto const person = [&](std::string const& name) { return fetched(*worker, "Person", where("name == %@", name)).at(0); };
    std::istringstream input(words);
    bool purges = false;
    worker->performBlockAndWait([&] {
        for (std::string word; input >> word;) {
            if (word[0] == '+') {
                insert(*worker, "Person", word.substr(1));
            } else if (word[0] == '-') {
                worker->deleteObject(*person(word.substr(1)));
            } else if (word == "mute") {
                diesBeforeItsNotice = true;
            } else if (word == "purge") {
                purges = true;
            } else if (word == "0") {
                store.deleteAllData({}, {});
            } else if (word == "!") {
                auto const request = make<NSBatchUpdateRequest>("Person");
                request->setPropertiesToUpdate({{"age", 99}});
                Ref<NSError> error;
                EXPECT_TRUE(worker->executeRequest(*request, error));
            } else if (word[1] == '=') {
                person(word.substr(0, 1))->setValueForKey(std::stoi(word.substr(2)), "age");
            } else {
                person(word.substr(0, 1))->setValueForKey(Value(person(word.substr(2))), "boss");
            }
        }
    });
    Ref<NSError> error;
    worker->performBlockAndWait([&] { EXPECT_TRUE(worker->saveThrough(error)) << error->description(); });
    if (purges) {
        auto const& coordinator = worker->persistentStoreCoordinator();
        EXPECT_TRUE(coordinator->purgeHistory(*coordinator->currentHistoryToken(error), error));
    }
}

/// A store with a list of people on its main context, which is the main queue's.
class Here {
public:
    explicit Here(std::string const& folder)
        : store(make<ManagedObjectStore>(optionsFor(folder))), main(store->mainThreadContext()) {
        main->performBlockAndWait([&] {
            auto const request = make<NSFetchRequest>("Person");
            request->setSortDescriptors({by("name")});
            list = make<LiveList>(main, request);
            connection = list->observe([&](LiveChanges const&) { ++told; });
        });
    }
    ~Here() {
        main->performBlockAndWait([&] {
            connection = {};
            list = nullptr;
        });
        store->setActiveContexts({});
        store->close();
        EXPECT_TRUE(eventually([&] { return store->isClosed(); }));
    }
    Here(Here const&) = delete;
    Here& operator=(Here const&) = delete;

    /// "A B7 C": who has an age, with it; "A>B" with a boss.
    std::string text() const {
        std::string all;
        main->performBlockAndWait([&] {
            for (std::size_t at = 0; at < list->size(); ++at) {
                auto const person = (*list)[at];
                auto const boss = toOne(person, "boss");
                auto const age = person->valueForKey("age");
                all += (all.empty() ? "" : " ") + person->valueForKey("name").description() +
                       (age.isAbsent() ? "" : age.description()) + (boss ? ">" + boss->valueForKey("name").description() : "");
            }
        });
        return all;
    }
    bool shows(std::string const& expected) const {
        if (eventually([&] { return text() == expected; })) return true;
        ADD_FAILURE() << "shows " << text();
        return false;
    }

    Ref<ManagedObjectStore> store;
    Ref<NSManagedObjectContext> main;
    Ref<LiveList> list;
    ScopedConnection connection;
    std::atomic<int> told{0};
};

} // namespace

TEST(OtherProcess, DISABLED_Writer) {
    auto const* folder = std::getenv("WRITES_TO");
    if (!folder) GTEST_SKIP() << "not started by a test";
    auto const store = make<ManagedObjectStore>(optionsFor(folder));
    for (std::string words; std::getline(std::cin, words);) {
        edit(*store, words);
        ASSERT_EQ(::write(3, ".", 1), 1);
    }
}

TEST(OtherProcess, WhatItSavesReachesAllContextsAndWhatObservesThem) {
    TemporaryFolder folder;
    Here here(folder.path());
    OtherProcess const other(folder.path());
    other.does("+A +B +C");
    EXPECT_TRUE(here.shows("A B C"));
    auto const worker = here.store->createWorkerContext();
    auto const object = fetched(*worker, "Person", where("name == 'B'")).at(0);
    auto const reports = fetched(*worker, "Person", where("name == 'C'")).at(0);
    auto const seen = [&] { // objects are looked at on their queue only
        std::string text;
        worker->performBlockAndWait([&] {
            text = object->valueForKey("name").description() + object->valueForKey("age").description() + " " +
                   listed(reports->mutableSetValueForKey("reports").allObjects(), "name");
        });
        return text;
    };
    EXPECT_EQ(seen(), "Bnil ");
    std::vector<std::string> heard;
    ScopedConnection observing;
    worker->performBlockAndWait([&] {
        observing = object->observe({"age"}, [&](std::span<ValueChange const> changes) {
            for (auto const& each : changes) heard.push_back(each.now.description());
        });
    });
    other.does("B=7 B>C");
    EXPECT_TRUE(here.shows("A B7>C C"));
    EXPECT_TRUE(eventually([&] { return seen() == "B7 B"; })) << seen();
    worker->performBlockAndWait([&] { EXPECT_EQ(heard, std::vector<std::string>{"7"}); });

    // Unsaved changes stay, and who saves later meets what was saved in between: another property, so both are kept.
    worker->performBlockAndWait([&] { object->setValueForKey("Bee", "name"); });
    other.does("B=8 -A");
    EXPECT_TRUE(here.shows("B8>C C"));
    EXPECT_TRUE(eventually([&] { return seen() == "Bee8 Bee"; })) << seen();
    Ref<NSError> error;
    worker->performBlockAndWait([&] { EXPECT_TRUE(worker->saveThrough(error)) << error->description(); });
    EXPECT_TRUE(here.shows("Bee8>C C"));

    other.does("+D !");
    EXPECT_TRUE(here.shows("Bee99>C C99 D"));
    other.does("C=5 purge"); // before anybody may have looked at it
    EXPECT_TRUE(here.shows("Bee99>C C5 D"));
    other.does("0");
    EXPECT_TRUE(here.shows(""));
    worker->performBlockAndWait([&] { observing.end(); });
}

TEST(OtherProcess, ASaveIsShownSoonAndOwnOnesAreNotTakenForOthers) {
    TemporaryFolder folder;
    Here here(folder.path());
    OtherProcess const other(folder.path());
    other.does("+A");
    ASSERT_TRUE(here.shows("A"));
    auto best = std::chrono::steady_clock::duration::max();
    for (int age = 1; age <= 20; ++age) {
        other.does(fmt::format("A={}", age));
        auto const start = std::chrono::steady_clock::now();
        ASSERT_TRUE(here.shows(fmt::format("A{}", age)));
        best = std::min(best, std::chrono::steady_clock::now() - start);
    }
    EXPECT_LT(best, std::chrono::milliseconds(100));
    auto const before = here.told.load();
    std::vector<Ref<NSNotification>> refreshed;
    auto const root = here.main->parentContext();
    auto const listener = listening(root, NSManagedObjectContextObjectsDidChangeNotification, [&](auto const& note) {
        if (!note->userInfo().dictionary()[NSRefreshedObjectsKey].set().empty()) refreshed.push_back(note);
    });
    edit(*here.store, "A=50");
    ASSERT_TRUE(here.shows("A50"));
    other.does("+B");
    ASSERT_TRUE(here.shows("A50 B"));
    EXPECT_EQ(here.told, before + 2);
    root->performBlockAndWait([&] { EXPECT_TRUE(refreshed.empty()); });
}

TEST(OtherProcess, ALostNoticeIsMadeUpForAtTheNextSave) {
    TemporaryFolder folder;
    Here here(folder.path());
    OtherProcess(folder.path()).does("+A");
    ASSERT_TRUE(here.shows("A"));
    OtherProcess(folder.path()).does("mute +B A=3"); // it dies between the commit and the notice
    EXPECT_EQ(SQLite::Connection(folder.path("Shared/Shared.db")).integer("SELECT count(*) FROM Person"), 2);
    EXPECT_EQ(here.text(), "A") << "nobody has looked";
    edit(*here.store, "+C");
    EXPECT_TRUE(here.shows("A3 B C"));
    // The same when the notice itself is removed: the next save makes another one, which is watched.
    auto const notice = folder.path("Shared/Shared.db-notice");
    fs::remove(notice);
    edit(*here.store, "+D");
    OtherProcess(folder.path()).does("-D");
    EXPECT_TRUE(here.shows("A3 B C"));
    // Who only reads is told of the one that the next writer makes, and of one that is put in its place.
    OtherProcess const other(folder.path());
    for (auto const* age : {"5", "6", "3"}) {
        fs::remove(notice);
        if (*age == '6') folder.write("Shared/Shared.db-notice", "");
        other.does(std::string("A=") + age);
        EXPECT_TRUE(here.shows(std::string("A") + age + " B C"));
    }
    // One look meets a deletion and, after it, links of the same record that somebody changed who had not noticed.
    for (auto const* words : {"mute A=4", "mute -A"}) OtherProcess(folder.path()).does(words);
    SQLite::Connection(folder.path("Shared/Shared.db"))
        .execute("INSERT INTO tessarin_history SELECT id + 2, time, process, writer, author, context, changes "
                 "FROM tessarin_history ORDER BY id DESC LIMIT 1 OFFSET 1");
    edit(*here.store, "+E");
    EXPECT_TRUE(here.shows("B C E"));
    // Nor does anybody hear of what is saved without a history: the next save, here as elsewhere, tells that there was something.
    Ref<NSError> error;
    auto const silent = make<NSPersistentStoreCoordinator>(peopleModel());
    ASSERT_TRUE(silent->addPersistentStoreWithType(NSSQLiteStoreType, {}, NSURL::fileURLWithPath(folder.path("Shared/Shared.db")),
                                                   {}, error));
    auto const context = contextOver(silent);
    for (auto const* age : {"7", "8"}) {
        auto const person = fetched(*context, "Person", where("name == 'B'")).at(0);
        context->performBlockAndWait([&] {
            person->setValueForKey(std::stoi(age), "age");
            EXPECT_TRUE(context->save(error)) << error->description();
        });
        *age == '7' ? edit(*here.store, "C=1") : other.does("C=2");
        EXPECT_TRUE(here.shows(std::string("B") + age + " C" + (*age == '7' ? "1" : "2") + " E")) << here.text();
    }
}

TEST(OtherProcess, WhereNothingCanBeWatchedSavesAndFetchesLook) {
    TemporaryFolder folder;
    fs::create_directories(folder.path("Shared/Shared.db-notice")); // what somebody put there is no notice
    testing::internal::CaptureStderr();
    Here here(folder.path());
    OtherProcess const other(folder.path());
    other.does("+A");
    EXPECT_TRUE(eventually([&] {
        fetched(*here.main, "Person", where("age == 12345"));
        return here.text() == "A";
    }));
    other.does("A=4");
    edit(*here.store, "+B");
    EXPECT_TRUE(here.shows("A4 B"));
    auto const said = testing::internal::GetCapturedStderr();
    EXPECT_NE(said.find("Shared.db is noticed only when this one saves or fetches: Invalid argument"), std::string::npos) << said;
    EXPECT_EQ(said.find("noticed only"), said.rfind("noticed only"));
}

TEST(OtherProcess, TheNoticeHasThePermissionsOfTheFileAndALinkIsNotFollowed) {
    TemporaryFolder folder;
    folder.write("precious", "");
    fs::create_directories(folder.path("Shared"));
    fs::last_write_time(folder.path("precious"), fs::file_time_type{});
    fs::create_symlink(folder.path("precious"), folder.path("Shared/Shared.db-notice"));
    testing::internal::CaptureStderr();
    {
        Here here(folder.path());
        edit(*here.store, "+A");
    }
    EXPECT_EQ(fs::last_write_time(folder.path("precious")), fs::file_time_type{});
    EXPECT_NE(testing::internal::GetCapturedStderr().find("Too many levels of symbolic links"), std::string::npos);
    fs::remove(folder.path("Shared/Shared.db-notice"));
    fs::permissions(folder.path("Shared/Shared.db"), fs::perms{0640});
    Here here(folder.path());
    edit(*here.store, "+B");
    EXPECT_EQ(fs::status(folder.path("Shared/Shared.db-notice")).permissions(), fs::perms{0640});
}

} // namespace Tessarin::tests
