// What holds when several processes, or several threads, use one file, and when they die.
#include "StoreFixture.h"
#include "Tessarin/platform/sqlite/Connection.h"

#include <atomic>
#include <csignal>
#include <map>
#include <random>
#include <set>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace Tessarin::tests {
namespace {

class Processes : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(OpenStore(file, libraryModel().build()).store); }

    /// A child that writes what it wants to tell to a pipe.
    struct Child {
        pid_t process = 0;
        int output = -1;
    };
    Child start(std::function<void(OpenStore&, int)> const& work) {
        int ends[2];
        EXPECT_EQ(::pipe(ends), 0);
        auto const process = ::fork();
        if (process < 0) std::abort(); // a signal to -1 would go to everybody
        if (process == 0) {
            ::close(ends[0]);
            OpenStore open(file, libraryModel().build());
            work(open, ends[1]);
            ::_exit(0);
        }
        ::close(ends[1]);
        return {process, ends[0]};
    }
    static void tell(int output, RecordKey key) {
        EXPECT_EQ(::write(output, &key, sizeof key), static_cast<ssize_t>(sizeof key));
    }
    /// Everything that the child has told, until it ends.
    static std::vector<RecordKey> told(Child const& child) {
        std::vector<RecordKey> keys;
        for (RecordKey key = 0; ::read(child.output, &key, sizeof key) == static_cast<ssize_t>(sizeof key);) keys.push_back(key);
        ::close(child.output);
        int status = 0;
        ::waitpid(child.process, &status, 0);
        return keys;
    }
    void expectSound() const { EXPECT_EQ(SQLite::Connection(file.path()).text("PRAGMA integrity_check"), "ok"); }

    StoreFolder folder;
    NSURL const file = folder.url("shared.db");
};

TEST_F(Processes, NeverGetTheSameKeyNorRefuseASave) {
    std::vector<Child> children;
    for (int at = 0; at < 3; ++at)
        children.push_back(start([](OpenStore& open, int output) {
            for (int round = 0; round < 60; ++round) {
                auto const key = open.store->reserveKeys(1 + static_cast<std::size_t>(round) % 7, open.error);
                if (!open.save({open.insertion("Author", key, {{"name", "a"}})})) tell(output, key);
            }
        }));
    std::set<RecordKey> all;
    for (auto const& child : children)
        for (auto const key : told(child)) EXPECT_TRUE(all.insert(key).second) << key;
    EXPECT_EQ(all.size(), 180U);
    OpenStore open(file, libraryModel().build());
    EXPECT_EQ(open.fetch("Author").size(), 180U);
    EXPECT_LT(open.newKey(), 180 * 4 + 4000) << "keys are wasted";
}

TEST_F(Processes, ASaveThatWasReportedSurvivesKillAndTheFileStaysSound) {
    std::mt19937 random{7};
    std::vector<RecordKey> reported;
    for (int round = 0; round < 20; ++round) {
        auto const child = start([](OpenStore& open, int output) {
            auto const tag = open.newKey();
            if (open.save({open.insertion("Tag", tag, {})})) ::_exit(1);
            for (;;) {
                auto const first = open.store->reserveKeys(20, open.error);
                std::vector<RecordChange> changes;
                for (RecordKey key = first; key < first + 20; ++key) {
                    changes.push_back(open.insertion("Book", key, {{"code", std::to_string(key)}, {"price", 1.5}}));
                    changes.back().relationships = {open.links("Book", "tags", {tag})};
                }
                if (open.save(std::move(changes))) ::_exit(1);
                for (RecordKey key = first; key < first + 20; ++key) tell(output, key);
            }
        });
        RecordKey key = 0;
        EXPECT_GT(::read(child.output, &key, sizeof key), 0); // it has begun to save
        reported.push_back(key);
        ::usleep(static_cast<useconds_t>(random() % 10'000)); // any moment will do
        ::kill(child.process, SIGKILL);
        std::ranges::copy(told(child), std::back_inserter(reported));
    }
    expectSound();
    OpenStore open(file, libraryModel().build());
    std::map<RecordKey, std::size_t> links;
    auto books = keysOf(open.fetch("Book"));
    std::ranges::sort(books);
    for (auto const key : reported) EXPECT_TRUE(std::ranges::binary_search(books, key)) << key << " was lost";
    EXPECT_EQ(books.size() % 20, 0U) << "half a save is in the file";
    EXPECT_FALSE(open.store->members(*open.entity("Book").propertyNamed("tags")->asRelationship(), books,
                                     [&](RecordKey owner, RecordKey) { ++links[owner]; }));
    EXPECT_EQ(links.size(), books.size());
}

TEST_F(Processes, ASaveThatFoundNoSpaceChangesNothingAndSucceedsLater) {
    auto const child = start([](OpenStore& open, int output) {
        std::signal(SIGXFSZ, SIG_IGN);
        auto const key = open.store->reserveKeys(2000, open.error);
        auto const changes = [&] {
            std::vector<RecordChange> made;
            for (RecordKey at = key; at < key + 2000; ++at)
                made.push_back(open.insertion("Author", at, {{"name", std::string(200, 'n')}}));
            return made;
        };
        rlimit limit{};
        ::getrlimit(RLIMIT_FSIZE, &limit);
        auto const full = limit;
        limit.rlim_cur = 200'000;
        ::setrlimit(RLIMIT_FSIZE, &limit);
        tell(output, open.save(changes()) != nullptr);
        tell(output, static_cast<RecordKey>(open.fetch("Author").size()));
        ::setrlimit(RLIMIT_FSIZE, &full);
        tell(output, open.save(changes()) != nullptr);
        tell(output, static_cast<RecordKey>(open.fetch("Author").size()));
    });
    EXPECT_EQ(told(child), (std::vector<RecordKey>{1, 0, 0, 2000}));
    expectSound();
}

TEST_F(Processes, FetchesBesideASaveSeeAllOfItOrNothing) {
    OpenStore open(file, libraryModel().build());
    std::atomic<bool> done{false};
    std::vector<std::thread> readers;
    for (int at = 0; at < 2; ++at)
        readers.emplace_back([&] {
            std::size_t last = 0;
            while (!done) {
                StoreAnswer answer;
                EXPECT_FALSE(open.store->fetch({.entity = &open.entity("Author")}, answer));
                EXPECT_EQ(answer.rows.size() % 50, 0U);
                EXPECT_GE(answer.rows.size(), last) << "an older state came back";
                last = answer.rows.size();
            }
        });
    for (int round = 0; round < 30; ++round) {
        auto const first = open.store->reserveKeys(50, open.error);
        std::vector<RecordChange> changes;
        for (RecordKey key = first; key < first + 50; ++key) changes.push_back(open.insertion("Author", key, {{"name", "x"}}));
        EXPECT_FALSE(open.save(std::move(changes)));
        EXPECT_EQ(open.fetch("Author").size(), static_cast<std::size_t>(round + 1) * 50)
            << "a save is not seen by the next fetch";
    }
    done = true;
    for (auto& reader : readers) reader.join();
}

} // namespace
} // namespace Tessarin::tests
