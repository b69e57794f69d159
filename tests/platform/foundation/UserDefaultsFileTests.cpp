// The file of preferences: ill-formed, unusual, touched by others, written while the system fails.
#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/foundation/preferences/NSUserDefaults.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/queues/Dispatch.h"

#include "tests/support/TemporaryFolder.h"
#include <algorithm>
#include <atomic>
#include <dlfcn.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <future>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <chrono>
#include <cstdlib>
#include <thread>
#include <unistd.h>

namespace {

thread_local std::vector<std::string>* fileCalls = nullptr; // what this thread does to files, while a test listens

std::string nameOf(int file) {
    std::error_code ignored;
    return std::filesystem::read_symlink(fmt::format("/proc/self/fd/{}", file), ignored).filename();
}

} // namespace

// In place of the system's, for the library too.
extern "C" int fsync(int file) {
    if (fileCalls) fileCalls->push_back("sync " + nameOf(file));
    return reinterpret_cast<int (*)(int)>(::dlsym(RTLD_NEXT, "fsync"))(file);
}
extern "C" int renameat(int from, char const* old, int to, char const* name) {
    if (fileCalls) fileCalls->push_back(fmt::format("rename {} {}", old, name));
    return reinterpret_cast<int (*)(int, char const*, int, char const*)>(::dlsym(RTLD_NEXT, "renameat"))(from, old, to, name);
}

namespace Tessarin {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

class UserDefaultsFile : public testing::Test {
protected:
    Ref<NSUserDefaults> suite(std::string const& name = "suite") const { return NSUserDefaults::initWithSuiteName(name); }
    /// A file that nobody is just about to write.
    std::string settled(std::string const& name, std::string_view text) const {
        auto const path = folder_.write(name + "/defaults.toml", text);
        fs::last_write_time(path, fs::file_time_type::clock::now() - 1h);
        return path;
    }
    static int errorOfSynchronize(NSUserDefaults& store) {
        Ref<NSError> error;
        return store.synchronize(error) ? 0 : static_cast<int>(error->code());
    }

