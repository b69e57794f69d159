#include "Tessarin/platform/foundation/processes/ProcessLoopPrivate.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>

namespace Tessarin::processes {
namespace {

/// No signal of a pipe that a child does not read comes to the thread, and none is left for it.
class PipeSignalBlocked {
public:
    PipeSignalBlocked() {
        ::sigemptyset(&set_);
        ::sigaddset(&set_, SIGPIPE);
        ::pthread_sigmask(SIG_BLOCK, &set_, &before_);
        wasPending_ = isPending();
    }
    ~PipeSignalBlocked() {
        timespec const now{};
        if (!wasPending_ && isPending()) ::sigtimedwait(&set_, nullptr, &now);
        ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }

private:
    static bool isPending() {
        sigset_t pending;
        ::sigpending(&pending);
        return ::sigismember(&pending, SIGPIPE) == 1;
    }
    sigset_t set_, before_;
    bool wasPending_;
};

} // namespace

void OwnProcessLoop::runUntil(bool const& isDone) {
    PipeSignalBlocked const blocked;
    while (!isDone) {
        auto const knocks = knocks_.load(std::memory_order_acquire);
        runPosted();
        bool const talks = hasDeadlines() || std::ranges::any_of(watches_, [](auto const* each) { return each != nullptr; });
        if (talks)
            doRound();
        else if (!isDone)
            knocks_.wait(knocks); // until the child has its turn; later on nobody posts but this thread
    }
}

void OwnProcessLoop::doRound() {
    auto waits = waits_;
    auto const watches = watches_;
    ::poll(waits.data(), waits.size(), patience());
    for (std::size_t at = 0; at < most; ++at) // one may unwatch another
        if (watches[at] && waits[at].revents != 0 && watches[at] == watches_[at]) watches[at]->ready();
    runDeadlines();
}

void OwnProcessLoop::knock() noexcept {
    knocks_.fetch_add(1, std::memory_order_release);
    knocks_.notify_one();
}

int OwnProcessLoop::watch(int descriptor, For what, Watch& watch) {
    auto const at = static_cast<std::size_t>(std::ranges::find(watches_, nullptr) - watches_.begin());
    if (at == most) return ENOSPC;
    watches_[at] = &watch;
    waits_[at] = {.fd = descriptor, .events = static_cast<short>(what == For::Reading ? POLLIN : POLLOUT), .revents = 0};
    return 0;
}

void OwnProcessLoop::unwatch(int, Watch& watch) {
    for (std::size_t at = 0; at < most; ++at)
        if (watches_[at] == &watch) watches_[at] = nullptr, waits_[at].fd = -1;
}

} // namespace Tessarin::processes
