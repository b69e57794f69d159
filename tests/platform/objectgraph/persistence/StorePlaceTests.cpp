// What opening a store makes, keeps, waits for and leaves alone in the file system.
#include "StoreFixture.h"
#include "Tessarin/platform/foundation/files/NSFileManager.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSPersistentStoreCoordinator.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreClockPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreRescuePrivate.h"
#include "Tessarin/platform/sqlite/Connection.h"

#include <sys/stat.h>

#include <set>

namespace Tessarin::tests {
namespace {

namespace fs = std::filesystem;

class StorePlace : public StoreInItsFolder {
protected:
    /// An opening that would wait fails at once instead.
    Ref<SQLiteStore> opened(Dictionary options = {}, Ref<NSManagedObjectModel> model = libraryModel().build()) {
        if (options[NSStoreWaitingOption].isAbsent()) options.set(NSStoreWaitingOption, make<StoreWaiting>(nullptr, 0.0));
        return SQLiteStore::open(url, std::make_shared<RowSpace>(std::move(model)), options, error);
    }
    /// The files of a store that is still open, with all it holds in the log.
    void makeYoungStore(fs::path const& to) {
        OpenStore open(url, libraryModel().build());
        ASSERT_FALSE(open.save({open.insertion("Author", open.newKey(), {{"name", "Ada"}})}));
        for (auto const* ending : {"", "-wal"}) fs::copy_file(place.native() + ending, to.native() + ending);
    }
    std::string copied(std::string const& number, std::string_view ending) const {
        return folder.read(".Notes.rescued/" + number + "/Notes.db" + std::string(ending));
    }
};

TEST_F(StorePlace, WhatStandsInADamagedLogAloneIsKept) {
    auto const young = fs::path(folder.path("young.db"));
    makeYoungStore(young);
    auto const file = folder.read("young.db"), log = folder.read("young.db-wal");
    auto const with = [](std::string text, std::size_t at) {
        text[at] = static_cast<char>(text[at] ^ 0x55);
        return text;
    };
    struct {
        char const* what;
        std::optional<std::string> file;
        std::string log;
        bool isRefused;
    } const rows[] = {{"the beginning", file, with(log, 0), true},
                      {"the salt", file, with(log, 17), true},
                      {"the first page", file, with(log, 100), true},
                      {"the header", file, std::string(32, '\0') + log.substr(32), true},
                      {"an empty file", "", log, true},
                      {"no file", std::nullopt, log, true},
                      {"nothing was ever committed", file, log.substr(0, 32 + 2 * (24 + 4096)), false},
                      {"a whole one", file, log, false}};
    for (auto const& row : rows) {
        fs::remove_all(place.parent_path());
        fs::remove_all(folder.path(".Notes.rescued"));
        fs::create_directory(place.parent_path());
        row.file ? folder.write("Notes/Notes.db", *row.file) : folder.write("Notes/Notes.db-journal", "kept too");
        folder.write("Notes/Notes.db-wal", row.log);
        EXPECT_EQ(opened() == nullptr, row.isRefused) << row.what;
        EXPECT_EQ(copied("1", "-wal"), row.isRefused ? row.log : "") << row.what;
        EXPECT_EQ(copied("1", "-journal"), row.file ? "" : "kept too");
    }
}

TEST_F(StorePlace, CopiesHaveNumbersTheirLogsAndOnlyOursGo) {
    for (int number = 1; number <= 6; ++number) {
        for (auto const* ending : {"", "-wal"}) {
            fs::remove(place.native() + ending);
            folder.write("Notes/Notes.db" + std::string(ending), "no store" + std::string(ending) + std::to_string(number));
        }
        for (int time = 0; time < 2; ++time) { // the second finds it kept
            ASSERT_FALSE(opened());
            ASSERT_TRUE(StoreRefusal::of(*error));
            EXPECT_EQ(StoreRefusal::of(*error)->copy(),
                      NSURL::fileURLWithPath(folder.path(".Notes.rescued/" + std::to_string(number))));
        }
        EXPECT_EQ(copied(std::to_string(number), "-wal"), "no store-wal" + std::to_string(number));
        if (number == 3) folder.write(".Notes.rescued/3/Notes.db-notice", ""); // of a folder that was moved there
        if (number != 2) continue;
        folder.write(".Notes.rescued/2/diary.txt", "mine");
        fs::rename(folder.path(".Notes.rescued/1"), folder.path(".Notes.rescued/of March"));
    }
    std::set<std::string> left;
    for (auto const& each : fs::directory_iterator(folder.path(".Notes.rescued"))) left.insert(each.path().filename());
    EXPECT_EQ(left, (std::set<std::string>{"2", "4", "5", "6", "of March"}));
    EXPECT_EQ(copied("2", ""), "no store2") << "not even in part";
}

TEST_F(StorePlace, AStoreWithoutRecordsIsNotKept) {
    auto wide = ModelBuilder();
    wide.entity("Wide");
    for (int at = 0; at < 2100; ++at)
        wide.attribute("a" + std::to_string(at), NSAttributeType::Integer64); // more than a table may have
    for (int time = 0; time < 2; ++time) {
        EXPECT_FALSE(opened({}, wide.build()));
        EXPECT_TRUE(StoreRefusal::of(*error) && StoreRefusal::of(*error)->isOfEmptyStore());
    }
    EXPECT_EQ(rescued(), 0U);
    // Unless somebody writes to it before it is replaced.
    auto const file = folder.path("Notes/Notes.db");
    SQLite::Connection(file).execute("CREATE TABLE other (text); INSERT INTO other VALUES ('mine')");
    std::optional<NSURL> copy;
    ASSERT_TRUE(replaceStore(file, *StoreRefusal::of(*error), 0600, copy));
    ASSERT_TRUE(copy);
    EXPECT_EQ(SQLite::Connection(copy->path() + "/Notes.db").text("SELECT text FROM other"), "mine");
}

TEST_F(StorePlace, WhatWillPassIsWaitedForAndWhatIsRefusedIsNotChanged) {
    ASSERT_TRUE(opened());
    SQLite::Connection(place.native())
        .execute("PRAGMA journal_mode = DELETE; INSERT INTO Tag (id, version, name) VALUES (1, 2, 'x')");
    auto const good = folder.read("Notes/Notes.db");
    EXPECT_FALSE(opened({{NSInferMappingModelAutomaticallyOption, false}}, ModelBuilder().entity("Other").build()));
    EXPECT_TRUE(StoreRefusal::of(*error));
    EXPECT_EQ(folder.read("Notes/Notes.db"), good) << "not even the mode of its journal";
    EXPECT_EQ(rescued(), 1U);
    for (std::size_t const versionPlace : {18U, 19U}) {
        auto newer = good;
        newer[versionPlace] = 3;
        folder.write("Notes/Notes.db", newer);
        EXPECT_FALSE(opened());
        EXPECT_FALSE(StoreRefusal::of(*error)) << error->localizedDescription();
    }
    folder.write("Notes/Notes.db", good);
    EXPECT_TRUE(opened());
}

TEST_F(StorePlace, APathThatCanHoldNoStoreIsAnErrorAtOnce) {
    std::string deep = folder.path();
    while (deep.size() + 130 < 500) fs::create_directory(deep += "/" + std::string(120, 'd'));
    fs::create_symlink(folder.path("nowhere"), folder.path("link.db"));
    fs::create_symlink(folder.path("nowhere"), folder.path("folder"));
    auto const ofLength = [&](std::size_t length) { return deep + "/" + std::string(length - deep.size() - 1, 'n'); };
    auto const named = folder.path(std::string(248, 'n')); // room for the name, not for that of its journal
    for (auto const& path : {folder.path("link.db"), folder.path("folder/a.db"), ofLength(505), named}) {
        Dictionary const patient{{NSStoreWaitingOption, make<StoreWaiting>(nullptr, 60.0)}};
        EXPECT_FALSE(
            SQLiteStore::open(NSURL::fileURLWithPath(path), std::make_shared<RowSpace>(libraryModel().build()), patient, error))
            << path;
        EXPECT_EQ(error->code(), static_cast<std::int64_t>(StoreErrorCode::StorePlace)) << error->localizedDescription();
    }
    EXPECT_TRUE(OpenStore(NSURL::fileURLWithPath(ofLength(504)), libraryModel().build()).store);
    auto const cutOff = *NSURL::URLWithString("file://" + folder.path("cut.db%00b"));
    EXPECT_FALSE(make<NSPersistentStoreCoordinator>(libraryModel().build())
                     ->addPersistentStoreWithType(NSSQLiteStoreType, {}, cutOff, {}, error));
    EXPECT_TRUE(error);
    EXPECT_FALSE(fs::exists(folder.path("cut.db")));
}

/// A clock that only waiting moves.
struct FakeClock {
    FakeClock() { storeClock() = {[] { return seconds; }, [](double pause) { seconds += pause, ++pauses; }}; }
    ~FakeClock() { storeClock() = before; }
    StoreClock const before = storeClock();
    static inline double seconds = 0;
    static inline int pauses = 0;
};

TEST_F(StorePlace, WaitingBacksOffTellsAndEnds) {
    FakeClock const clock;
    fs::remove(place.parent_path()); // a mount that is missing, perhaps
    std::vector<int> told;
    auto const waiting = make<StoreWaiting>([&](Ref<NSError> const& reason, double seconds) {
        told.push_back(static_cast<int>(seconds));
        EXPECT_NE(reason->localizedDescription().find("No such file"), std::string::npos);
    }, 100.0);
    EXPECT_FALSE(opened({{NSStoreWaitingOption, waiting}}));
    EXPECT_TRUE(error && waiting->isOver());
    EXPECT_EQ(told, (std::vector{1, 2, 4, 8, 16, 32, 64}));
    EXPECT_NEAR(FakeClock::seconds, 100, 0.1);
    EXPECT_NEAR(FakeClock::pauses, 107, 10) << "of up to a second each";
}

TEST_F(StorePlace, FilesAreTheirUsersAloneUnlessAnOptionSaysOtherwise) {
    auto const modeOf = [&](std::string const& name) {
        struct stat status {};
        ::stat(folder.path(name).c_str(), &status);
        return status.st_mode & 0777;
    };
    struct {
        mode_t mask, wanted, folders;
        Dictionary options;
    } const rows[] = {{0, 0600, 0700, {}}, {0077, 0640, 0750, {{NSFilePosixPermissions, 0640}}}, {0, 0604, 0700, {}}};
    for (auto const& [mask, wanted, folders, options] : rows) {
        auto const before = ::umask(mask);
        fs::remove_all(folder.path(".Notes.rescued"));
        fs::remove(place);
        if (wanted == 0604) folder.write("Notes/Notes.db", ""), fs::permissions(place, fs::perms(0604)); // it exists
        {
            auto const store = opened(options);
            ASSERT_TRUE(store);
            store->reserveKeys(1, error);
            for (auto const* name : {"Notes/Notes.db", "Notes/Notes.db-wal", "Notes/Notes.db-shm"})
                EXPECT_EQ(modeOf(name), wanted) << name;
        }
        folder.write("Notes/Notes.db", "no store");
        EXPECT_FALSE(opened(options));
        EXPECT_EQ(modeOf(".Notes.rescued/1/Notes.db"), wanted);
        for (auto const* name : {".Notes.rescued", ".Notes.rescued/1"}) EXPECT_EQ(modeOf(name), folders) << name;
        ::umask(before);
    }
}

TEST_F(StorePlace, SavingNoticesThatTheFileIsGone) {
    auto const away = folder.path("away");
    for (bool const isReplaced : {false, true}) {
        OpenStore open(url, libraryModel().build());
        auto const save = [&] { return open.save({open.insertion("Author", 7, {{"name", "Ada"}})}); };
        ASSERT_FALSE(open.save({open.insertion("Author", open.newKey(), {{"name", "Eve"}})}));
        fs::rename(place.parent_path(), away);
        if (isReplaced) {
            fs::create_directory(place.parent_path());
            ASSERT_TRUE(opened());
        }
        for (int time = 0; time < 2; ++time) {
            auto const problem = save();
            ASSERT_TRUE(problem);
            EXPECT_NE(problem->localizedDescription().find("not in its place"), std::string::npos)
                << problem->localizedDescription();
        }
        EXPECT_EQ(fs::exists(place), isReplaced) << "made again";
        fs::remove_all(place.parent_path());
        fs::rename(away, place.parent_path());
        EXPECT_FALSE(save()) << "it is back";
        open.store = nullptr;
        fs::remove_all(place.parent_path());
        fs::create_directory(place.parent_path());
    }
}

TEST_F(StorePlace, ReadOnlyMakesNothingAndSavesNothing) {
    Dictionary const readOnly{{NSReadOnlyPersistentStoreOption, true}};
    EXPECT_FALSE(opened(readOnly)) << "nothing is there";
    EXPECT_FALSE(fs::exists(place));
    {
        OpenStore open(url, libraryModel().build());
        ASSERT_FALSE(open.save({open.insertion("Author", open.newKey(), {{"name", "Ada"}})}));
        OpenStore reader(folder.url("none/none.db"), libraryModel().build(), OpenStore::Kind::Memory);
        reader.store = opened(readOnly); // beside one that writes
        ASSERT_TRUE(reader.store);
        EXPECT_EQ(reader.fetch("Author").size(), 1U);
        auto const problem = reader.save({reader.insertion("Author", 99, {{"name", "Eve"}})});
        EXPECT_TRUE(problem && problem->code() == static_cast<std::int64_t>(StoreErrorCode::StoreReadOnly));
    }
    auto const content = folder.read("Notes/Notes.db");
    auto grown = libraryModel();
    EXPECT_FALSE(opened(readOnly, grown.entity("More").build())) << "an older model";
    folder.write("Notes/Notes.db", "no store");
    EXPECT_FALSE(opened(readOnly));
    EXPECT_EQ(rescued(), 0U);
    folder.write("Notes/Notes.db", content);
    { // Who has it open may write it all the same.
        OpenStore writer(url, libraryModel().build()),
            reader(folder.url("none/none.db"), libraryModel().build(), OpenStore::Kind::Memory);
        fs::permissions(place, fs::perms(0444));
        reader.store = opened(readOnly);
        ASSERT_TRUE(reader.store);
        EXPECT_EQ(reader.fetch("Author").size(), 1U);
        auto const made = writer.insertion("Author", writer.newKey(), {{"name", "Eve"}});
        EXPECT_FALSE(writer.save({made}));
        EXPECT_EQ(reader.fetch("Author").size(), 2U);
        EXPECT_FALSE(writer.save({writer.deletion(made.after)}));
        fs::permissions(place, fs::perms(0644));
    }
    // As another user, since the superuser may do everything.
    if (::geteuid() != 0) return;
    for (auto const& path : {fs::path(folder.path()), place.parent_path(), place})
        fs::permissions(path, fs::perms(path == place ? 0444 : 0555));
    fs::permissions(fs::path(folder.path()).parent_path(), fs::perms::others_exec, fs::perm_options::add);
    auto const statusOfReader = [&] {
        return statusOfNobody([&] {
            OpenStore reader(folder.url("none/none.db"), libraryModel().build(), OpenStore::Kind::Memory);
            reader.store = opened(readOnly);
            return !reader.store ? 1 : reader.fetch("Author").size() == 1 ? 0 : 2;
        });
    };
    for (bool const hasLog : {false, true}) {
        for (auto const* ending : {"-wal", "-shm"}) fs::remove(place.native() + ending);
        if (hasLog) folder.write("Notes/Notes.db-wal", "x");
        EXPECT_EQ(statusOfReader(), hasLog ? 1 : 0);
    }
    // Where only the file may not be written nothing is left beside it either; what is there is no trap for who may write.
    auto const shared = fs::path(place.native() + "-shm");
    fs::remove(place.native() + "-wal");
    fs::permissions(place.parent_path(), fs::perms::all);
    EXPECT_EQ(statusOfReader(), 0);
    EXPECT_FALSE(fs::exists(shared));
    fs::permissions(place, fs::perms(0666));
    folder.write("Notes/Notes.db-shm", "");
    fs::permissions(shared, fs::perms(0444));
    auto const isToldOf = [&](std::string_view words) {
        return !opened() && error->localizedDescription().find(words) != std::string::npos;
    };
    EXPECT_EQ(statusOfNobody([&] { return isToldOf("-shm: Permission denied") ? 0 : 1; }), 0);
}

} // namespace
} // namespace Tessarin::tests