    static constexpr char const* file = "suite/defaults.toml";
    tests::TemporaryFolder folder_;

private:
    tests::Environment const home_{"XDG_CONFIG_HOME", folder_.path()};
};

TEST_F(UserDefaultsFile, WhatIsWellFormedInAnIllFormedFileCounts) {
    std::string levels = "a";
    for (int level = 0; level < 100'000; ++level) levels += ".a";
    std::pair<std::string, Dictionary> const rows[] = {
        {"a = 1\nb = = 2\nc = 3\n", {{"a", 1}, {"c", 3}}},
        {"a = 1\nl = [1,\n[2],\nc = 3\n[s]\nx = 1\n", {{"a", 1}, {"c", 3}, {"s", Value(Dictionary{{"x", 1}})}}},
        {"t = \"\"\"\na word\na = 1\n[s]\nx = 1\n", {{"a", 1}, {"s", Value(Dictionary{{"x", 1}})}}},
        {"t = \"\"\"\na = 1\nu = \"\"\"\nreal\n\"\"\"\nc = '''\nx = ''' \n", {{"a", 1}, {"u", "real\n"}, {"c", "x = "}}},
        {"[s]\nx = 1\ny = 'open\nz = 3\n[lost\nq = 1\n[kept]\nr = 1\n",
         {{"s", Value(Dictionary{{"x", 1}, {"z", 3}})}, {"kept", Value(Dictionary{{"r", 1}})}}},
        {"a = 1\na = 2\ns.x = 1\ns.y = 2\n[s]\nz = 1\n[[e]]\nx = 1\n[[e]]\nx = 2\n",
         {{"a", 1},
          {"s", Value(Dictionary{{"x", 1}, {"y", 2}})},
          {"e", Value(List{Value(Dictionary{{"x", 1}}), Value(Dictionary{{"x", 2}})})}}},
        {"# a comment \x01\na = 1\n# the end \xFF", {{"a", 1}}},
        // What the parser does not survive.
        {"[", {}},
        {"[\n[.\na = 1", {}},
        {"größe = 1\na = 1", {{"a", 1}}},
        {"a = [}\nb = 1", {{"b", 1}}},
        {"a = 1'é'\nb = 1", {{"b", 1}}},
        {"a = 2026-01-01Tx:\nb = 1", {{"b", 1}}},
        {levels + " = 1\nb = 1\n[" + levels + "]\n", {{"b", 1}}}};
    int number = 0;
    for (auto const& [text, values] : rows) {
        SCOPED_TRACE(text.substr(0, 100));
        auto const name = fmt::format("suite{}", ++number), path = settled(name, text);
        testing::internal::CaptureStderr();
        auto const store = suite(name);
        EXPECT_EQ(store->dictionaryRepresentation(), values);
        EXPECT_FALSE(store->synchronize());
        auto const said = testing::internal::GetCapturedStderr();
        EXPECT_TRUE(said.starts_with(path + ": line ")) << said;
        EXPECT_EQ(std::ranges::count(said, '\n'), 1) << said;
        EXPECT_EQ(folder_.read(name + "/defaults.toml"), text) << "nothing has to be written yet";
    }
}

TEST_F(UserDefaultsFile, ReadingAnIllFormedFileTakesAsLongAsItIs) {
    auto seconds = [&, number = 0](std::string const& first, std::string const& line, int lines) mutable -> double {
        auto text = first;
        for (int at = 0; at < lines; ++at) text += fmt::format(fmt::runtime(line), at);
        auto const name = fmt::format("suite{}", ++number);
        settled(name, text);
        auto const begin = std::chrono::steady_clock::now();
        auto const store = suite(name);
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    };
    std::pair<std::string, std::string> const rows[] = {
        {"l = [\n", "key{} = 1\n"}, {"a = 1\n", "a = {}\n"}, {"", "key{} = \"\"\"\n"}, {"x\n", "[s{}]\na = [1\n"}};
    for (auto const& [first, line] : rows) EXPECT_LT(seconds(first, line, 4'000), 10 * seconds(first, line, 1'000) + 0.1) << line;
}

TEST_F(UserDefaultsFile, AnEditorThatWritesSlowlyIsWaitedFor) {
    auto const path = settled("suite", "theirs = 1\n");
    auto const store = suite();
    int const watch = ::inotify_init1(IN_CLOEXEC);
    std::ofstream(path) << "theirs = ";
    ASSERT_GE(::inotify_add_watch(watch, path.c_str(), IN_CLOSE_NOWRITE), 0);
    auto error = std::async(std::launch::async, [&] { return errorOfSynchronize(*store); });
    char event[1024];
    ASSERT_GT(::read(watch, event, sizeof event), 0) << "somebody has read the half";
    std::ofstream(path) << "theirs = 2\n";
    EXPECT_EQ(error.get(), 0);
    EXPECT_EQ(store->integerForKey("theirs"), 2);
    ::close(watch);
}

TEST_F(UserDefaultsFile, LinksAndPipesStayWhatTheyAre) {
    auto const pipe = folder_.path("pipe/defaults.toml"), link = folder_.path("link/defaults.toml");
    for (auto const* name : {"pipe", "link", "dotfiles"}) fs::create_directory(folder_.path(name));
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    auto const piped = suite("pipe");
    piped->setInteger(1, "volume");
    EXPECT_EQ(errorOfSynchronize(*piped), EINVAL);
    EXPECT_TRUE(fs::is_fifo(pipe));
    fs::remove(pipe);
    EXPECT_EQ(errorOfSynchronize(*piped), 0);

    fs::create_symlink("../dotfiles/player.toml", link); // to nothing yet
    auto const linked = suite("link");
    linked->setInteger(1, "volume");
    EXPECT_EQ(errorOfSynchronize(*linked), 0);
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(folder_.read("dotfiles/player.toml"), "volume = 1\n");
}

TEST_F(UserDefaultsFile, WhatRootMakesBelongsToTheOwnerOfTheFolder) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root may give files away";
    constexpr uid_t user = 65534;
    ASSERT_EQ(::chown(folder_.path().c_str(), user, user), 0);
    settled("old", "bad =\n");
    ASSERT_EQ(::chown(folder_.path("old").c_str(), user, user), 0);
    folder_.write("old/defaults.toml.lock", "");
    for (auto const* name : {"new", "old"}) {
        suite(name)->setInteger(1, "volume");
        ASSERT_TRUE(suite(name)->synchronize());
    }
    auto const owner = [&](std::string const& name) {
        struct stat status {};
        return ::stat(folder_.path(name).c_str(), &status) == 0 ? status.st_uid : ~uid_t{0};
    };
    for (auto const* name :
         {"new", "new/defaults.toml", "new/defaults.toml.lock", "old/defaults.toml", "old/defaults.toml.broken"})
        EXPECT_EQ(owner(name), user) << name;
    EXPECT_EQ(owner("old/defaults.toml.lock"), 0u) << "it was there before";
}

TEST_F(UserDefaultsFile, AForkedChildWritesWhatItHasSet) {
    settled("suite", "");
    auto const store = suite();
    store->setInteger(1, "parents");
    auto const child = ::fork();
    if (child == 0) {
        store->setInteger(1, "childs");
        ::signal(SIGALRM, SIG_DFL);
        ::alarm(60);
        std::exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_NE(folder_.read(file).find("childs = 1\n"), std::string::npos);
    EXPECT_TRUE(store->synchronize());
    EXPECT_NE(folder_.read(file).find("parents = 1\n"), std::string::npos);
}

TEST_F(UserDefaultsFile, AKeyThatOthersChangeAgainAndAgainIsToldOnce) {
    settled("suite", "theirs = 0\n");
    auto const store = suite();
    std::promise<List> told;
    auto const token = NSNotificationCenter::defaultCenter()->addObserverForName(
        NSUserDefaultsDidChangeNotification, store, nullptr,
        [&](auto const& note) { told.set_value(note->userInfo().dictionary()[NSUserDefaultsChangedKeys].list()); });
    std::promise<void> isFree;
    dispatch_async(dispatch_get_main_queue(), [&] { isFree.get_future().wait(); });
    for (int value : {1, 2, 3}) {
        settled("suite", fmt::format("theirs = {}\n", value));
        EXPECT_TRUE(store->synchronize());
    }
    isFree.set_value();
    EXPECT_EQ(told.get_future().get(), List{"theirs"});
    NSNotificationCenter::defaultCenter()->removeObserver(*token);
}

TEST_F(UserDefaultsFile, WhatIsSetWhileTheFileIsWrittenIsWrittenLater) {
    constexpr int keys = 200;
    auto const store = suite();
    auto const setAll = [&](int value, std::atomic<bool> const* stop) {
        for (int key = 0; key < keys && !(stop && *stop); ++key) store->setInteger(value, fmt::format("key{}", key));
    };
    setAll(0, nullptr);
    std::atomic<bool> isWritten = false;
    std::thread writer([&] {
        store->synchronize();
        isWritten = true;
    });
    for (int value = 1; !isWritten; ++value) setAll(value, &isWritten);
    writer.join();
    ASSERT_TRUE(store->synchronize());
    auto const text = folder_.read(file);
    for (int key = 0; key < keys; ++key) {
        auto const name = fmt::format("key{}", key), line = fmt::format("{} = {}\n", name, store->integerForKey(name));
        ASSERT_NE(text.find(line), std::string::npos) << line;
    }
}

TEST_F(UserDefaultsFile, AWriteThatFailedIsTriedAgain) {
    auto const store = suite();
    auto const obstacle = folder_.path(file) + ".new";
    fs::create_directories(obstacle);
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    int const stderrBefore = ::dup(2);
    ::dup2(ends[1], 2);
    store->setInteger(1, "volume");
    char said[1024];
    auto const size = ::read(ends[0], said, sizeof said);
    ::dup2(stderrBefore, 2);
    for (int const end : {ends[0], ends[1], stderrBefore}) ::close(end);
    EXPECT_NE(std::string_view(said, static_cast<std::size_t>(std::max<ssize_t>(size, 0))).find("File exists"),
              std::string_view::npos);
    fs::remove(obstacle);
    auto const giveUp = std::chrono::steady_clock::now() + 30s;
    while (folder_.read(file).empty() && std::chrono::steady_clock::now() < giveUp) std::this_thread::yield();
    EXPECT_EQ(folder_.read(file), "volume = 1\n");
}

TEST_F(UserDefaultsFile, TheFileIsOnTheDiskBeforeItsNameAndTheNameBeforeTheEnd) {
    auto const store = suite();
    store->setInteger(1, "volume");
    std::vector<std::string> calls;
    fileCalls = &calls;
    EXPECT_TRUE(store->synchronize());
    fileCalls = nullptr;
    EXPECT_EQ(calls,
              (std::vector<std::string>{"sync defaults.toml.new", "rename defaults.toml.new defaults.toml", "sync suite"}));
}

} // namespace
} // namespace Tessarin
