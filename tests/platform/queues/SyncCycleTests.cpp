#include "Tessarin/platform/queues/QueueChecks.h"
#include "tests/platform/queues/Support.h"
#include <poll.h>
#include <thread>
#include <unistd.h>

namespace Tessarin::tests {
namespace {

/// What the first line on standard error is that comes after `begin`, told by a child's own end.
[[noreturn]] void tellFirstLine(FunctionRef<void()> begin) {
    setChecksQueues(true);
    int ends[2];
    int const told = dup(STDERR_FILENO);
    if (pipe(ends) != 0) _exit(2);
    dup2(ends[1], STDERR_FILENO);
    begin();
    pollfd waits{ends[0], POLLIN, 0};
    char line[1000];
    if (poll(&waits, 1, 60'000) != 1) _exit(3);
    auto const size = read(ends[0], line, sizeof line);
    if (size < 0 || write(told, line, static_cast<std::size_t>(size)) != size) _exit(4);
    _exit(0);
}

void inThread(Closure<void()> work) {
    std::thread([work = std::move(work)] { work(); }).detach();
}

TEST(SyncCycleDeathTest, ASyncThatNeverReturnsIsToldWithItsQueues) {
    auto const first = serialQueue("first"), second = serialQueue("second");

    EXPECT_EXIT(
        tellFirstLine([&] { dispatch_async(first, [=] { dispatch_sync(first, [] {}); }); }), testing::ExitedWithCode(0),
        "^A dispatch_sync never returns: \"first\" waits for \"first\"\\. Ask queueIsHeld before, or use dispatch_async\\.\n$");
    // Whoever waits for the cycle without being in it, and whoever waits for what goes on, is not told of.
    EXPECT_EXIT(tellFirstLine([&] {
                    auto const busy = serialQueue("busy");
                    Event const inFirst, inSecond;
                    dispatch_async(busy, [=] { dispatch_semaphore_wait(dispatch_semaphore_create(0), DISPATCH_TIME_FOREVER); });
                    inThread([=] { dispatch_sync(busy, [] {}); });
                    dispatch_async(first, [=] {
                        inFirst.happen();
                        inSecond.wait();
                        inThread([=] { dispatch_sync(first, [] {}); });
                        dispatch_sync(second, [] {});
                    });
                    dispatch_async(second, [=] {
                        inSecond.happen();
                        inFirst.wait();
                        dispatch_sync(queueOn(first), [] {});
                    });
                }),
                testing::ExitedWithCode(0),
                "^A dispatch_sync never returns: (\"first\" waits for \"second\"; \"second\" waits for "
                "\"first\"|\"second\" waits for \"first\"; \"first\" waits for \"second\")\\. [^\n]*\n$");
}

} // namespace
} // namespace Tessarin::tests
