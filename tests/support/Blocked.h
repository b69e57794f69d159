#pragma once
#include "Tessarin/platform/runtime/Closure.h"

namespace Tessarin::tests {

/// Whether `work`, on a thread of its own, blocks and still does when `release` has run and every thread of the process has
/// come to rest, so that nobody is left who could wake it. The thread stays behind: for a child process only.
///
///     EXPECT_EXIT(tests::exitIfBlocked([&] { queue->sync([&] { queue->sync([] {}); }); }), testing::ExitedWithCode(0), "");
bool staysBlocked(Closure<void()> work, Closure<void()> release = {});

/// Ends the process with 0 when it stays blocked, with 1 when it returns.
[[noreturn]] void exitIfBlocked(Closure<void()> work, Closure<void()> release = {});

} // namespace Tessarin::tests
