#include "fuzz/campaigns/Subprocesses.h"

#include "Tessarin/platform/queues/Dispatch.h"
#include "Tessarin/system/Subprocess.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>

namespace Tessarin::campaigns {
namespace {

enum class Children { Default, Ignored, Reaped };

void reapEverything(int) {
    int const saved = errno;
    while (::waitpid(-1, nullptr, WNOHANG) > 0) {}
    errno = saved;
}

/// What the application does with SIGCHLD, and how many descriptors it may open, for as long as it lives.
class Surroundings {
public:
    Surroundings(Children children, rlim_t descriptors) {
        struct sigaction action {};
        action.sa_flags = SA_RESTART;
        action.sa_handler = children == Children::Ignored ? SIG_IGN : children == Children::Reaped ? &reapEverything : SIG_DFL;
        ::sigaction(SIGCHLD, &action, &signal_);
        ::getrlimit(RLIMIT_NOFILE, &limit_);
        rlimit const lowered{.rlim_cur = std::min(descriptors, limit_.rlim_max), .rlim_max = limit_.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &lowered);
    }
    ~Surroundings() {
        ::setrlimit(RLIMIT_NOFILE, &limit_);
        ::sigaction(SIGCHLD, &signal_, nullptr);
    }

private:
    struct sigaction signal_ {};
    rlimit limit_{};
};

SubprocessOptions shell(std::string script) { return {.program = "/bin/sh", .arguments = {"-c", std::move(script)}}; }

/// One of them: what it is, and what its result is judged by. An empty text: it is as it should be.
struct Job {
    char const* kind;
    SubprocessOptions options;
    std::function<bool(SubprocessResult const&)> isRight;
    bool isCancelled = false;
    std::atomic<std::size_t> count = 0; // bytes or lines handed on
    Ref<Subprocess> subprocess = {};
    SubprocessResult result = {};
};
using Jobs = std::vector<std::unique_ptr<Job>>;

Job& add(Jobs& jobs, char const* kind, SubprocessOptions options) {
    jobs.push_back(std::unique_ptr<Job>(new Job{.kind = kind, .options = std::move(options), .isRight = {}}));
    return *jobs.back();
}

void addAny(Trial& trial, Jobs& jobs, std::size_t largest) {
    auto const size = trial.random(largest);
    switch (trial.random(9)) {
    case 0: {
        auto text = std::make_shared<std::string>(trial.random(200'000), static_cast<char>('a' + trial.random(26)));
        auto& job = add(jobs, "echo", {.program = "cat", .input = SubprocessInput::text(*text)});
        job.isRight = [text](auto const& result) { return result.outputText() == *text; };
        return;
    }
    case 1: {
        auto options = shell("trap '' TERM; sleep 1000 & sleep 1000");
        options.timeLimit = 0.05;
        options.grace = 0.05;
        add(jobs, "stubborn", std::move(options)).isRight = [](auto const& result) { return result.isOutOfTime; };
        return;
    }
    case 2:
        add(jobs, "closing", shell("exec <&- >&- 2>&-; exit 7")).isRight = [](auto const& result) {
            return result.exitStatus == 7 || result.error;
        };
        return;
    case 3:
        add(jobs, "missing", {.program = "/nowhere/program"}).isRight = [](auto const& result) {
            return result.error && result.error->code() == ENOENT;
        };
        return;
    case 4: {
        auto& job = add(jobs, "flood", {.program = "head", .arguments = {"-c", std::to_string(size), "/dev/zero"}});
        job.options.output = SubprocessOutput::pieces([&job](NSData const& piece) { job.count += piece.length(); });
        job.isRight = [&job, size](auto const&) { return job.count == size; };
        return;
    }
    case 5: {
        auto& job = add(jobs, "cancelled", shell("sleep 1000 & sleep 1000"));
        job.isCancelled = true;
        job.isRight = [](auto const& result) { return result.isCancelled; };
        return;
    }
    case 6: {
        auto const lines = size / 100;
        auto& job = add(jobs, "lines", {.program = "seq", .arguments = {std::to_string(lines)}});
        job.options.output = SubprocessOutput::lines([&job](std::string_view line) {
            if (line == std::to_string(job.count + 1)) ++job.count;
        });
        job.isRight = [&job, lines](auto const&) { return job.count == lines; };
        return;
    }
    case 7:
        add(jobs, "leaving", shell("sleep 1000 & echo left")).isRight = [](auto const& result) {
            return result.outputText() == "left\n";
        };
        return;
    default: {
        auto& job = add(jobs, "both ways", shell("tee /dev/stderr"));
        auto const text = NSData::dataWithText(std::string(size / 8, 'x'));
        job.options.input = SubprocessInput::data(text);
        job.isRight = [text](auto const& result) { return result.output == text && result.errors == text; };
    }
    }
}

/// From several threads, which end before what they started does.
void startAll(Jobs& jobs, dispatch_group_t const& group) {
    constexpr std::size_t threads = 4;
    std::vector<std::thread> all;
    for (std::size_t first = 0; first < threads; ++first)
        all.emplace_back([&, first] {
            for (auto at = first; at < jobs.size(); at += threads) {
                auto& job = *jobs[at];
                dispatch_group_enter(group);
                job.subprocess = Subprocess::start(std::move(job.options), [&job, group](SubprocessResult const& result) {
                    job.result = result;
                    dispatch_group_leave(group);
                });
            }
        });
    for (auto& thread : all) thread.join();
}

std::ptrdiff_t openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

} // namespace

void trySubprocesses(Trial& trial, Tally& tally) {
    require(Subprocess::run({.program = "true", .output = SubprocessOutput::pieces([](NSData const&) {})}).isSuccess(),
            "true is not true"); // what is opened once is open
    auto const before = openDescriptors();
    auto const children = static_cast<Children>(trial.chance(0.7) ? 0 : 1 + trial.random(2));
    bool const isHuge = trial.number() % 50 == 49;
    Jobs jobs;
    auto const count = trial.number() % 10 == 9 ? 500 : 1 + trial.random(60);
    for (std::size_t number = 0; number < count; ++number) addAny(trial, jobs, isHuge && number == 0 ? 1 << 30 : 4 << 20);
    {
        Surroundings const surroundings(children,
                                        trial.chance(0.5) ? 1024 : static_cast<rlim_t>(before) + 20 + trial.random(200));
        auto const group = dispatch_group_create();
        startAll(jobs, group);
        for (auto const& job : jobs)
            if (job->isCancelled) job->subprocess->cancel();
        if (dispatch_group_wait(group, dispatch_time(DISPATCH_TIME_NOW, 300'000'000'000)) != 0)
            for (auto const& job : jobs)
                require(!job->subprocess->isRunning(), "trial {}: {} still runs", trial.number(), job->kind);
    }
    for (auto const& job : jobs) {
        bool const isTaken = job->result.error && job->result.error->code() == ECHILD;
        require(job->isRight(job->result), "{}: {}, {} handed on", job->kind, job->result.description(), job->count.load());
        require(!isTaken || children != Children::Default, "{}: the status was taken by nobody", job->kind);
        tally.add(isTaken ? "status taken" : job->kind);
    }
    siginfo_t about{};
    require(::waitid(P_ALL, 0, &about, WEXITED | WNOHANG | WNOWAIT) != 0, "a child is left: {}", about.si_pid);
    require(openDescriptors() == before, "{} descriptors were open, now {}", before, openDescriptors());
}

void judgeSubprocesses(Tally const& tally) {
    for (auto const* kind : {"echo", "stubborn", "closing", "missing", "flood", "cancelled", "lines", "leaving", "both ways"})
        require(tally.of(kind) > 0, "there was no subprocess of the kind {}", kind);
}

} // namespace Tessarin::campaigns
