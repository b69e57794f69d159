#include "tests/support/MainThread.h"

#include "Tessarin/platform/queues/DispatchMain.h"
#include <cstdlib>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <functional>
#include <mutex>
#include <thread>

namespace Tessarin::tests {
namespace {

/// The system's temporary folder of this run is one of its own, removed at the end. Death tests run as children of it and
/// leave their files there when they die.
class OwnTemporaryFolder {
public:
    OwnTemporaryFolder() {
        if (std::getenv("TESSARIN_TEST_RUN")) return;
        path_ = (std::filesystem::temp_directory_path() / "tessarin-tests-XXXXXX").string();
        if (!mkdtemp(path_.data())) std::abort();
        setenv("TMPDIR", path_.c_str(), 1);
        setenv("TESSARIN_TEST_RUN", "1", 1);
    }
    ~OwnTemporaryFolder() {
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }

private:
    std::string path_; // empty in a child
};

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
    tests::OwnTemporaryFolder const folder;
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
