#include "StoreFixture.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteFileChecksPrivate.h"
#include "Tessarin/platform/sqlite/Connection.h"

#include <future>
#include <poll.h>
#include <sys/stat.h>
#include <chrono>
#include <thread>

namespace Tessarin::tests {
namespace {

namespace fs = std::filesystem;

class Opening : public StoreInItsFolder {
protected:
    void write(std::string_view content) const { folder.write("Notes/Notes.db", content); }
    std::string content() const { return folder.read("Notes/Notes.db"); }
    bool opens() const { return OpenStore(url, libraryModel().build()).store != nullptr; }
    /// What another program does with the file.
    void run(std::string const& sql) const { SQLite::Connection(place).execute(sql); }
    void makeStore() {
        OpenStore open(url, libraryModel().build());
        ASSERT_TRUE(open.store);
        std::vector<RecordChange> changes;
        for (int at = 0; at < 200; ++at)
            changes.push_back(open.insertion("Author", open.newKey(), {{"name", std::string(100, 'x')}}));
        ASSERT_FALSE(open.save(std::move(changes)));
    }
    /// An opening that must not end before `release` was done, and then must.
    void expectWaits(FunctionRef<void()> release) {
        std::promise<bool> ended;
        auto outcome = ended.get_future();
        std::thread opener([&] { ended.set_value(opens()); });
        EXPECT_EQ(outcome.wait_for(std::chrono::milliseconds(60)), std::future_status::timeout);
        release();
        EXPECT_TRUE(outcome.get());
        opener.join();
    }
};

TEST_F(Opening, WhatIsNoStoreIsRefusedAndKeptAside) {
    makeStore();
    auto const good = content();
    auto noise = good, inside = good;
    for (std::size_t at = 100; at < 4096; ++at) noise[at] = static_cast<char>(at * 7919);
    auto const record = inside.find(std::string(90, 'x'));
    ASSERT_NE(record, std::string::npos);
    for (std::size_t at = record / 4096 * 4096; at < record; ++at) inside[at] = static_cast<char>(at * 31);
    std::pair<char const*, std::string> const table[] = {{"text", "not a database"},
                                                         {"long text", std::string(10'000, 'x')},
                                                         {"truncated", good.substr(0, good.size() / 2)},
                                                         {"truncated within a page", good.substr(0, 5000)},
                                                         {"a header alone", good.substr(0, 100)},
                                                         {"noise in the first page", noise},
                                                         {"noise among records", inside}};
    for (auto const& [name, content] : table) {
        fs::remove(place);
        write(content);
        OpenStore open(url, libraryModel().build());
        EXPECT_FALSE(open.store) << name;
        EXPECT_TRUE(open.error) << name;
        EXPECT_EQ(this->content(), content) << name << ": was changed";
    }
    bool found = false;
    for (auto const& entry : fs::recursive_directory_iterator(folder.path(".Notes.rescued")))
        found = found || (entry.is_regular_file() && fs::file_size(entry) == inside.size());
    EXPECT_TRUE(found);
}

TEST_F(Opening, OtherApplicationsFilesAndPlacesAreRefused) {
    run("CREATE TABLE theirs (a)");
    EXPECT_FALSE(opens());
    EXPECT_EQ(rescued(), 1U);
    EXPECT_FALSE(fs::exists(place.string() + "-shm")) << "nothing is left beside their file";
    fs::remove(place);
    run("PRAGMA application_id = 7; CREATE TABLE a (b); DROP TABLE a");
    EXPECT_FALSE(opens());
    fs::remove(place);
    fs::create_directory(place);
    EXPECT_FALSE(opens());
    fs::remove(place);
    ASSERT_EQ(::mkfifo(place.c_str(), 0600), 0);
    EXPECT_FALSE(opens());
    fs::remove_all(place.parent_path());
    folder.write("Notes", "");
    EXPECT_FALSE(opens());
    EXPECT_FALSE(OpenStore(*NSURL::URLWithString("https://example.org/a.db"), libraryModel().build()).store);
    EXPECT_FALSE(OpenStore(folder.url(std::string(300, 'n')), libraryModel().build()).store);
}

TEST_F(Opening, EmptyAndHalfMadeFilesAreNewStores) {
    write("");
    EXPECT_TRUE(opens());
    EXPECT_TRUE(opens());
    fs::remove(place);
    run("PRAGMA journal_mode = WAL"); // as far as a process came that was killed
    EXPECT_TRUE(opens());
    EXPECT_EQ(rescued(), 0U);
}

TEST_F(Opening, ALockedFileIsWaitedFor) {
    makeStore();
    run("PRAGMA journal_mode = DELETE");
    SQLite::Connection other(place);
    other.execute("BEGIN EXCLUSIVE");
    expectWaits([&] { other.execute("ROLLBACK"); });
    EXPECT_EQ(SQLite::Connection(place).text("PRAGMA journal_mode"), "wal");
    EXPECT_EQ(rescued(), 0U);
}

TEST_F(Opening, AMissingFolderAndANewerFormatAreWaitedFor) {
    auto const away = folder.path("away");
    fs::rename(place.parent_path(), away);
    expectWaits([&] { fs::rename(away, place.parent_path()); });
    run("PRAGMA user_version = 99");
    expectWaits([&] { run("PRAGMA user_version = 2"); });
    EXPECT_EQ(rescued(), 0U);
}

TEST_F(Opening, AFileOfTheFirstFormatIsBroughtToThisOneWithoutLoss) {
    makeStore();
    auto const makeOld = [&] {
        run("DROP TABLE tessarin_history; DELETE FROM tessarin_store WHERE key GLOB 'history*'; PRAGMA user_version = 1");
    };
    makeOld();
    auto other = ModelBuilder().entity("Author").attribute("name", NSAttributeType::Integer16).build();
    EXPECT_FALSE(OpenStore(url, other).store);
    EXPECT_EQ(SQLite::Connection(place).integer("PRAGMA user_version"), 1) << "a file that is refused stays as it is";
    fs::remove_all(folder.path(".Notes.rescued"));
    std::vector<std::future<std::size_t>> openers; // all of whom find it old
    for (int count = 0; count < 4; ++count)
        openers.push_back(
            std::async(std::launch::async, [&] { return OpenStore(url, libraryModel().build()).fetch("Author").size(); }));
    for (auto& each : openers) EXPECT_EQ(each.get(), 200U);
    auto const name = SQLite::Connection(place).integer("SELECT value FROM tessarin_store WHERE key = 'history'");
    EXPECT_GT(name, 0);
    EXPECT_TRUE(opens());
    SQLite::Connection connection(place);
    EXPECT_EQ(connection.integer("PRAGMA user_version"), 2);
    EXPECT_EQ(connection.integer("SELECT value FROM tessarin_store WHERE key = 'history'"), name);
    EXPECT_EQ(connection.integer("SELECT count(*) FROM tessarin_history"), 0);
}

TEST_F(Opening, WhatRunsInAForeignFileHasNoEffect) {
    static std::string const endless =
        " AS WITH RECURSIVE r(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM r) SELECT x AS id, 1 AS version, '' AS name FROM r";
    makeStore();
    run("CREATE TRIGGER wipe AFTER INSERT ON Author BEGIN DELETE FROM Author; END;"
        "CREATE TRIGGER late AFTER UPDATE ON tessarin_store BEGIN DELETE FROM Author; END;"
        "CREATE TABLE theirs (a); CREATE VIEW endless" +
        endless + "; CREATE VIEW names AS SELECT name FROM Author JOIN endless");
    {
        OpenStore open(url, libraryModel().build());
        ASSERT_TRUE(open.store) << open.error->description();
        ASSERT_FALSE(open.save({open.insertion("Author", open.newKey(), {{"name", "y"}})}));
        EXPECT_EQ(open.fetch("Author").size(), 201U);
    }
    // Nor do they keep a migration from its work.
    auto above = libraryModel().definition();
    above.entities.push_back({.name = "Person"});
    above.entities.front().options.parent = "Person";
    OpenStore migrated(url, NSManagedObjectModel::modelWithDefinition(std::move(above)));
    ASSERT_TRUE(migrated.store) << migrated.error->description();
    EXPECT_EQ(migrated.fetch("Author").size(), 201U);
    migrated.store.reset();
    EXPECT_EQ(SQLite::Connection(place).integer("SELECT count(*) FROM sqlite_schema WHERE name IN ('late', 'endless', 'names')"),
              3);

    for (std::string const table : {"Tag", "tag_FRIENDS", "tessarin_metadata"}) {
        fs::remove(place);
        makeStore();
        run("DROP TABLE " + table + "; CREATE VIEW " + table + endless);
        OpenStore open(url, libraryModel().build());
        EXPECT_FALSE(open.store) << table;
        EXPECT_NE(open.error->localizedDescription().find("a view stands in place of the table"), std::string::npos)
            << open.error->description();
    }
}

TEST_F(Opening, ADescriptionThatWouldGrowBeyondMeasureIsRefused) {
    makeStore();
    std::string names, children;
    for (int at = 0; at < 1000; ++at) {
        names += std::string(at ? "," : "") + R"({"name":"a)" + std::to_string(at) + R"("})";
        children += R"(,{"name":"E)" + std::to_string(at) + R"(","parent":"Root"})";
    }
    std::string const hostile[] = {R"({"entities":[{"name":"Root","attributes":[)" + names + "]}" + children + "]}",
                                   R"({"entities":[{"name":")" + std::string(5 << 20, 'x') + R"("}]})"};
    for (auto const& text : hostile) {
        SQLite::Connection connection(place);
        auto const put = connection.use("UPDATE tessarin_store SET value = ? WHERE key = 'model'");
        put->bind(1, std::string_view{text});
        put->run();
        OpenStore open(url, libraryModel().build());
        ASSERT_FALSE(open.store);
        EXPECT_NE(open.error->localizedDescription().find("its model is too large"), std::string::npos)
            << open.error->description();
    }
}

// Were it written otherwise, every file there is would be migrated.
TEST_F(Opening, AModelIsDescribedAsItAlwaysWas) {
    using Type = NSAttributeType;
    auto const model =
        ModelBuilder()
            .entity("Thing", {.isAbstract = true, .renamingIdentifier = "Ding", .versionHashModifier = "2"})
            .attribute("a\"b\\\u00e4", Type::String, {.optional = false, .indexed = true, .fullText = true})
            .attribute("b", Type::Date, {.transient = true, .renamingIdentifier = "c", .versionHashModifier = "x"})
            .attribute("sum", Type::Integer64, {.derived = true})
            .unique({"b"})
            .entity("Box", {.parent = "Thing"})
            .toMany("things", "Thing", {.inverse = "box", .inverseEntity = "Lid", .optional = false, .ordered = true})
            .toOne("lid", "Lid", {.transient = true, .renamingIdentifier = "cover", .versionHashModifier = "y"})
            .entity("Lid", {.parent = "Thing"})
            .toOne("box", "Box")
            .attribute("c", Type::Double)
            .unique({"c", "box"})
            .index("", {{"c", false}, {"box", true}})
            .entity("Nothing")
            .build();
    ASSERT_TRUE(model);
    ASSERT_TRUE(OpenStore(url, model).store);
    EXPECT_EQ(SQLite::Connection(place).text("SELECT value FROM tessarin_store WHERE key = 'model'"),
              R"({"entities":[{"name":"Thing","number":1,"abstract":true,"renamedFrom":"Ding","hashModifier":"2","attributes":)"
              R"([{"name":"a\"b\\ä","type":700,"optional":false,"indexed":true,"fullText":true},{"name":"b","type":900,)"
              R"("transient":true,"renamedFrom":"c","hashModifier":"x"},{"name":"sum","type":300,"derived":true}],)"
              R"("unique":[["b"]]},{"name":"Box","number":2,"parent":"Thing","relationships":[{"name":"things","destination":)"
              R"("Thing","toMany":true,"inverse":"box","inverseEntity":"Lid","ordered":true,"optional":false},{"name":"lid",)"
              R"("destination":"Lid","transient":true,"renamedFrom":"cover","hashModifier":"y"}]},{"name":"Lid","number":3,)"
              R"("parent":"Thing","attributes":[{"name":"c","type":500}],"relationships":[{"name":"box","destination":"Box"}],)"
              R"("unique":[["c","box"]],"indexes":[{"name":"","elements":[["c",false],["box",true]]}]},)"
              R"({"name":"Nothing","number":4}]})");
}

TEST_F(Opening, ADamagedEndOfALongTableIsFoundAtOnceAndItsMiddleInUse) {
    {
        OpenStore open(url, libraryModel().build());
        std::vector<RecordChange> changes;
        for (int at = 0; at < 3000; ++at)
            changes.push_back(open.insertion("Author", open.newKey(), {{"name", std::string(100, 'x')}}));
        ASSERT_FALSE(open.save(std::move(changes)));
    }
    auto const good = content();
    auto const number = [&](std::size_t at, int size) {
        std::size_t read = 0;
        for (int byte = 0; byte < size; ++byte) read = read << 8 | static_cast<unsigned char>(good[at++]);
        return read;
    };
    auto const start = [](std::size_t page) { return (page - 1) * 4096; };
    auto const page =
        static_cast<std::size_t>(SQLite::Connection(place).integer("SELECT rootpage FROM sqlite_schema WHERE name = 'Author'"));
    auto const root = start(page);
    auto const child = [&](std::size_t cell) { return number(root + number(root + 12 + 2 * cell, 2), 4); };
    ASSERT_EQ(good[root], 5) << "its root leads to leaves";
    struct {
        char const* name;
        std::size_t at;
        bool opens;
    } const table[] = {{"root", root, false},
                       {"first", start(child(0)), false},
                       {"last", start(number(root + 8, 4)), false},
                       {"between", start(child(5)), true}};
    for (auto const& [name, at, isOpened] : table) {
        auto damaged = good;
        for (std::size_t byte = at; byte < at + 4096; ++byte) damaged[byte] = static_cast<char>(byte * 31);
        fs::remove(place);
        write(damaged);
        OpenStore open(url, libraryModel().build());
        EXPECT_EQ(open.store != nullptr, isOpened) << name;
        if (!open.store) continue;
        StoreAnswer answer;
        EXPECT_TRUE(open.store->fetch({.entity = &open.entity("Author")}, answer)) << name;
        EXPECT_GT(open.newKey(), 3000);
    }
}

TEST_F(Opening, AMissingOrLowNextKeyOverwritesNoRecord) {
    for (auto const* change :
         {"DELETE FROM tessarin_store WHERE key = 'nextKey'", "UPDATE tessarin_store SET value = 1 WHERE key = 'nextKey'",
          "UPDATE tessarin_store SET value = -5 WHERE key = 'nextKey'",
          "UPDATE tessarin_store SET value = 'x' WHERE key = 'nextKey'"}) {
        fs::remove(place);
        makeStore();
        run(change);
        OpenStore open(url, libraryModel().build()), other(url, libraryModel().build());
        auto const largest = keysOf(open.fetch("Author")).back();
        auto const key = open.newKey(), next = other.newKey();
        EXPECT_GT(key, largest) << change;
        EXPECT_GT(next, key) << change << ": given twice";
        ASSERT_FALSE(open.save({open.insertion("Author", key, {{"name", "y"}})})) << change;
        EXPECT_EQ(open.fetch("Author").size(), 201U) << change;
    }
}

// As another user, since the superuser may do everything.
TEST_F(Opening, AFileWithoutPermissionIsWaitedFor) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs a second user";
    makeStore();
    fs::path const notes = place.parent_path(), home = notes.parent_path();
    fs::permissions(home.parent_path(), fs::perms::others_exec, fs::perm_options::add); // the folder of this run
    for (auto const& path : {home, notes, place}) fs::permissions(path, fs::perms::all);
    for (auto const& [path, without] :
         {std::pair(place, fs::perms::none), std::pair(place, fs::perms::others_read), std::pair(notes, fs::perms::none)}) {
        fs::permissions(path, without);
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        auto const open = [&] {
            OpenStore const store(url, libraryModel().build());
            static_cast<void>(!::write(ends[1], "x", 1));
            return store.store ? 0 : 1;
        };
        auto const allow = [&] {
            pollfd waiting{.fd = ends[0], .events = POLLIN, .revents = 0};
            EXPECT_EQ(::poll(&waiting, 1, 80), 0) << path << " was opened or refused";
            fs::permissions(path, fs::perms::all);
        };
        EXPECT_EQ(statusOfNobody(open, allow), 0) << path;
        for (int const end : ends) ::close(end);
    }
    EXPECT_EQ(rescued(), 0U);
}

// What its pages say must be what SQLite says, wherever the first one stands: in the log alone, in the file, in both, without a log.
TEST_F(Opening, TheHeaderIsThatOfTheTransactionThatLooks) {
    run("PRAGMA application_id = 1");
    SQLite::Connection looking(place), other(place);
    std::string const grown = "; DROP TABLE IF EXISTS t; CREATE TABLE t AS SELECT randomblob(9000)";
    std::pair<char const*, std::string> const table[] = {
        {"no log", "PRAGMA user_version = 3"},
        {"the log alone", "PRAGMA journal_mode = WAL; PRAGMA application_id = -7; PRAGMA user_version = 2" + grown},
        {"both",
         "PRAGMA wal_checkpoint(TRUNCATE); PRAGMA user_version = -2147483648" + grown + "; CREATE TABLE IF NOT EXISTS u (a)"},
        {"the file", "PRAGMA application_id = 2147483647; PRAGMA wal_checkpoint(TRUNCATE)"},
    };
    for (auto const& [name, change] : table)
        for (bool const isOvertaken : {false, true}) {
            other.execute(change);
            bool const hasLog = other.text("PRAGMA journal_mode") == "wal";
            looking.integer("SELECT count(*) FROM sqlite_schema");
            if (hasLog) looking.noteCommits();
            looking.execute("BEGIN");
            looking.integer("SELECT count(*) FROM sqlite_schema");
            if (hasLog && isOvertaken) other.execute("PRAGMA user_version = 99; CREATE TABLE later (a); DROP TABLE later");
            auto const header = headerOf(looking);
            EXPECT_EQ(header.application, looking.integer("PRAGMA application_id")) << name;
            EXPECT_EQ(header.format, looking.integer("PRAGMA user_version")) << name;
            EXPECT_EQ(header.pages, looking.integer("PRAGMA page_count")) << name;
            looking.execute("COMMIT");
        }
}

} // namespace
} // namespace Tessarin::tests
