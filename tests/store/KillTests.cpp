// What was acknowledged as saved is there after the process was killed.
#include "Tessarin/platform/sqlite/Connection.h"
#include "tests/store/StoreFixture.h"

#include <csignal>
#include <map>
#include <random>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Tessarin {
namespace {
using namespace tests;

constexpr int peopleEach = 5; // of one save: all of them must be there or none
constexpr char const* acknowledgements = "TESSARIN_TEST_ACKNOWLEDGEMENTS"; // the pipe to write to
constexpr char const* firstName = "TESSARIN_TEST_FIRST_NAME";

/// Runs in a process of its own until it is killed: saves, and writes the number of each save that is said to be on disk.
TEST(KilledStore, DISABLED_Writer) {
    auto const output = std::stoi(std::getenv(acknowledgements));
    peopleModel();
    auto const model = NSURL::fileURLWithPath(std::string{std::getenv("HOME")} + "/People.xcdatamodel");
    auto const store = make<ManagedObjectStore>(StoreOptions{.modelURL = model, .filename = "Notes"});
    auto const worker = store->createWorkerContext();
    for (std::int64_t number = std::stoll(std::getenv(firstName));; ++number) {
        worker->performBlockAndWait([&] {
            for (int i = 0; i < peopleEach; ++i) insert(*worker, "Person", std::to_string(number));
        });
        bool const climbs = number % 2 == 0; // both ways of knowing
        worker->saveAndWait({.toDisk = !climbs});
        if (climbs) waitForFile(*store);
        ASSERT_EQ(::write(output, &number, sizeof number), static_cast<ssize_t>(sizeof number));
    }
}

struct Writer {
    explicit Writer(std::int64_t first) {
        int ends[2];
        EXPECT_EQ(::pipe(ends), 0);
        Environment const variables[] = {{acknowledgements, std::to_string(ends[1])}, {firstName, std::to_string(first)}};
        std::string arguments[] = {"writer", "--gtest_also_run_disabled_tests", "--gtest_filter=KilledStore.DISABLED_Writer",
                                   "--gtest_brief=1"};
        std::vector<char*> pointers;
        for (auto& each : arguments) pointers.push_back(each.data());
        pointers.push_back(nullptr);
        EXPECT_EQ(::posix_spawn(&process, "/proc/self/exe", nullptr, nullptr, pointers.data(), environ), 0);
        ::close(ends[1]);
        input = ends[0];
    }
    std::optional<std::int64_t> next() const {
        std::int64_t number = 0;
        return ::read(input, &number, sizeof number) == static_cast<ssize_t>(sizeof number) ? std::optional(number)
                                                                                            : std::nullopt;
    }
    /// What it had acknowledged by then and was not read yet.
    std::vector<std::int64_t> kill() const {
        if (process > 0) ::kill(process, SIGKILL); // 0 would be this process and its whole group
        std::vector<std::int64_t> rest;
        while (auto const number = next()) rest.push_back(*number);
        ::close(input);
        ::waitpid(process, nullptr, 0);
        return rest;
    }
    pid_t process = 0;
    int input = -1;
};

TEST(KilledStore, KeepsEverySaveThatWasAcknowledged) {
    StoreHome home;
    home.store(); // makes the file
    std::mt19937 random{7};
    std::vector<std::int64_t> acknowledged;
    for (int round = 0; round < 20; ++round) {
        Writer const writer((round + 1) * 1'000'000);
        for (auto saves = random() % 8; saves > 0; --saves) acknowledged.push_back(writer.next().value_or(-1));
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000)); // to hit any moment of a save
        for (auto const number : writer.kill()) acknowledged.push_back(number);

        auto const store = home.store<>();
        ASSERT_EQ(SQLite::Connection(home.folder.path("Documents/Notes/Notes.db")).text("PRAGMA integrity_check"), "ok");
        std::map<std::int64_t, int> found;
        store->privateContext()->performBlockAndWait([&] {
            for (auto const& each : store->privateContext()->allObjects("Person"))
                ++found[std::stoll(std::string{each->valueForKey("name").text()})];
        });
        for (auto const number : acknowledged) ASSERT_EQ(found[number], peopleEach) << number << " in round " << round;
        for (auto const& [number, count] : found) ASSERT_EQ(count, peopleEach) << number << " was saved by halves";
    }
    EXPECT_GT(acknowledged.size(), 40u);
    EXPECT_FALSE(std::filesystem::exists(home.folder.path("Documents/.Notes.rescued"))) << "a wipe would be a loss";
}

} // namespace
} // namespace Tessarin
