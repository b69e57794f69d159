#include "Tessarin/platform/queues/MainQueue.h"

#include "Tessarin/platform/queues/engine/DispatchQueue.h"
#include "Tessarin/platform/queues/engine/Thread.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Tessarin {

using namespace engine;

namespace {

constinit DispatchQueue theMainQueue{DispatchQueue::Kind::Main, "main", nullptr};

union NeverDestroyed {
    constexpr NeverDestroyed() : queue(dispatch_queue_t::adopt(&theMainQueue)) {}
    ~NeverDestroyed() {}
    dispatch_queue_t queue;
};
constinit NeverDestroyed mainQueueReference;

constinit std::atomic<std::uint32_t> signal = 0; // 1 between a signal and the drain that answers it
constinit std::atomic<int> descriptor = -1;
constinit std::atomic<bool> stopRequested = false;
constinit bool loopRuns = false; // the main thread's

// After work the loop looks out for more for a moment: a thread that syncs to main in a row waits a tenth of the time.
constexpr Nanoseconds afterglow = 10'000;
bool isSignalled() noexcept { return signal.load(std::memory_order_acquire) != 0; }

void requireMainThread(char const* operation) {
    if (!isMainThread()) fatal(std::string{operation} + ": not on the main thread");
}

void writeDescriptor(int file) noexcept {
    std::uint64_t const one = 1;
    static_cast<void>(!write(file, &one, sizeof one));
}

void clearSignal() noexcept {
    signal.store(0, std::memory_order_seq_cst);
    std::uint64_t count = 0;
    if (int const file = descriptor.load(std::memory_order_seq_cst); file >= 0) static_cast<void>(!read(file, &count, sizeof count));
}

void drainOnce() {
    clearSignal();
    if (theMainQueue.hasToken()) theMainQueue.drain();
}

} // namespace

namespace engine {

constinit thread_local ThreadContext thisThread [[gnu::tls_model("initial-exec")]];

bool askWhetherMainThread() noexcept {
    bool const isMain = syscall(SYS_gettid) == getpid();
    thisThread.role = isMain ? ThreadContext::Role::Main : ThreadContext::Role::Other;
    return isMain;
}

DispatchQueue& mainQueue() noexcept { return theMainQueue; }
bool mainLoopShallStop() noexcept { return loopRuns && stopRequested.load(std::memory_order_relaxed); }

void signalMainThread() noexcept {
    if (signal.exchange(1, std::memory_order_seq_cst) == 1) return;
    unpark(signal);
    if (int const file = descriptor.load(std::memory_order_seq_cst); file >= 0) writeDescriptor(file);
}

} // namespace engine

dispatch_queue_t const& dispatch_get_main_queue() { return mainQueueReference.queue; }

void runMainLoop() {
    requireMainThread("runMainLoop");
    if (thisThread.frames) fatal("runMainLoop: inside a work item");
    loopRuns = true;
    bool hasJustRun = false;
    while (!stopRequested.exchange(false)) {
        if (isSignalled()) {
            drainOnce();
            hasJustRun = true;
        } else if (!std::exchange(hasJustRun, false) || !spin(afterglow, isSignalled)) {
            park(signal, 0);
        }
    }
    loopRuns = false;
}

void stopMainLoop() {
    stopRequested.store(true);
    signalMainThread();
}

int mainQueueDescriptor() {
    if (int const file = descriptor.load(std::memory_order_acquire); file >= 0) return file;
    int const made = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (made < 0) fatal("mainQueueDescriptor: no descriptor can be made");
    int expected = -1;
    if (!descriptor.compare_exchange_strong(expected, made, std::memory_order_seq_cst)) {
        close(made);
        return expected;
    }
    if (signal.load(std::memory_order_seq_cst) == 1) writeDescriptor(made);
    return made;
}

void drainMainQueue() {
    requireMainThread("drainMainQueue");
    if (!thisThread.frames) drainOnce();
}

} // namespace Tessarin
