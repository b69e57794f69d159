#include "Tessarin/platform/foundation/processes/SpawnPrivate.h"
#include "tests/system/SubprocessFixture.h"
#include <algorithm>
#include <sys/stat.h>

namespace Tessarin::tests {
namespace {

/// How a process of the system's shell ends is told, with descriptors of processes and without.
class SubprocessEnds : public testing::TestWithParam<bool> {
    void SetUp() override { processes::pretendThereAreNoProcessDescriptors(!GetParam()); }
    void TearDown() override {
        processes::pretendThereAreNoProcessDescriptors(false);
        EXPECT_FALSE(hasChildren()) << "a zombie";
    }
};
INSTANTIATE_TEST_SUITE_P(WithAndWithout, SubprocessEnds, testing::Bool());

TEST_P(SubprocessEnds, ResultTellsStatusSignalAndBothStreams) {
    struct Row {
        char const *script, *output, *errors;
        std::optional<int> status, signal;
    };
    // clang-format off
    for (auto const& [script, output, errors, status, signal] : {
             Row{"exit 0", "", "", 0, {}}, Row{"echo a; echo b >&2; exit 3", "a\n", "b\n", 3, {}},
             Row{"printf x; kill -9 $$", "x", "", {}, SIGKILL}, Row{"exec >&- 2>&- <&-; exit 5", "", "", 5, {}},
             Row{"exec >&-; echo late >&2", "", "late\n", 0, {}}, Row{"cat", "", "", 0, {}}}) {
    // clang-format on
        auto const result = ran(script);
        EXPECT_EQ(result.outputText(), output) << script;
        EXPECT_EQ(result.errorsText(), errors) << script;
        EXPECT_EQ(result.exitStatus, status) << script;
        EXPECT_EQ(result.signal, signal) << script << result.description();
        EXPECT_EQ(result.isSuccess(), status == 0) << script;
        EXPECT_FALSE(result.error) << script;
    }
    auto merged = shell("echo a; echo b >&2; echo c");
    merged.errors = SubprocessOutput::withOutput();
    EXPECT_EQ(Subprocess::run(std::move(merged)).outputText(), "a\nb\nc\n");
}

/// Cancelled when it says that it is ready; `last` is the last line that it wrote besides.
SubprocessResult cancelledWhenReady(std::string script, double grace, std::string& last) {
    std::promise<void> ready;
    auto options = shell(std::move(script));
    options.grace = grace;
    options.output = SubprocessOutput::lines([&](std::string_view line) {
        if (line == "ready") return ready.set_value();
        last = line;
    });
    Started started(std::move(options));
    ready.get_future().wait();
    started.subprocess->cancel();
    return started.result();
}

TEST_P(SubprocessEnds, TimeLimitAndCancelEndWhatIgnoresThemWithItsGrandchildren) {
    auto options = shell("sleep 100");
    options.timeLimit = 0.02;
    auto const late = Subprocess::run(std::move(options));
    EXPECT_TRUE(late.isOutOfTime && late.signal == SIGTERM && !late.isSuccess()) << late.description();

    std::string last;
    auto const stubborn = cancelledWhenReady("trap '' TERM; sleep 100 & echo $!; echo ready; sleep 100", 0.05, last);
    EXPECT_TRUE(stubborn.isCancelled && stubborn.signal == SIGKILL) << stubborn.description();
    EXPECT_TRUE(eventually([&] { return hasDied(std::stoi(last)); }));

    auto const polite = cancelledWhenReady("trap 'echo bye; exit 0' TERM; echo ready; while :; do sleep 0.01; done", 60, last);
    EXPECT_EQ(last, "bye");
    EXPECT_TRUE(polite.exitStatus == 0 && !polite.isSuccess()) << "it was asked to";
}

TEST(Subprocess, WhatCannotBeginSaysWhyInTheSystemsWords) {
    TemporaryFolder const folder;
    auto const plain = folder.write("plain", "no program"), orphan = folder.write("orphan", "#!/nowhere/interpreter\n");
    ::chmod(orphan.c_str(), 0755);
    struct Row {
        SubprocessOptions options;
        int code;
        std::string about;
    };
    std::vector<Row> rows;
    auto const row = [&](SubprocessOptions options, int code, std::string about) {
        rows.push_back({std::move(options), code, std::move(about)});
    };
    row({.program = "no-such-program-anywhere"}, ENOENT, "no-such-program-anywhere: No such file or directory");
    row({.program = ""}, ENOENT, "No such file or directory");
    row({.program = plain}, EACCES, plain + ": Permission denied");
    row({.program = folder.path()}, EACCES, folder.path() + ": Permission denied");
    row({.program = orphan}, ENOENT, orphan + ": its interpreter: No such file or directory");
    row({.program = "true", .folder = folder.path("gone")}, ENOENT, folder.path("gone") + ": No such file or directory");
    row({.program = "true", .folder = plain}, ENOTDIR, plain + ": Not a directory");
    row({.program = "true", .input = SubprocessInput::file(folder.path("gone"))}, ENOENT, "gone: No such file or directory");
    row({.program = "true", .arguments = {std::string("a\0b", 3)}}, EINVAL, "/true: Invalid argument");
    row({.program = std::string("true\0", 5)}, EINVAL, "true: Invalid argument");
    row({.program = "true", .environment = {.changes = {{"A=B", "c"}}}}, EINVAL, "true: Invalid argument");
    row({.program = "true", .arguments = std::vector(64, std::string(130'000, 'x'))}, E2BIG, "/true: Argument list too long");
    for (std::size_t at = 0; at < rows.size(); ++at) {
        auto& [options, code, about] = rows[at];
        auto const result = at % 2 == 0 ? Subprocess::run(std::move(options)) : Started(std::move(options)).result();
        ASSERT_TRUE(result.error) << about;
        EXPECT_EQ(result.error->code(), code) << about;
        EXPECT_TRUE(result.error->localizedDescription().ends_with(about)) << result.error->localizedDescription();
        EXPECT_FALSE(result.exitStatus || result.signal);
    }
}

TEST(Subprocess, GetsItsEnvironmentItsFolderAndNothingElse) {
    TemporaryFolder const folder;
    Environment const set("TESSARIN_A", "inherited"), other("TESSARIN_B", "inherited");
    auto options = shell("echo $TESSARIN_A-$TESSARIN_B-$TESSARIN_C; pwd -P");
    options.environment.changes = {{"TESSARIN_A", "new"}, {"TESSARIN_B", {}}, {"TESSARIN_C", "x=y"}};
    options.folder = folder.path();
    EXPECT_EQ(Subprocess::run(std::move(options)).outputText(),
              "new--x=y\n" + std::filesystem::canonical(folder.path()).native() + "\n");
    SubprocessEnvironment const own{.base = SubprocessEnvironment::Base::Empty, .changes = {{"A", "1"}}};
    EXPECT_EQ(Subprocess::run({.program = "env", .environment = own}).outputText(), "A=1\n");

    int const open = ::dup(STDIN_FILENO); // without close on exec, as careless libraries leave theirs
    sigset_t blocked, before;
    ::sigfillset(&blocked);
    ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
    auto const inherited = ran("ls /proc/self/fd/" + std::to_string(open) + "; grep SigBlk /proc/self/status");
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    ::close(open);
    EXPECT_EQ(inherited.outputText(), "SigBlk:\t0000000000000000\n");
}

TEST(Subprocess, InputComesFromTextFileAndClosureAndMayBeLeftUnread) {
    TemporaryFolder const folder;
    auto const cat = [](SubprocessInput input) {
        return std::string{Subprocess::run({.program = "cat", .input = std::move(input)}).outputText()};
    };
    EXPECT_EQ(cat(SubprocessInput::text("text")), "text");
    EXPECT_EQ(cat(SubprocessInput::text("")), "");
    EXPECT_EQ(cat(SubprocessInput::file(folder.write("file", "content"))), "content");
    int asked = 0;
    EXPECT_EQ(cat(SubprocessInput::pieces([&asked]() -> std::optional<NSData> {
                  if (++asked > 4) return {};
                  return NSData::dataWithText(asked == 2 ? "" : std::string(100'000, static_cast<char>('0' + asked)));
              })),
              std::string(100'000, '1') + std::string(100'000, '3') + std::string(100'000, '4'));

    auto const unread = NSData::dataWithText(std::string(2'000'000, 'x'));
    EXPECT_TRUE(Subprocess::run({.program = "true", .input = SubprocessInput::data(unread)}).isSuccess());
    auto partly = shell("exec head -c 3");
    partly.input = SubprocessInput::pieces([&unread] { return std::optional(unread); }); // without an end
    EXPECT_EQ(Subprocess::run(std::move(partly)).outputText(), "xxx");
}

TEST(Subprocess, BothWaysAtOnceMoreThanPipesHold) {
    std::string text;
    for (int line = 0; text.size() < 3'000'000; ++line) text += std::to_string(line) + (line % 3 == 0 ? "\r\n" : "\n");
    text += "no end";
    auto options = shell("tee /dev/stderr");
    options.input = SubprocessInput::text(text);
    auto const kept = Subprocess::run(std::move(options));
    EXPECT_TRUE(kept.outputText() == text && kept.errorsText() == text);

    std::string pieces;
    std::size_t lines = 0, lineBytes = 0;
    options = shell("tee /dev/stderr");
    options.input = SubprocessInput::text(text);
    options.output = SubprocessOutput::lines([&](std::string_view line) {
        lineBytes += line.size();
        if (line == std::to_string(lines)) ++lines;
    });
    options.errors = SubprocessOutput::pieces([&](NSData const& piece) { pieces += piece.text(); });
    EXPECT_TRUE(Subprocess::run(std::move(options)).isSuccess());
    EXPECT_TRUE(pieces == text);
    EXPECT_GT(lines, 300'000U);
    EXPECT_EQ(lineBytes, static_cast<std::size_t>(std::ranges::count_if(text, [](char c) { return c != '\n' && c != '\r'; })));
}

TEST(Subprocess, ClosuresRunOnTheQueueInOrderAndTheCompletionLast) {
    std::string order;
    bool isThere = true;
    auto options = shell("printf 'a\\n\\nb\\r\\nlast'");
    options.queue = dispatch_get_main_queue();
    options.output = SubprocessOutput::lines([&](std::string_view line) {
        isThere &= queueIsHeld(dispatch_get_main_queue());
        order += "<" + std::string{line} + ">";
    });
    std::promise<void> done;
    Subprocess::start(std::move(options), [&](SubprocessResult const& result) {
        isThere &= queueIsHeld(dispatch_get_main_queue());
        order += result.description();
        done.set_value();
    });
    done.get_future().wait();
    EXPECT_EQ(order, "<a><><b><last>ended with status 0");
    EXPECT_TRUE(isThere);
}

TEST(Subprocess, RunIsRefusedOnlyWhereNobodyCouldCallItsClosures) {
    auto const over = [](dispatch_queue_t const& target) {
        auto queue = dispatch_queue_create("over", DISPATCH_QUEUE_SERIAL);
        dispatch_set_target_queue(queue, target);
        return queue;
    };
    auto const main = dispatch_get_main_queue(), global = dispatch_get_global_queue(0, 0);
    auto const serial = over(global), side = dispatch_queue_create("side by side", DISPATCH_QUEUE_CONCURRENT);
    // clang-format off
    for (auto const& [held, isBarrier, closures, expected] : {
             std::tuple{serial, false, serial, EDEADLK}, {over(serial), false, serial, EDEADLK},
             {serial, false, over(over(serial)), EDEADLK}, {main, false, over(main), EDEADLK},
             {side, true, over(side), EDEADLK}, {side, false, side, 0}, {global, false, global, 0}, {main, false, global, 0},
             {serial, false, over(main), 0}})
    // clang-format on
        (isBarrier ? dispatch_barrier_sync : dispatch_sync)(held, [&] {
            auto waiting = shell("echo a");
            waiting.queue = closures;
            waiting.output = SubprocessOutput::lines([](std::string_view) {});
            auto const result = Subprocess::run(std::move(waiting));
            EXPECT_EQ(result.error ? result.error->code() : 0, expected)
                << dispatch_queue_get_label(held) << isBarrier << dispatch_queue_get_label(closures);
        });
}

TEST(Subprocess, LinesBeyondTheLongestComeInPartsOfThatLength) {
    auto const longest = std::to_string(SubprocessOutput::longestLine), more = std::to_string(SubprocessOutput::longestLine + 1);
    auto options = shell("x() { head -c $1 /dev/zero; }; x " + longest + "; printf '\\r\\na\\n'; x " + more +
                         "; printf '\\nb\\n'; x " + more + "; x " + longest);
    std::vector<std::size_t> sizes;
    options.output = SubprocessOutput::lines([&](std::string_view line) { sizes.push_back(line.size()); });
    EXPECT_TRUE(Subprocess::run(std::move(options)).isSuccess());
    constexpr auto whole = SubprocessOutput::longestLine;
    EXPECT_EQ(sizes, (std::vector<std::size_t>{whole, 1, whole, 1, 1, whole, whole, 1}));
}

TEST(Subprocess, CapturedOutputEndsAtItsLimitAndSoDoesTheSubprocess) {
    auto options = shell("yes");
    options.output = SubprocessOutput::captured(100'000);
    auto const result = Subprocess::run(std::move(options));
    ASSERT_TRUE(result.error);
    EXPECT_EQ(result.error->code(), EFBIG);
    EXPECT_EQ(result.output.length(), 100'000U);
    options = shell("printf 12345");
    options.output = SubprocessOutput::captured(5);
    EXPECT_TRUE(Subprocess::run(std::move(options)).isSuccess());
}

} // namespace
} // namespace Tessarin::tests
