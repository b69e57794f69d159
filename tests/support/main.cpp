#include "tests/support/MainThread.h"

#include "Tessarin/platform/queues/MainQueue.h"
#include <future>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>

namespace Tessarin::tests {
namespace {

std::mutex mutex;
std::function<void()> request; // guarded by mutex
bool finished = false;         // guarded by mutex

/// Runs what `onMainThread` asked for; whether the tests go on.
bool answer() {
    std::unique_lock hold(mutex);
    auto const work = std::exchange(request, nullptr);
    bool const goesOn = !finished;
    hold.unlock();
    if (work) work();
    return goesOn;
}

} // namespace

void onMainThread(FunctionRef<void()> work) {
    std::promise<void> done;
    {
        std::lock_guard const hold(mutex);
        request = [&] {
            work();
            done.set_value();
        };
    }
    stopMainLoop();
    done.get_future().wait();
}

} // namespace Tessarin::tests

int main(int argc, char** argv) {
    using namespace Tessarin;
    testing::InitGoogleTest(&argc, argv);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    int result = 0;
    std::thread runner([&] {
        result = RUN_ALL_TESTS();
        {
            std::lock_guard const hold(tests::mutex);
            tests::finished = true;
        }
        stopMainLoop();
    });
    do runMainLoop();
    while (tests::answer());
    runner.join();
    return result;
}
