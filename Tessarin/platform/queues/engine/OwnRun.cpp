#include "Tessarin/platform/queues/engine/OwnRun.h"

#include "Tessarin/platform/queues/engine/Pool.h"
#include "Tessarin/platform/queues/engine/Thread.h"
#include <csignal>
#include <pthread.h>

namespace Tessarin::engine {
namespace {

constexpr Nanoseconds shortRun = 20'000; // about what calling a worker costs
constexpr Nanoseconds penalty = 5'000'000;
constexpr Nanoseconds watchEvery = 1'000'000;

/// The application's signals are its own threads' business; but what an item does itself, and what a profiler asks of every thread,
/// comes to the thread that it concerns.
sigset_t signalsOfOthers() noexcept {
    sigset_t set;
    sigfillset(&set);
    for (int const own : {SIGILL, SIGTRAP, SIGFPE, SIGBUS, SIGSEGV, SIGSYS, SIGPIPE, SIGPROF}) sigdelset(&set, own);
    return set;
}

struct ThreadEntry {
    void* (*enter)(void*);
    void* argument;

    static void* run(void* entry) {
        auto const [enter, argument] = *static_cast<ThreadEntry*>(entry);
        delete static_cast<ThreadEntry*>(entry);
        thisThread.isOfTheEngine = true;
        return enter(argument);
    }
};

/// A child that an item forks has the signals of the thread that first used the engine, not those of the worker.
void openSignalsInChildren() {
    static sigset_t processMask;
    static int const registered = [] {
        pthread_sigmask(SIG_SETMASK, nullptr, &processMask);
        return pthread_atfork(nullptr, nullptr, [] {
            if (thisThread.isOfTheEngine) pthread_sigmask(SIG_SETMASK, &processMask, nullptr);
        });
    }();
    static_cast<void>(registered);
}

} // namespace

bool startThread(void* (*enter)(void*), void* argument) noexcept {
    openSignalsInChildren();
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    auto const closed = signalsOfOthers();
    pthread_attr_setsigmask_np(&attributes, &closed);
    auto* const entry = new ThreadEntry{enter, argument};
    pthread_t thread;
    bool const started = pthread_create(&thread, &attributes, &ThreadEntry::run, entry) == 0;
    if (!started) delete entry;
    pthread_attr_destroy(&attributes);
    return started;
}

bool OwnRun::run(Catch const& caught) noexcept {
    callDeputy();
    if (!hasDeputy_) {
        caught.pool->submit(caught.item);
        return true;
    }
    auto const start = monotonicNow();
    auto number = ++number_;
    current_.store(number, std::memory_order_release);
    caught.pool->runOn(caught.item);
    if (!current_.compare_exchange_strong(number, 0, std::memory_order_acq_rel)) return false;
    auto const end = monotonicNow();
    if (end - start > shortRun) allowedFrom_ = end + penalty;
    return true;
}

void OwnRun::callDeputy() noexcept {
    if (hasDeputy_ && watched_.load(std::memory_order_relaxed)) return;
    watched_.store(1, std::memory_order_relaxed);
    if (hasDeputy_) {
        unpark(watched_);
        return;
    }
    auto const enter = [](void* self) -> void* {
        static_cast<OwnRun*>(self)->watch();
        return nullptr;
    };
    hasDeputy_ = startThread(enter, this);
}

void OwnRun::watch() noexcept {
    pthread_setname_np(pthread_self(), "dispatch-timer");
    std::atomic<std::uint32_t> const nobody = 0;
    std::uint64_t seen = 0;
    for (;;) {
        while (!watched_.load(std::memory_order_relaxed)) park(watched_, 0);
        park(nobody, 0, monotonicNow() + watchEvery);
        auto number = current_.load(std::memory_order_acquire);
        if (number == 0 || std::exchange(seen, number) != number) continue;
        if (!current_.compare_exchange_strong(number, 0, std::memory_order_acq_rel)) continue;
        // The place is this thread's now; the next run has no deputy yet, and one that is called for it must find nothing to take.
        hasDeputy_ = false;
        allowedFrom_ = monotonicNow() + penalty;
        return successor_();
    }
}

} // namespace Tessarin::engine
