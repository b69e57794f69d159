#include "Tessarin/platform/foundation/processes/ProcessLoopPrivate.h"

#include "Tessarin/platform/runtime/Hold.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <limits>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace Tessarin::processes {
namespace {

/// The one of all. A system without epoll takes another one; nothing else asks for it.
class SharedProcessLoop final : public ProcessLoop {
public:
    /// Null, and an errno.
    static std::unique_ptr<SharedProcessLoop> make(int& problem);
    int startThread();
    int watch(int descriptor, For what, Watch& watch) override;
    void unwatch(int descriptor, Watch& watch) override;

private:
    SharedProcessLoop(Handle events, Handle knocks) : events_(std::move(events)), knocks_(std::move(knocks)) {}
    void knock() noexcept override;
    static void* enter(void* self);
    void doRound();

    Handle const events_, knocks_;
    std::span<epoll_event> batch_; // what it is going through
};

std::unique_ptr<SharedProcessLoop> SharedProcessLoop::make(int& problem) {
    Handle events{::epoll_create1(EPOLL_CLOEXEC)};
    Handle knocks{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    epoll_event knock{.events = EPOLLIN, .data = {.ptr = nullptr}};
    bool const isGood = events && knocks && ::epoll_ctl(events.number(), EPOLL_CTL_ADD, knocks.number(), &knock) == 0;
    if (!isGood) problem = errno;
    return std::unique_ptr<SharedProcessLoop>(isGood ? new SharedProcessLoop(std::move(events), std::move(knocks)) : nullptr);
}

int SharedProcessLoop::startThread() {
    sigset_t all, before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before); // signals are for the application's threads, and SIGPIPE for nobody
    pthread_t thread;
    int const problem = ::pthread_create(&thread, nullptr, &enter, this);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (problem == 0) ::pthread_detach(thread);
    return problem;
}

void* SharedProcessLoop::enter(void* self) {
    ::pthread_setname_np(::pthread_self(), "subprocesses");
    for (;;) static_cast<SharedProcessLoop*>(self)->doRound();
}

int SharedProcessLoop::watch(int descriptor, For what, Watch& watch) {
    epoll_event event{.events = what == For::Reading ? EPOLLIN : EPOLLOUT, .data = {.ptr = &watch}};
    return ::epoll_ctl(events_.number(), EPOLL_CTL_ADD, descriptor, &event) == 0 ? 0 : errno;
}

void SharedProcessLoop::unwatch(int descriptor, Watch& watch) {
    ::epoll_ctl(events_.number(), EPOLL_CTL_DEL, descriptor, nullptr);
    for (auto& event : batch_) // what was found ready before
        if (event.data.ptr == &watch) event.data.ptr = nullptr;
}

void SharedProcessLoop::doRound() {
    epoll_event events[64];
    int const count = ::epoll_wait(events_.number(), events, std::size(events), patience());
    batch_ = {events, static_cast<std::size_t>(std::max(count, 0))};
    bool isKnocked = false;
    for (auto const& event : batch_) {
        if (event.data.ptr)
            static_cast<Watch*>(event.data.ptr)->ready();
        else
            isKnocked = true; // or it has been unwatched
    }
    batch_ = {};
    if (isKnocked) {
        std::uint64_t knocks = 0;
        static_cast<void>(!::read(knocks_.number(), &knocks, sizeof knocks));
        runPosted();
    }
    runDeadlines();
}

void SharedProcessLoop::knock() noexcept {
    std::uint64_t const one = 1;
    static_cast<void>(!::write(knocks_.number(), &one, sizeof one));
}

} // namespace

ProcessLoop* ProcessLoop::current(int& problem) {
    static Mutex mutex;
    static ProcessLoop* loop = nullptr; // never destroyed; guarded by mutex
    Hold const hold(mutex);
    if (loop) return loop;
    auto made = SharedProcessLoop::make(problem);
    if (!made) return nullptr;
    problem = made->startThread();
    if (problem == 0) loop = made.release();
    return loop;
}

void ProcessLoop::post(Closure<void()> work) {
    Hold const hold(mutex_); // until it has knocked: the work may be what ends the loop
    posted_.push_back(std::move(work));
    if (posted_.size() == 1) knock(); // or it has been told
}

void ProcessLoop::runPosted() {
    std::vector<Closure<void()>> posted;
    {
        Hold const hold(mutex_);
        posted.swap(posted_);
    }
    for (auto const& work : posted) work();
}

void ProcessLoop::runDeadlines() {
    auto const moment = now();
    while (!deadlines_.empty() && deadlines_.begin()->first <= moment) {
        auto const due = deadlines_.extract(deadlines_.begin());
        due.mapped()();
    }
}

int ProcessLoop::patience() const {
    if (deadlines_.empty()) return -1;
    auto const milliseconds = (deadlines_.begin()->first - now() + 999'999) / 1'000'000;
    return static_cast<int>(std::clamp<std::int64_t>(milliseconds, 0, 1'000'000));
}

std::int64_t ProcessLoop::now() noexcept {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * std::int64_t{1'000'000'000} + now.tv_nsec;
}

std::int64_t ProcessLoop::after(double seconds) noexcept {
    constexpr double longest = 1e9; // thirty years
    if (!(seconds < longest)) return std::numeric_limits<std::int64_t>::max();
    return now() + static_cast<std::int64_t>(std::max(seconds, 0.0) * 1e9);
}

} // namespace Tessarin::processes
