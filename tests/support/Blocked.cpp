#include "tests/support/Blocked.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sched.h>
#include <string>
#include <thread>
#include <unistd.h>

namespace Tessarin::tests {
namespace {

struct Watched {
    std::atomic<pid_t> thread{0};
    std::atomic<bool> hasReturned{false};
};

bool sleeps(std::filesystem::path const& task) {
    std::ifstream file(task / "stat");
    std::string const text{std::istreambuf_iterator<char>(file), {}};
    auto const name = text.rfind(") ");
    return name == std::string::npos || text[name + 2] == 'S'; // no text: the thread has ended
}

bool everybodySleeps() {
    for (auto const& task : std::filesystem::directory_iterator("/proc/self/task"))
        if (task.path().filename() != std::to_string(gettid()) && !sleeps(task.path())) return false;
    return true;
}

/// Returns when all other threads were found asleep many times in succession, or the watched one is done.
void awaitRest(Watched const& watched) {
    for (int inSuccession = 0; inSuccession < 200 && !watched.hasReturned;) {
        inSuccession = watched.thread != 0 && everybodySleeps() ? inSuccession + 1 : 0;
        sched_yield();
    }
}

} // namespace

bool staysBlocked(Closure<void()> work, Closure<void()> release) {
    auto const watched = std::make_shared<Watched>();
    std::thread([watched, work = std::move(work)] {
        watched->thread = gettid();
        work();
        watched->hasReturned = true;
    }).detach();
    awaitRest(*watched);
    if (watched->hasReturned) return false;
    if (release) release();
    awaitRest(*watched);
    return !watched->hasReturned;
}

void exitIfBlocked(Closure<void()> work, Closure<void()> release) {
    ::_exit(staysBlocked(std::move(work), std::move(release)) ? 0 : 1);
}

} // namespace Tessarin::tests
