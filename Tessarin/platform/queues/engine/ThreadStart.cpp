#include "Tessarin/platform/queues/engine/ThreadStart.h"

#include "Tessarin/platform/queues/engine/Thread.h"
#include <csignal>
#include <initializer_list>
#include <pthread.h>

namespace Tessarin::engine {
namespace {

/// The application's signals are its own threads' business; but what an item does itself, and what a profiler asks of every
/// thread, comes to the thread that it concerns.
sigset_t signalsOfOthers() noexcept {
    sigset_t set;
    sigfillset(&set);
    for (int const own : {SIGILL, SIGTRAP, SIGFPE, SIGBUS, SIGSEGV, SIGSYS, SIGPIPE, SIGPROF}) sigdelset(&set, own);
    return set;
}

struct ThreadEntry {
    char const* name;
    void* (*enter)(void*);
    void* argument;

    static void* run(void* entry) {
        auto const [name, enter, argument] = *static_cast<ThreadEntry*>(entry);
        delete static_cast<ThreadEntry*>(entry);
        pthread_setname_np(pthread_self(), name);
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

bool startThread(char const* name, void* (*enter)(void*), void* argument) noexcept {
    openSignalsInChildren();
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    auto const closed = signalsOfOthers();
    pthread_attr_setsigmask_np(&attributes, &closed);
    auto* const entry = new ThreadEntry{name, enter, argument};
    pthread_t thread;
    bool const started = pthread_create(&thread, &attributes, &ThreadEntry::run, entry) == 0;
    if (!started) delete entry;
    pthread_attr_destroy(&attributes);
    return started;
}

} // namespace Tessarin::engine
