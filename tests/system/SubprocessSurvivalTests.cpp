// What surrounds a subprocess in a real application.
#include "Tessarin/platform/foundation/processes/SpawnPrivate.h"
#include "tests/system/SubprocessFixture.h"
#include <atomic>
#include <fcntl.h>
#include <ranges>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>

namespace Tessarin::tests {
namespace {

int openDescriptors() {
    auto const folder = std::filesystem::directory_iterator("/proc/self/fd");
    return static_cast<int>(std::distance(begin(folder), end(folder)));
}

/// How many descriptors may be open.
void setLimit(rlim_t limit) {
    rlimit all{};
    ::getrlimit(RLIMIT_NOFILE, &all);
    all.rlim_cur = limit;
    ::setrlimit(RLIMIT_NOFILE, &all);
}

/// All of them at once, each with its three streams in use; how many succeeded.
int echoes(int count) {
    std::vector<std::unique_ptr<Started>> all;
    for (int number = 0; number < count; ++number) {
        auto options = shell("exec cat");
        options.input = SubprocessInput::text(std::to_string(number));
        all.push_back(std::make_unique<Started>(std::move(options)));
    }
    int good = 0;
    for (int number = 0; number < count; ++number) {
        auto const& result = all[static_cast<std::size_t>(number)]->result();
        good += result.isSuccess() && result.outputText() == std::to_string(number);
        if (result.error) ADD_FAILURE() << result.error->localizedDescription();
    }
    return good;
}

TEST(SubprocessSurvival, ThoseThatFindNoDescriptorWaitTheirTurn) {
    EXPECT_EQ(echoes(1), 1); // what is opened once is open
    auto const before = openDescriptors();
    int const count = std::getenv("TESSARIN_LONG") ? 500 : 60;
    setLimit(count > 60 ? 1024 : 96);
    EXPECT_EQ(echoes(count), count);

#ifndef __SANITIZE_ADDRESS__ // its checks need a descriptor now and then
    setLimit(400); // enough for fifty, but the application has taken nearly all
    std::vector<processes::Handle> taken;
    std::optional<Started> other;
    for (int next = 0; next >= 0;) taken.emplace_back(next = ::open("/dev/null", O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(ran(":").error->code(), EMFILE) << "nobody would give one back";
    taken.resize(taken.size() - 15);
    other.emplace(shell("exec sleep 100"));
    EXPECT_TRUE(eventually([&] { return other->subprocess->isRunning(); }));
    EXPECT_EQ(echoes(30), 30);
    while (taken.back().number() >= 0) taken.emplace_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    std::promise<void> freed; // by the application, while the other one goes on
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, 20'000'000), dispatch_get_global_queue(0, 0), [&] {
        taken.clear();
        freed.set_value();
    });
    EXPECT_TRUE(ran(":").isSuccess());
    freed.get_future().wait();
    other->subprocess->cancel();
    other.reset();
#endif
    setLimit(1024);
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_FALSE(hasChildren());
}

TEST(SubprocessSurvival, BeginsInTheFolderAndWithThePATHOfItsStart) {
    TemporaryFolder const folder;
    ::chmod(folder.write("tool", "#!/bin/sh\npwd -P; cat\n").c_str(), 0755);
    folder.write("input", "content");
    setLimit(96); // twelve have their turn
    std::vector<std::unique_ptr<Started>> all;
    for (int count = 0; count < 12; ++count) all.push_back(std::make_unique<Started>(shell("exec sleep 100")));
    auto const home = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    {
        Environment const set("PATH", folder.path() + ":/usr/bin:/bin");
        for (auto const* const program : {"tool", "./tool"}) {
            SubprocessOptions options{.program = program, .input = SubprocessInput::file("input")};
            all.push_back(std::make_unique<Started>(std::move(options)));
        }
    }
    std::filesystem::current_path(home);
    for (int count = 0; count < 12; ++count) all[static_cast<std::size_t>(count)]->subprocess->cancel();
    for (std::size_t late = 12; late < all.size(); ++late)
        EXPECT_EQ(all[late]->result().outputText(), std::filesystem::canonical(folder.path()).native() + "\ncontent")
            << all[late]->result().description();
    setLimit(1024);
}

TEST(SubprocessSurvival, ManyThreadsOfThePoolMayWaitForTheirsAtOnce) {
    auto const group = dispatch_group_create();
    std::atomic<int> lines = 0, good = 0;
    for (int number = 0; number < 100; ++number)
        dispatch_group_async(group, dispatch_get_global_queue(0, 0), [&, number] {
            auto options = shell("echo a; echo b");
            if (number % 2) options.output = SubprocessOutput::lines([&](std::string_view) { ++lines; });
            good += Subprocess::run(std::move(options)).isSuccess();
        });
    dispatch_group_wait(group, DISPATCH_TIME_FOREVER);
    EXPECT_EQ(good, 100);
    EXPECT_EQ(lines, 100);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // which take all addresses for themselves
/// The exit status of a process with little memory left.
[[noreturn]] void outgrowMemory() {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    rlimit const limit{pages * 4096 + (std::size_t{300} << 20), RLIM_INFINITY};
    ::setrlimit(RLIMIT_AS, &limit);
    Started small(shell("read x; echo small"));
    Started big(shell("exec head -c 500000000 /dev/zero"));
    auto const& result = big.result();
    bool const isHonest = result.error && result.error->code() == ENOMEM && result.signal == SIGKILL;
    ::_exit(isHonest && small.result().outputText() == "small\n" && ran("exit 4").exitStatus == 4 ? 0 : 1);
}

TEST(SubprocessSurvival, WhatItsOutputFindsNoMemoryForEndsItAlone) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(outgrowMemory(), testing::ExitedWithCode(0), "");
}
#endif

void reapEverything(int) {
    int const saved = errno;
    while (::waitpid(-1, nullptr, WNOHANG) > 0) {}
    errno = saved;
}

TEST(SubprocessSurvival, ApplicationsThatTakeTheStatusGetAnHonestError) {
    for (bool const hasDescriptors : {true, false}) {
        processes::pretendThereAreNoProcessDescriptors(!hasDescriptors);
        for (auto* const handler : {SIG_IGN, &reapEverything}) {
            struct sigaction action {
            }, before{};
            action.sa_handler = handler;
            action.sa_flags = SA_RESTART;
            ::sigaction(SIGCHLD, &action, &before);
            for (int round = 0; round < 8; ++round) {
                auto const result = ran("sleep 100 & echo $!; exit 3");
                auto const left = std::stoi(std::string{result.outputText()});
                EXPECT_TRUE(eventually([left] { return hasDied(left); }));
                EXPECT_EQ(result.error ? result.error->code() : ECHILD, ECHILD) << result.description();
                EXPECT_NE(result.error == nullptr, result.exitStatus == std::nullopt) << "one or the other";
                EXPECT_EQ(ran("exec /nowhere/at/all").signal, std::nullopt);
                EXPECT_TRUE(result.error || handler != SIG_IGN);
            }
            ::sigaction(SIGCHLD, &before, nullptr);
        }
    }
    processes::pretendThereAreNoProcessDescriptors(false);
    ::signal(SIGCHLD, SIG_DFL);
    EXPECT_EQ(ran("exit 4").exitStatus, 4);
}

TEST(SubprocessSurvival, CancelReachesItBeforeDuringAndAfter) {
    {
        Started running(shell("sleep 100 & sleep 100"));
        EXPECT_TRUE(eventually([&] { return running.subprocess->isRunning(); }));
        auto const process = *running.subprocess->processIdentifier();
        EXPECT_TRUE(running.subprocess->send(SIGSTOP)) << "which keeps it from hearing";
        running.subprocess->cancel();
        running.subprocess->cancel();
        EXPECT_EQ(running.result().signal, SIGTERM);
        EXPECT_TRUE(running.result().isCancelled && !running.result().error);
        EXPECT_TRUE(isGone(process));
        EXPECT_FALSE(running.subprocess->send(SIGTERM) || running.subprocess->isRunning());
        running.subprocess->cancel();
    }
    setLimit(96); // so that some wait
    std::vector<std::unique_ptr<Started>> all;
    for (int count = 0; count < 40; ++count) all.push_back(std::make_unique<Started>(shell("exec sleep 100")));
    for (auto const& each : std::views::reverse(all)) each->subprocess->cancel(); // those that wait, are started, run
    int neverBegan = 0;
    for (auto const& each : all) {
        auto const& result = each->result();
        neverBegan += result.error && result.error->code() == ECANCELED;
        EXPECT_TRUE(result.isCancelled && (result.error || result.signal == SIGTERM)) << result.description();
    }
    EXPECT_GE(neverBegan, 28) << "twelve have their turn";
    setLimit(1024);
}

TEST(SubprocessSurvival, WhatItLeavesBehindGoesWithItUnlessItMayStay) {
    for (auto const leftovers : {SubprocessLeftovers::Kill, SubprocessLeftovers::LetLive}) {
        auto options = shell("sleep 100 & echo $!"); // which holds the output open
        options.leftovers = leftovers;
        auto const result = Subprocess::run(std::move(options));
        auto const left = std::stoi(std::string{result.outputText()});
        EXPECT_EQ(result.exitStatus, 0);
        if (leftovers == SubprocessLeftovers::Kill) {
            EXPECT_TRUE(eventually([&] { return hasDied(left); }));
        } else {
            EXPECT_FALSE(hasDied(left));
            ::kill(left, SIGKILL);
        }
    }
}

} // namespace
} // namespace Tessarin::tests
