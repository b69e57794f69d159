#include "Tessarin/system/Subprocess.h"
#include "benchmarks/system/Groups.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Tessarin::benchmarks {
namespace {

void ourRuns(char const* program, int count) {
    for (int i = 0; i < count; ++i)
        if (!Subprocess::run({.program = program}).isSuccess()) std::abort();
}

/// Microseconds of processor time a run.
double cost(RunMany run) {
    constexpr int count = 200;
    auto const before = processorSeconds();
    run("/bin/true", count);
    return (processorSeconds() - before) / count * 1e6;
}

void addStarts(Report& report, char const* peer, RunMany theirs) {
    auto const row = std::string{"start to exit, beside "} + peer;
    if (!theirs || !report.wants("subprocess", row)) return;
    auto const result = medians(
        runs, [] { return cost(&ourRuns); }, [theirs] { return cost(theirs); });
    report.add({.group = "subprocess",
                .row = row,
                .unit = "us",
                .ours = result.ours,
                .peer = peer,
                .theirs = result.theirs,
                .target = 1});
}

constexpr std::size_t size = 100'000'000;

void ourCopy(std::string const& text) {
    static auto const data = NSData::dataWithText(text);
    auto const result = Subprocess::run({.program = "cat", .input = SubprocessInput::data(data)});
    if (!result.isSuccess() || result.output.length() != size) std::abort();
}

/// What one writes by hand: two pipes, poll, and 64 KiB at a time.
void plainCopy(std::string const& text) {
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) std::abort();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    char name[] = "cat";
    char* arguments[] = {name, nullptr};
    pid_t child = 0;
    if (posix_spawnp(&child, name, &actions, nullptr, arguments, environ) != 0) std::abort();
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]), close(out[1]);
    fcntl(in[1], F_SETFL, O_NONBLOCK);
    constexpr std::size_t part = 64 * 1024;
    std::vector<char> copied, buffer(part);
    std::size_t written = 0;
    pollfd waits[] = {{out[0], POLLIN, 0}, {in[1], POLLOUT, 0}};
    for (;;) {
        poll(waits, 2, -1);
        if (waits[1].revents) {
            auto const count = write(in[1], text.data() + written, std::min(part, text.size() - written));
            if (count > 0) written += static_cast<std::size_t>(count);
            if (written == text.size()) close(in[1]), waits[1].fd = -1;
        }
        if (!waits[0].revents) continue;
        auto const count = read(out[0], buffer.data(), part);
        if (count <= 0) break;
        copied.insert(copied.end(), buffer.begin(), buffer.begin() + count);
    }
    close(out[0]);
    waitpid(child, nullptr, 0);
    if (copied.size() != size) std::abort();
}

/// Megabytes each way, a second of processor time or of the clock.
template <class Copy, class Clock> double rate(Copy const& copy, std::string const& text, Clock const& clock) {
    auto const before = clock();
    copy(text);
    return size / 1e6 / (clock() - before);
}

void addCopies(Report& report) {
    if (!report.wants("subprocess", "100 MB both ways")) return;
    std::string const text(size, 'x');
    auto const add = [&](char const* row, auto const& clock) {
        auto const result = medians(
            runs, [&] { return rate(&ourCopy, text, clock); }, [&] { return rate(&plainCopy, text, clock); });
        report.add({.group = "subprocess",
                    .row = row,
                    .unit = "MB/s",
                    .ours = result.ours,
                    .peer = "plain loop",
                    .theirs = result.theirs,
                    .target = 0.9,
                    .better = Better::Larger});
    };
    add("100 MB both ways, processor time", &processorSeconds);
    add("100 MB both ways, on the clock", [] {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
    });
}

} // namespace

void benchSubprocesses(Report& report) {
    addStarts(report, "QProcess", qtPeer());
    addStarts(report, "GSubprocess", glibPeer());
    addCopies(report);
}

} // namespace Tessarin::benchmarks
