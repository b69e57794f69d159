// What surrounds a subprocess in a real application.
#include "Tessarin/platform/foundation/processes/SpawnPrivate.h"
#include "tests/system/SubprocessFixture.h"
#include <fcntl.h>
#include <numeric>
#include <sys/resource.h>
#include <thread>

namespace Tessarin::tests {
namespace {

int openDescriptors() {
    auto const folder = std::filesystem::directory_iterator("/proc/self/fd");
    return static_cast<int>(std::distance(begin(folder), end(folder)));
}

/// Lowers how many descriptors may be open for as long as it lives.
class DescriptorLimit {
public:
    explicit DescriptorLimit(rlim_t limit) {
        ::getrlimit(RLIMIT_NOFILE, &before_);
        rlimit const lowered{.rlim_cur = limit, .rlim_max = before_.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &lowered);
    }
    ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &before_); }

private:
    rlimit before_{};
};

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
    EXPECT_TRUE(ran(":").isSuccess()); // what is opened once is open
    auto const before = openDescriptors();
    bool const isLong = std::getenv("TESSARIN_LONG") != nullptr;
    {
        DescriptorLimit const limit(isLong ? 1024 : 96);
        int const count = isLong ? 500 : 60;
        EXPECT_EQ(echoes(count), count);
    }
    {
        DescriptorLimit const limit(400); // enough for fifty, but the application has taken nearly all
        std::vector<processes::Handle> taken;
        for (int next = 0; next >= 0;) taken.emplace_back(next = ::open("/dev/null", O_RDONLY | O_CLOEXEC));
        EXPECT_EQ(ran(":").error->code(), EMFILE) << "nobody would give one back";
        EXPECT_EQ(Started(shell(":")).result().error->code(), EMFILE);
        for (int spare = 0; spare < 15; ++spare) taken.pop_back();
        EXPECT_EQ(echoes(30), 30);
    }
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_FALSE(hasChildren());
}

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

TEST(SubprocessSurvival, GoesOnWhenItsThreadEndsAndNobodyKeepsIt) {
    std::promise<SubprocessResult> promise;
    std::thread([&] {
        auto options = shell("read line; echo $line");
        options.input = SubprocessInput::pieces([asked = false]() mutable {
            return std::exchange(asked, true) ? std::nullopt : std::optional(NSData::dataWithText("line\n"));
        });
        Subprocess::start(std::move(options), [&](SubprocessResult const& result) { promise.set_value(result); });
    }).join();
    EXPECT_EQ(promise.get_future().get().outputText(), "line\n");
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
    DescriptorLimit const limit(96); // so that some wait
    std::vector<std::unique_ptr<Started>> all;
    for (int count = 0; count < 40; ++count) all.push_back(std::make_unique<Started>(shell("exec sleep 100")));
    for (auto const& each : all) each->subprocess->cancel(); // running, being started, waiting
    int neverBegan = 0;
    for (auto const& each : all) {
        auto const& result = each->result();
        EXPECT_TRUE(result.isCancelled) << result.description();
        neverBegan += result.error && result.error->code() == ECANCELED;
        EXPECT_TRUE(result.error || result.signal == SIGTERM) << result.description();
    }
    EXPECT_GE(neverBegan, 28) << "twelve have their turn";
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

TEST(SubprocessSurvival, ManyWriteAMegabyteEachWhileOthersFailToStart) {
    std::vector<std::unique_ptr<Started>> all;
    for (int number = 0; number < 24; ++number)
        all.push_back(std::make_unique<Started>(number % 4 == 3 ? SubprocessOptions{.program = "/nowhere"}
                                                                : shell("head -c 1000000 /dev/zero; echo end >&2")));
    for (std::size_t number = 0; number < all.size(); ++number) {
        auto const& result = all[number]->result();
        EXPECT_EQ(result.isSuccess(), number % 4 != 3) << result.description();
        EXPECT_EQ(result.output.length(), number % 4 != 3 ? 1'000'000U : 0U);
    }
}

} // namespace
} // namespace Tessarin::tests
